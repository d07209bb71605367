// The rules of registration: what a type must keep so that its objects can be read, addressed and set without
// ambiguity.

#include <absl/strings/ascii.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>

#include "Kel/TypeBuilder.h"

namespace Kel::Impl {

std::optional<std::string_view> unfitAsKey(TypeDesc const& key) {
  if (key.isEntity() || key.kind == TypeKind::KeyPtr) return std::nullopt;
  if (key.hasGnmiByteRep) return "a type with a byte representation cannot be a key";
  if (key.kind == TypeKind::Union) return "a union cannot be a key";
  if (!key.isValueType || key.kind == TypeKind::Array)
    return "a key must be a scalar, a reference or a value type";
  if (key.kind != TypeKind::Struct || key.hasGnmiStrRep) return std::nullopt;
  for (auto const& field : key.attrs) {
    if (field->isCollection) return "a key must not hold collections";
    if (auto const reason = unfitAsKey(*field->memberType)) return reason;
  }
  return std::nullopt;
}

namespace {

using Broken = std::optional<std::string>;

constexpr std::size_t kMostAttributes = UINT16_MAX; // as positions go

Broken broken(TypeDesc const& type, AttrDesc const& attr, std::string_view rule) {
  return fmt::format("type '{}', attribute '{}': {}", type.name.view(), attr.name.view(), rule);
}

Broken broken(TypeDesc const& type, std::string_view rule) {
  return fmt::format("type '{}': {}", type.name.view(), rule);
}

// Types still being declared are known by what the language tells: entities by their kind.
bool known(TypeDesc const& owner, TypeDesc const& member) { return member.complete || &member == &owner; }

bool isNameCharacter(char c) {
  return absl::ascii_isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.';
}

Broken checkName(TypeDesc const& type, AttrDesc const& attr) {
  std::string_view const name = attr.name.view();
  if (name.empty()) return broken(type, attr, "a name must not be empty");
  // What a path's text takes for the name of an element and of a key.
  if (!absl::ascii_isalpha(static_cast<unsigned char>(name.front())) && name.front() != '_')
    return broken(type, attr, "a name must begin with a letter");
  if (!std::all_of(name.begin(), name.end(), isNameCharacter))
    return broken(type, attr, "a name consists of letters, digits, '-', '_' and '.'");
  if (name.find("__") != std::string_view::npos)
    return broken(type, attr, "a name must not contain '__', which separates key fields");
  if (name.front() == '_' || name.back() == '_')
    return broken(type, attr, "a name must not begin or end with '_'");
  return std::nullopt;
}

Broken checkUnique(TypeDesc const& type) {
  std::set<std::string_view> names;
  std::set<AttributeId> ids;
  for (auto const& attr : type.attrs) {
    if (!names.insert(attr->name.view()).second)
      return broken(type, *attr, "another attribute has the same name");
    if (attr->id <= 0)
      return broken(type, *attr, "an id must be positive, because notifications carry it with either sign");
    if (!ids.insert(attr->id).second)
      return broken(type, *attr, fmt::format("another attribute has the id {}", attr->id));
  }
  return std::nullopt;
}

// A member repeats the fields of a structured key as they are.
Broken checkKeyFields(TypeDesc const& type, AttrDesc const& attr) {
  TypeDesc const& key = *attr.keyType;
  if (key.kind != TypeKind::Struct || key.hasGnmiStrRep) return std::nullopt;
  for (auto const& member : attr.memberType->attrs) {
    AttrDesc const* const field = member->isKeyField ? key.attrByName(member->name.view()) : nullptr;
    if (field != nullptr && field->memberType != member->memberType) {
      return broken(type, attr,
                    fmt::format("the field '{}' of its key is of type '{}', and of type '{}' in the member",
                                field->name.view(), field->memberType->name.view(),
                                member->memberType->name.view()));
    }
  }
  return std::nullopt;
}

Broken checkKeyed(TypeDesc const& type, AttrDesc const& attr) {
  if (!attr.keyType->complete && !attr.keyType->isEntity())
    return broken(type, attr, "its key type is not declared yet");
  if (auto const reason = unfitAsKey(*attr.keyType)) return broken(type, attr, *reason);
  if (attr.indexName.empty()) return checkKeyFields(type, attr);
  if (!known(type, *attr.memberType)) return broken(type, attr, "its member type is not declared yet");
  AttrDesc const* index = nullptr;
  for (auto const& member : attr.memberType->attrs)
    if (member->name == attr.indexName) index = member.get();
  if (index == nullptr) {
    return broken(type, attr,
                  fmt::format("the member type '{}' has no attribute '{}' to be the key",
                              attr.memberType->name.view(), attr.indexName.view()));
  }
  if (!index->isKeyField) {
    return broken(type, attr,
                  fmt::format("the key attribute '{}' of '{}' lacks the key-field mark",
                              attr.indexName.view(), attr.memberType->name.view()));
  }
  if (index->memberType != attr.keyType) {
    return broken(type, attr,
                  fmt::format("it is keyed by '{}', but the key attribute '{}' is of type '{}'",
                              attr.keyType->name.view(), attr.indexName.view(),
                              index->memberType->name.view()));
  }
  return std::nullopt;
}

Broken checkAttr(TypeDesc const& type, AttrDesc const& attr) {
  if (auto error = checkName(type, attr)) return error;
  if (attr.isOperation) return std::nullopt;
  bool const entity = attr.memberType->isEntity();
  if (attr.isInstantiating && type.isValueType) return broken(type, attr, "a value type cannot own entities");
  if (attr.isInstantiating && !entity) return broken(type, attr, "an instantiating attribute holds entities");
  if (entity && !attr.isInstantiating && !attr.isPointer) {
    return broken(type, attr,
                  "an entity is held by reference or by an instantiating attribute, never plainly");
  }
  if (!entity && !known(type, *attr.memberType))
    return broken(type, attr, fmt::format("its type '{}' is not declared yet", attr.memberType->name.view()));
  if (!entity && !attr.isCollection && attr.memberType == &type)
    return broken(type, attr, "a value holds others of its own type in collections, never plainly");
  if (attr.isArray && attr.isOptional) return broken(type, attr, "an array is empty, never without value");
  if (attr.isKeyField && attr.isSettable && type.isEntity())
    return broken(type, attr, "a key attribute cannot be settable");
  if (attr.isKeyed) return checkKeyed(type, attr);
  return std::nullopt;
}

// --- unions: an earlier alternative must not take what a later one sends --------------------------------

enum class Wire { Text, Signed, Unsigned, Bool, Double, Bytes, Json };

// What a scalar is sent as.
Wire sentAs(TypeDesc const& type) {
  if (type.hasGnmiByteRep) return Wire::Bytes;
  if (type.hasGnmiStrRep || type.kind == TypeKind::Enum) return Wire::Text;
  if (type.kind == TypeKind::Nominal) return sentAs(*type.attrs.front()->memberType);
  switch (type.builtin) {
  case BuiltinKind::String: return Wire::Text;
  case BuiltinKind::Bool: return Wire::Bool;
  case BuiltinKind::Float:
  case BuiltinKind::Double: return Wire::Double;
  case BuiltinKind::Bytes: return Wire::Bytes;
  case BuiltinKind::JsonString: return Wire::Json;
  case BuiltinKind::S8:
  case BuiltinKind::S16:
  case BuiltinKind::S32:
  case BuiltinKind::S64:
  case BuiltinKind::Seconds: return Wire::Signed;
  case BuiltinKind::U8:
  case BuiltinKind::U16:
  case BuiltinKind::U32:
  case BuiltinKind::U64:
  case BuiltinKind::Char:
  case BuiltinKind::Time: return Wire::Unsigned;
  case BuiltinKind::None: break; // no scalar: refused as an alternative before
  }
  return Wire::Unsigned;
}

TypeDesc const& unwrapped(TypeDesc const& type) {
  return type.kind == TypeKind::Nominal ? *type.attrs.front()->memberType : type;
}

bool shareAName(TypeDesc const& a, TypeDesc const& b) {
  return std::any_of(a.enumerators.begin(), a.enumerators.end(), [&b](Enumerator const& mine) {
    return std::any_of(b.enumerators.begin(), b.enumerators.end(),
                       [&mine](Enumerator const& other) { return other.name == mine.name; });
  });
}

bool takesWhatIsSentBy(TypeDesc const& earlier, TypeDesc const& later) {
  if (sentAs(earlier) != sentAs(later)) return false;
  TypeDesc const& first = unwrapped(earlier);
  TypeDesc const& second = unwrapped(later);
  if (first.kind != TypeKind::Enum) return true;
  // An enumeration takes its own names only: a string after it gets every other text.
  return second.kind == TypeKind::Enum && shareAName(first, second);
}

bool isPlain(AttrDesc const& attr) { return !attr.isCollection && !attr.isPointer && !attr.isOptional; }

Broken checkUnion(TypeDesc const& type) {
  if (type.attrs.empty()) return broken(type, "a union has at least one alternative");
  for (std::size_t later = 0; later < type.attrs.size(); ++later) {
    TypeDesc const& alternative = *type.attrs[later]->memberType;
    if (!isPlain(*type.attrs[later]) || !alternative.isScalar() || alternative.kind == TypeKind::Union)
      return broken(type, *type.attrs[later], "an alternative of a union is a scalar and no union itself");
    for (std::size_t earlier = 0; earlier < later; ++earlier) {
      if (takesWhatIsSentBy(*type.attrs[earlier]->memberType, alternative)) {
        return broken(type, *type.attrs[later],
                      fmt::format("the earlier alternative '{}' accepts what this one sends",
                                  type.attrs[earlier]->name.view()));
      }
    }
  }
  return std::nullopt;
}

Broken checkWrapper(TypeDesc const& type) {
  if (type.attrs.size() != 1) return broken(type, "a nominal or key wrapper has exactly one attribute");
  if (type.kind == TypeKind::KeyPtr) return std::nullopt;
  TypeKind const inner = type.attrs.front()->memberType->kind;
  if (!isPlain(*type.attrs.front()) || (inner != TypeKind::Builtin && inner != TypeKind::Enum))
    return broken(type, *type.attrs.front(), "a nominal wraps a builtin or an enumeration");
  return std::nullopt;
}

Broken checkEnum(TypeDesc const& type) {
  if (type.enumerators.empty()) return broken(type, "an enumeration has at least one enumerator");
  std::set<std::string_view> names;
  std::set<std::int64_t> values;
  for (Enumerator const& one : type.enumerators)
    if (!names.insert(one.name.view()).second || !values.insert(one.value).second)
      return broken(type, fmt::format("the enumerator '{}' repeats a name or a number", one.name.view()));
  return std::nullopt;
}

} // namespace

std::optional<std::string> brokenRule(TypeDesc const& type) {
  if (type.name.empty()) return "a type must have a name";
  if (type.attrs.size() > kMostAttributes)
    return broken(type, fmt::format("a type has at most {} attributes", kMostAttributes));
  for (auto const& attr : type.attrs)
    if (auto error = checkAttr(type, *attr)) return error;
  if (auto error = checkUnique(type)) return error;
  switch (type.kind) {
  case TypeKind::Union: return checkUnion(type);
  case TypeKind::Nominal:
  case TypeKind::KeyPtr: return checkWrapper(type);
  case TypeKind::Enum: return checkEnum(type);
  case TypeKind::Builtin:
  case TypeKind::Struct:
  case TypeKind::Array:
  case TypeKind::Entity:
  case TypeKind::Object:
  case TypeKind::CollectionControl: break;
  }
  return std::nullopt;
}

} // namespace Kel::Impl
