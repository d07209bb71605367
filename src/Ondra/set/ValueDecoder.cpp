// gNMI values become values of the model. Pure: reads the request and the types, writes nothing. Ranges are
// not checked here: a number that is too large for its type is the host's to refuse.
#include <bit>
#include <ostream>

#include "Kel/Scalars.h"
#include "Ondra/AttrTree.h"
#include "Ondra/GnmiUtils.h"
#include "Ondra/rules/KeyText.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

using gnmi::TypedValue;
using Kel::BuiltinKind;
using Kel::KelType;
using ValueOrText = AttrTree::ValueOrText;

namespace {

// Which gNMI field carries a builtin; the exact inverse of how it is sent. Durations travel as signed, points
// in time and characters as unsigned numbers.
enum class Family : std::uint8_t { None, String, Signed, Unsigned, Bool, Float, Double };

Family familyOf(KelType type) {
  if (!type.isBuiltin()) return Family::None;
  switch (type.builtinKind()) {
  case BuiltinKind::String: return Family::String;
  case BuiltinKind::S8:
  case BuiltinKind::S16:
  case BuiltinKind::S32:
  case BuiltinKind::S64:
  case BuiltinKind::Seconds: return Family::Signed;
  case BuiltinKind::U8:
  case BuiltinKind::U16:
  case BuiltinKind::U32:
  case BuiltinKind::U64:
  case BuiltinKind::Char:
  case BuiltinKind::Time: return Family::Unsigned;
  case BuiltinKind::Bool: return Family::Bool;
  case BuiltinKind::Float: return Family::Float;
  case BuiltinKind::Double: return Family::Double;
  case BuiltinKind::Bytes:
  case BuiltinKind::JsonString:
  case BuiltinKind::None: break;
  }
  return Family::None;
}

ValueOrText mismatch(KelType type, char const* found) {
  return Kstd::Err(fmt::format("Expected '{}'; found '{}'", type.name().view(), found));
}

ValueOrText fromSigned(KelType type, std::int64_t value) {
  if (type.builtinKind() == BuiltinKind::Seconds) return Kel::handleOf(Kel::Seconds::fromNanoseconds(value));
  return type.genericIf(&value);
}

ValueOrText fromUnsigned(KelType type, std::uint64_t value) {
  if (type.builtinKind() == BuiltinKind::Time) return Kel::handleOf(Kel::Time::fromNanoseconds(value));
  if (type.builtinKind() == BuiltinKind::Char) return Kel::handleOf(static_cast<char>(value));
  return type.genericIf(&value);
}

ValueOrText fromString(KelType type, std::string const& text) {
  if (familyOf(type) == Family::String) {
    // The text form of a string is the text between quotation marks, which are stripped again: the value is
    // made at once.
    return Kel::handleOf(Kel::String(text));
  }
  return type.isEnum() ? AttrTree::enumFromStrRep(type, text) : mismatch(type, "string");
}

ValueOrText fromBytes(KelType type, std::string const& bytes) {
  if (familyOf(type) != Family::Double) return mismatch(type, "bytes_val");
  auto const value = KelGnmiUtils::decodeDoubleVal(bytes);
  if (!value) return Kstd::Err(std::string("Error in interpreting 'bytes_val' as 'double'"));
  return Kel::handleOf(*value);
}

// The field is deprecated in the schema; clients go on sending it.
float floatOf(TypedValue const& value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return value.float_val();
#pragma GCC diagnostic pop
}

// A value of a builtin or enumeration, or the text of what does not fit.
ValueOrText fromField(KelType type, TypedValue const& value) {
  Family const family = familyOf(type);
  switch (value.value_case()) {
  case TypedValue::kStringVal: return fromString(type, value.string_val());
  case TypedValue::kIntVal:
    return family == Family::Signed ? fromSigned(type, value.int_val()) : mismatch(type, "int");
  case TypedValue::kUintVal:
    return family == Family::Unsigned ? fromUnsigned(type, value.uint_val()) : mismatch(type, "unsigned int");
  case TypedValue::kBoolVal:
    return family == Family::Bool ? ValueOrText(Kel::handleOf(value.bool_val())) : mismatch(type, "bool");
  case TypedValue::kBytesVal: return fromBytes(type, value.bytes_val());
  case TypedValue::kFloatVal:
    return family == Family::Float ? ValueOrText(Kel::handleOf(floatOf(value))) : mismatch(type, "float");
  case TypedValue::kDoubleVal:
    return family == Family::Double ? ValueOrText(Kel::handleOf(value.double_val()))
                                    : mismatch(type, "double");
  default: return Kstd::Err(fmt::format("'{}' is not supported", value.DebugString()));
  }
}

} // namespace

