// Printing and parsing by kind: quoted where a text must say what it is, plain for keys. JSON texts are in
// Json.cpp.
#include "Kel/Text.h"

#include <fmt/format.h>

#include "Kel/Attr.h"
#include "Kel/Builtins.h"
#include "Kel/GenericIf.h"

namespace Kel::Impl {
namespace {

Enumerator const* enumeratorOf(TypeDesc const& type, std::int64_t value) {
  for (Enumerator const& one : type.enumerators)
    if (one.value == value) return &one;
  return nullptr;
}

std::string printEnum(TypeDesc const& type, void const* at, Quotation quotation) {
  std::int64_t const value = loadInteger(type.underlying, at);
  Enumerator const* const one = enumeratorOf(type, value);
  if (one == nullptr) return fmt::format("{}", value);
  return quotation == Quotation::Plain ? one->name.str() : fmt::format("'{}'", one->name.view());
}

std::optional<std::string> parseEnum(TypeDesc const& type, std::string_view name, void* to) {
  for (Enumerator const& one : type.enumerators) {
    if (one.name == name) {
      storeInteger(type.underlying, to, one.value);
      return std::nullopt;
    }
  }
  std::string expected;
  for (Enumerator const& one : type.enumerators) {
    if (!expected.empty()) expected += ", ";
    if (expected.size() > 200) {
      expected += "...";
      break;
    }
    expected += one.name.view();
  }
  return fmt::format("'{}' is no enumerator of type '{}': expected one of {}", name.substr(0, 80),
                     type.name.view(), expected);
}

// The value behind a nominal or union, as (type, address holder).
Ptr<GenericIf const> inner(TypeDesc const& type, void const* at) {
  Ptr<GenericIf const> const self = GenericIf::copyOf(type, at);
  AttrDesc const* const attr =
      type.kind == TypeKind::Union ? type.activeAlternative(type, at) : type.attrs.front().get();
  return attr == nullptr ? nullptr : attr->access->get(*attr, *self, nullptr);
}

std::string printStruct(TypeDesc const& type, void const* at) {
  Ptr<GenericIf const> const self = GenericIf::copyOf(type, at);
  std::string text = "{";
  for (auto const& attr : type.attrs) {
    if (text.size() > 1) text += ", ";
    text += attr->name.view();
    text += '=';
    if (attr->isCollection && !attr->isArray) {
      text += fmt::format("<{} members>", attr->access->count(*attr, *self));
      continue;
    }
    auto const value = attr->access->get(*attr, *self, nullptr);
    text += value ? value->strRep() : std::string("null");
  }
  return text + "}";
}

std::string printArray(TypeDesc const& type, void const* at) {
  std::string text = "[";
  std::size_t const size = type.arrayOps->size(at);
  for (std::size_t i = 0; i < size; ++i) {
    if (i != 0) text += ", ";
    text += type.arrayOps->at(*type.elementType, at, i)->strRep();
  }
  return text + "]";
}

std::optional<std::string> parseInto(AttrDesc const& attr, TypeDesc const& type, void* to, bool plain,
                                     std::string_view text) {
  Ptr<GenericIf> const part = GenericIf::defaultOf(*attr.memberType);
  if (auto error = plain ? parsePlain(*attr.memberType, text, part->data())
                         : parse(*attr.memberType, text, part->data()))
    return error;
  Ptr<GenericIf> const whole = GenericIf::copyOf(type, to);
  attr.access->set(attr, *whole, nullptr, part.get());
  type.ops.assign(type, to, whole->data());
  return std::nullopt;
}

std::optional<std::string> parseUnion(TypeDesc const& type, std::string_view text, void* to) {
  for (auto const& alternative : type.attrs)
    if (!parseInto(*alternative, type, to, false, text)) return std::nullopt;
  return fmt::format("'{}' is no value of any alternative of union type '{}'", text.substr(0, 80),
                     type.name.view());
}

} // namespace

std::string print(TypeDesc const& type, void const* at, Quotation quotation) {
  if (type.kind == TypeKind::Enum) return printEnum(type, at, quotation);
  if (type.gnmiStrRep)
    return quotation == Quotation::Plain ? type.gnmiStrRep(at) : fmt::format("\"{}\"", type.gnmiStrRep(at));
  switch (type.kind) {
  case TypeKind::Builtin: return printBuiltin(type.builtin, at, quotation == Quotation::Plain);
  case TypeKind::Nominal:
  case TypeKind::KeyPtr:
  case TypeKind::Union: {
    auto const value = inner(type, at);
    if (!value) return "null";
    return quotation == Quotation::Plain ? value->gnmiStrRep() : value->strRep();
  }
  case TypeKind::Array: return printArray(type, at);
  case TypeKind::Struct:
  case TypeKind::Entity:
  case TypeKind::Object: return printStruct(type, at);
  case TypeKind::Enum: // printed above
  case TypeKind::CollectionControl: break;
  }
  return {};
}

std::optional<std::string> parse(TypeDesc const& type, std::string_view text, void* to) {
  if (type.kind == TypeKind::Enum) {
    if (text.size() < 2 || text.front() != '\'' || text.back() != '\'') {
      return fmt::format("'{}' is no value of type '{}': expected an enumerator between apostrophes",
                         text.substr(0, 80), type.name.view());
    }
    return parseEnum(type, text.substr(1, text.size() - 2), to);
  }
  if (type.gnmiStrRep) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') {
      return fmt::format("'{}' is no value of type '{}': expected a text between double quotation marks",
                         text.substr(0, 80), type.name.view());
    }
    return parsePlain(type, text.substr(1, text.size() - 2), to);
  }
  switch (type.kind) {
  case TypeKind::Builtin: return parseBuiltin(type, text, to);
  case TypeKind::Nominal: return parseInto(*type.attrs.front(), type, to, false, text);
  case TypeKind::Union: return parseUnion(type, text, to);
  case TypeKind::Enum: // read above
  case TypeKind::Struct:
  case TypeKind::KeyPtr:
  case TypeKind::Array:
  case TypeKind::Entity:
  case TypeKind::Object:
  case TypeKind::CollectionControl: break;
  }
  return fmt::format("type '{}' has no text form to read a value from; found '{}'", type.name.view(),
                     text.substr(0, 80));
}

std::optional<std::string> parsePlain(TypeDesc const& type, std::string_view text, void* to) {
  if (type.fromGnmiString) return type.fromGnmiString(text, to);
  switch (type.kind) {
  case TypeKind::Enum: return parseEnum(type, text, to);
  case TypeKind::Nominal: return parseInto(*type.attrs.front(), type, to, true, text);
  case TypeKind::Builtin:
    if (type.builtin == BuiltinKind::String) {
      *static_cast<String*>(to) = String(text);
      return std::nullopt;
    }
    break;
  case TypeKind::Union:
  case TypeKind::Struct:
  case TypeKind::KeyPtr:
  case TypeKind::Array:
  case TypeKind::Entity:
  case TypeKind::Object:
  case TypeKind::CollectionControl: break;
  }
  return fmt::format("type '{}' has no gNMI string representation; found '{}'", type.name.view(),
                     text.substr(0, 80));
}

} // namespace Kel::Impl
