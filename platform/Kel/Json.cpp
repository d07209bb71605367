// Values and objects as JSON texts, by kind. What is no text or no JSON is mended or quoted, so that the
// whole can always be read.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "Kel/Attr.h"
#include "Kel/Builtins.h"
#include "Kel/GenericIf.h"
#include "Kel/Text.h"
#include "Kstd/Utf8.h"

namespace Kel::Impl {
namespace {

// What cannot stand in a JSON text as it is: control characters are escaped, bytes of no character replaced.
void appendText(std::string& out, std::string_view text) {
  auto const isPlain = [](char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; };
  out += '"';
  while (true) {
    auto const plain =
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    std::size_t const size = Kstd::utf8CharacterSize(text);
    switch (char const c = text.front()) {
    case '"':
    case '\\': (out += '\\') += c; break;
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default:
      if (size == 0)
        out += "\xef\xbf\xbd";
      else if (static_cast<unsigned char>(c) < 0x20)
        out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
      else
        out += text.substr(0, size);
    }
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
  out += '"';
}

// A value that says it is JSON: as it is when it is so, as a text otherwise, or what it stands in could not
// be read. The empty one is the default and stands for no value. docs/decisions.md: "What does a value that
// says it is JSON print inside a JSON text?"
void appendJson(std::string& out, std::string_view text) {
  if (text.empty())
    out += "null";
  else if (isJson(text))
    out += text;
  else
    appendText(out, text);
}

template <class F>
void appendFloat(std::string& out, F value) {
  out += std::isfinite(value) ? fmt::format("{}", value) : std::string("null");
}

void append(std::string& out, GenericIf const& value);

void appendBuiltin(std::string& out, GenericIf const& value, TypeDesc const& type) {
  switch (type.builtin) {
  case BuiltinKind::Float: appendFloat(out, *static_cast<float const*>(value.data())); return;
  case BuiltinKind::Double: appendFloat(out, *static_cast<double const*>(value.data())); return;
  case BuiltinKind::Char:
  case BuiltinKind::String:
  case BuiltinKind::Bytes: appendText(out, printBuiltin(type.builtin, value.data(), true)); return;
  case BuiltinKind::JsonString: appendJson(out, static_cast<JsonString const*>(value.data())->text); return;
  case BuiltinKind::U8:
  case BuiltinKind::S8:
  case BuiltinKind::U16:
  case BuiltinKind::S16:
  case BuiltinKind::U32:
  case BuiltinKind::S32:
  case BuiltinKind::U64:
  case BuiltinKind::S64:
  case BuiltinKind::Bool:
  case BuiltinKind::Seconds:
  case BuiltinKind::Time: out += printBuiltin(type.builtin, value.data(), true); return;
  case BuiltinKind::None: break;
  }
  out += "null";
}

bool appendAttr(std::string& out, AttrDesc const& attr, Ptr<GenericIf const> const& obj) {
  if (attr.isOperation || attr.isStack) return false;
  if (attr.isCollection && !attr.isArray) {
    out += '{';
    GenericIf::Iterator members(attr.access->iterate(attr, obj, nullptr));
    for (char const* separator = ""; members; ++members) {
      std::string const key = members.key()->gnmiStrRep();
      Ptr<GenericIf const> const member = members.ptr();
      if (!member) continue; // gone while its key was printed
      out += std::exchange(separator, ",");
      appendText(out, key);
      out += ':';
      attr.isPointer ? appendText(out, member->strRep()) : append(out, *member);
    }
    out += '}';
    return true;
  }
  Ptr<GenericIf const> const value = attr.access->get(attr, *obj, nullptr);
  if (!value || value->type().isCollectionControl()) return false;
  attr.isPointer ? appendText(out, value->strRep()) : append(out, *value);
  return true;
}

void appendObject(std::string& out, GenericIf const& value, TypeDesc const& type) {
  Ptr<GenericIf const> const self(&value);
  out += '{';
  bool first = true;
  for (auto const& attr : type.attrs) {
    std::size_t const before = out.size();
    if (!first) out += ',';
    appendText(out, attr->name);
    out += ':';
    if (appendAttr(out, *attr, self))
      first = false;
    else
      out.resize(before);
  }
  out += '}';
}

void append(std::string& out, GenericIf const& value) {
  TypeDesc const& type = value.type().desc();
  if (type.hasGnmiStrRep) return appendText(out, value.gnmiStrRep());
  switch (type.kind) {
  case TypeKind::Builtin: return appendBuiltin(out, value, type);
  case TypeKind::Enum: return appendText(out, value.gnmiStrRep());
  case TypeKind::Nominal:
  case TypeKind::Union: {
    AttrDesc const* const attr =
        type.kind == TypeKind::Union ? type.activeAlternative(type, value.data()) : type.attrs.front().get();
    Ptr<GenericIf const> const inner = attr == nullptr ? nullptr : attr->access->get(*attr, value, nullptr);
    if (inner)
      append(out, *inner);
    else
      out += "null";
    return;
  }
  case TypeKind::Array: {
    out += '[';
    std::size_t const size = type.arrayOps->size(value.data());
    for (std::size_t i = 0; i < size; ++i) {
      if (i != 0) out += ',';
      append(out, *type.arrayOps->at(*type.elementType, value.data(), i));
    }
    out += ']';
    return;
  }
  case TypeKind::KeyPtr: return appendText(out, value.strRep());
  case TypeKind::Struct:
  case TypeKind::Entity:
  case TypeKind::Object:
  case TypeKind::CollectionControl: return appendObject(out, value, type);
  }
}

} // namespace

std::string toJson(GenericIf const& value) {
  std::string out;
  append(out, value);
  return out;
}

std::optional<std::string> attrToJson(AttrDesc const& attr, Ptr<GenericIf const> const& obj) {
  std::string out;
  if (!appendAttr(out, attr, obj)) return std::nullopt;
  return out;
}

} // namespace Kel::Impl