std::ostream& operator<<(std::ostream& out, SetOp const& op) {
  switch (op) {
  case SetOp::Delete: return out << "Delete";
  case SetOp::Replace: return out << "Replace";
  case SetOp::Update: return out << "Update";
  }
  return out;
}

AttrTree::TypeKind AttrTree::getTypeKind(KelType type) {
  bool const scalar =
      type.isUnion() || type.isEnum() || type.isBuiltin() || type.valAttr() || type.hasGnmiStrRep();
  return scalar ? TypeKind::Scalar : TypeKind::Composite;
}

ValueOrText AttrTree::gnmiToKelValue(KelType type, TypedValue const& value) {
  if (type.isBuiltin()) [[likely]]
    return fromField(type, value);
  if (Kel::KelAttr const inner = type.valAttr()) {
    auto decoded = gnmiToKelValue(inner.type(), value);
    if (!decoded) return decoded;
    return catchModelError([&] { return type.genericIf(Kel::ArgList{std::move(*decoded)}); });
  }
  if (type.hasGnmiStrRep()) {
    if (value.value_case() != TypedValue::kStringVal)
      return Kstd::Err(fmt::format("Expecting a string value as '{}' has gnmi strep", type.name().view()));
    return catchModelText([&] { return type.genericIfFromGnmiString(value.string_val()); });
  }
  if (type.isUnion()) return decodeUnion(type, value);
  return fromField(type, value);
}

ValueOrText AttrTree::decodeUnion(KelType type, TypedValue const& value) {
  TOVAK_ASSERT(type.isUnion(), setTrace, "Expecting kelType to be a union");
  auto whole = defaultKelObject(type);
  if (!whole) return whole;
  for (KelType::AttributeQIterator at(type); at; ++at) {
    Kel::KelAttr const alternative = *at;
    auto const decoded = gnmiToKelValue(alternative.type(), value);
    if (!decoded) continue;
    return catchModelError([&] {
      alternative.genericIfSet(*whole, nullptr, *decoded);
      return *whole;
    });
  }
  return Kstd::Err(
      fmt::format("gnmi value doesn't match any alternatives of Union type '{}'", type.name().view()));
}

std::variant<std::vector<AttrTree::Handle>, std::string> AttrTree::gnmiToGifArray(KelType type,
                                                                                  TypedValue const& value) {
  TOVAK_TRACE(setTrace, 8, "", "Creating gif objects for array elements of type '{}'", type.name().view());
  if (value.value_case() != TypedValue::kLeaflistVal)
    return std::string("Must use leaflist_val TypedValue for an array element");
  std::vector<Handle> members;
  members.reserve(static_cast<std::size_t>(value.leaflist_val().element_size()));
  for (TypedValue const& element : value.leaflist_val().element()) {
    TOVAK_TRACE(setTrace, 9, "", "Creating gif object from '{}'", element.ShortDebugString());
    auto member = gnmiToKelValue(type, element);
    if (!member) return std::move(member).error();
    members.push_back(*std::move(member));
  }
  return members;
}

ValueOrText AttrTree::enumFromStrRep(KelType type, std::string const& text) { return enumOfName(type, text); }

ValueOrText defaultKelObject(KelType type) {
  if (!type.isValueType())
    return Kstd::Err(fmt::format("Cannot create default object of non-value type {}", type.name().view()));
  return catchModelError([&] { return type.genericIf(nullptr); });
}

} // namespace Ondra::KelGnmiSet
