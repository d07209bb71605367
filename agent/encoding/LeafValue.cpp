// Typed values and JSON share the makers at the top; unions try their alternatives in turn, leaf-lists go
// element by element.
#include "agent/encoding/LeafValue.h"
#include "Kel/Attr.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>

#include <absl/container/flat_hash_set.h>
#include <absl/strings/escaping.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Agent {

using gnmi::TypedValue;
using nlohmann::json;

namespace {

constexpr std::size_t kShownBytes = 64; // of a client's text in an error

LeafValue wrong(LeafInfo const& leaf, std::string_view found) {
  LeafInfo one = leaf;
  one.isLeafList = false;
  return Kstd::Err(fmt::format("expected a value of type {}; found {}", leafTypeText(one), found));
}

std::string quotedText(std::string_view text) {
  return text.size() <= kShownBytes ? fmt::format("'{}'", text)
                                    : fmt::format("'{}...'", text.substr(0, kShownBytes));
}

std::uint64_t maxOf(LeafType type) {
  switch (type) {
  case LeafType::Uint8: return std::numeric_limits<std::uint8_t>::max();
  case LeafType::Uint16: return std::numeric_limits<std::uint16_t>::max();
  case LeafType::Uint32: return std::numeric_limits<std::uint32_t>::max();
  case LeafType::Uint64: return std::numeric_limits<std::uint64_t>::max();
  case LeafType::String:
  case LeafType::Boolean:
  case LeafType::Decimal64:
  case LeafType::Enumeration:
  case LeafType::Identity:
  case LeafType::Union:
  case LeafType::Int8:
  case LeafType::Int16:
  case LeafType::Int32:
  case LeafType::Int64:
  case LeafType::Bits:
  case LeafType::Empty:
  case LeafType::Binary:
  case LeafType::InstanceIdentifier: break;
  }
  return 0;
}
bool isUnsigned(LeafType type) { return maxOf(type) != 0; }

// The largest value of a signed type; 0 of all others.
std::int64_t signedMaxOf(LeafType type) {
  return type == LeafType::Int8    ? std::numeric_limits<std::int8_t>::max()
         : type == LeafType::Int16 ? std::numeric_limits<std::int16_t>::max()
         : type == LeafType::Int32 ? std::numeric_limits<std::int32_t>::max()
         : type == LeafType::Int64 ? std::numeric_limits<std::int64_t>::max()
                                   : 0;
}
bool isSigned(LeafType type) { return signedMaxOf(type) != 0; }

// The value of a whole text, in its canonical spelling or not; none when it is no such number.
template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

LeafValue ofUnsigned(LeafInfo const& leaf, std::uint64_t number) {
  std::uint64_t const max = std::min(leaf.range.max, maxOf(leaf.type));
  if (number < leaf.range.min || number > max)
    return Kstd::Err(fmt::format("{} is out of the range {}..{}", number, leaf.range.min, max));
  TypedValue value;
  value.set_uint_val(number);
  return value;
}

LeafValue ofSigned(LeafInfo const& leaf, std::int64_t number) {
  std::int64_t const max = signedMaxOf(leaf.type);
  if (number < -max - 1 || number > max)
    return Kstd::Err(fmt::format("{} is out of the range {}..{}", number, -max - 1, max));
  TypedValue value;
  value.set_int_val(number);
  return value;
}

LeafValue ofBool(bool is) {
  TypedValue value;
  value.set_bool_val(is);
  return value;
}

LeafValue ofBytes(std::string bytes) {
  TypedValue value;
  value.set_bytes_val(std::move(bytes));
  return value;
}

LeafValue ofText(std::string_view text) {
  TypedValue value;
  value.set_string_val(text.data(), text.size());
  return value;
}

// A decimal that is held as its text, of which no digit may be lost.
bool isExact(LeafInfo const& leaf) {
  return leaf.held.isBuiltin() && leaf.held.builtinKind() == Kel::BuiltinKind::String;
}

LeafValue ofDecimal(LeafInfo const& leaf, double number) {
  constexpr double kMax = 922337203685477580.7; // of a decimal64 with one fraction digit
  if (!std::isfinite(number) || std::abs(number) > kMax) return wrong(leaf, fmt::format("{}", number));
  if (isExact(leaf)) return ofText(fmt::format("{:.{}f}", number, leaf.fractionDigits));
  TypedValue value;
  value.set_double_val(number);
  return value;
}

LeafValue ofText(LeafInfo const& leaf, std::string_view text) {
  if (auto checked = textCheck(leaf, text); !checked) return Kstd::Err(std::move(checked).error());
  return ofText(text);
}

LeafValue ofName(LeafInfo const& leaf, std::string_view text) {
  if (auto const name = enumeratorOf(leaf, text)) return ofText(*name);
  return Kstd::Err(fmt::format("{} is no value of this {}", quotedText(text), leafTypeText(leaf)));
}

template <class Value>
LeafValue scalarOf(LeafInfo const& leaf, Value const& value);

// What a union's alternative makes of a value, as a leaf of its own.
template <class Value>
LeafValue ofUnion(LeafInfo const& leaf, Value const& value) {
  if (leaf.members != nullptr) {
    for (LeafInfo const& member : *leaf.members) {
      LeafValue found = scalarOf(member, value);
      if (!found) continue;
      // A union holds bytes as the text that they are in JSON, and what is empty as an empty one.
      if (member.type == LeafType::Empty) return ofText("");
      return found->has_bytes_val() ? ofText(absl::Base64Escape(found->bytes_val())) : found;
    }
    if constexpr (std::is_same_v<Value, TypedValue>) { // as it is held: stores and ways back have it so
      if (value.has_string_val() && memberOf(leaf, value) != nullptr) return ofText(value.string_val());
    }
    return Kstd::Err(std::string("the value fits no member of this union"));
  }
  for (Kel::KelTypeBase::AttributeQIterator it(leaf.held); it; ++it) {
    LeafInfo alternative = leaf;
    alternative.held = (*it).memberType();
    alternative.type = Impl::leafTypeOf(alternative.held);
    if (LeafValue found = scalarOf(alternative, value)) return found;
  }
  return Kstd::Err(std::string("the value fits no alternative of this union"));
}

char const* nameOf(TypedValue const& value) {
  switch (value.value_case()) {
  case TypedValue::kStringVal: return "string_val";
  case TypedValue::kIntVal: return "int_val";
  case TypedValue::kUintVal: return "uint_val";
  case TypedValue::kBoolVal: return "bool_val";
  case TypedValue::kBytesVal: return "bytes_val";
  case TypedValue::kFloatVal: return "float_val";
  case TypedValue::kDoubleVal: return "double_val";
  case TypedValue::kDecimalVal: return "decimal_val";
  case TypedValue::kLeaflistVal: return "leaflist_val";
  case TypedValue::kAnyVal: return "any_val";
  case TypedValue::kJsonVal: return "json_val";
  case TypedValue::kJsonIetfVal: return "json_ietf_val";
  case TypedValue::kAsciiVal: return "ascii_val";
  case TypedValue::kProtoBytes: return "proto_bytes";
  case TypedValue::VALUE_NOT_SET: break;
  }
  return "no value";
}

// The fields are deprecated in the schema; clients go on sending them.
std::optional<double> decimalIn(TypedValue const& value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  switch (value.value_case()) {
  case TypedValue::kDoubleVal: return value.double_val();
  case TypedValue::kFloatVal: return static_cast<double>(value.float_val());
  case TypedValue::kDecimalVal:
    if (value.decimal_val().precision() > 18) return std::nullopt;
    return static_cast<double>(value.decimal_val().digits()) /
           std::pow(10.0, static_cast<double>(value.decimal_val().precision()));
  case TypedValue::kStringVal:
  case TypedValue::kIntVal:
  case TypedValue::kUintVal:
  case TypedValue::kBoolVal:
  case TypedValue::kBytesVal:
  case TypedValue::kLeaflistVal:
  case TypedValue::kAnyVal:
  case TypedValue::kJsonVal:
  case TypedValue::kJsonIetfVal:
  case TypedValue::kAsciiVal:
  case TypedValue::kProtoBytes:
  case TypedValue::VALUE_NOT_SET: break;
  }
  return std::nullopt;
#pragma GCC diagnostic pop
}

// Digits behind and before the point as they are.
std::string exactText(std::int64_t digits, std::uint32_t precision) {
  bool const isNegative = digits < 0;
  std::string text = fmt::format("{}", digits).substr(isNegative ? 1 : 0);
  if (text.size() <= precision) text.insert(0, precision + 1 - text.size(), '0');
  if (precision > 0) text.insert(text.size() - precision, ".");
  return (isNegative ? "-" : "") + text;
}

LeafValue decimalOf(LeafInfo const& leaf, TypedValue const& value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  bool const isDecimal = value.has_decimal_val() && value.decimal_val().precision() <= 18;
  if (isExact(leaf) && isDecimal)
    return ofText(exactText(value.decimal_val().digits(), value.decimal_val().precision()));
#pragma GCC diagnostic pop
  if (isExact(leaf) && value.has_string_val()) return ofText(value.string_val());
  auto const number = decimalIn(value);
  return number ? ofDecimal(leaf, *number) : wrong(leaf, nameOf(value));
}

LeafValue plainOf(LeafInfo const& leaf, TypedValue const& value) {
  auto const kind = value.value_case();
  switch (leaf.type) {
  case LeafType::String:
  case LeafType::Bits:
  case LeafType::InstanceIdentifier:
    if (kind == TypedValue::kStringVal) return ofText(leaf, value.string_val());
    if (value.has_bytes_val() ? leaf.keyMembers != nullptr
                              : leaf.isUnion && leaf.rules != nullptr && !keyTextOf(value).empty())
      return ofText(keyTextOf(value));
    break;
  case LeafType::Boolean:
    if (kind == TypedValue::kBoolVal) return value;
    break;
  case LeafType::Enumeration:
  case LeafType::Identity:
    if (kind == TypedValue::kStringVal) return ofName(leaf, value.string_val());
    break;
  case LeafType::Decimal64: return decimalOf(leaf, value);
  case LeafType::Union: return ofUnion(leaf, value);
  case LeafType::Empty:
    if (kind == TypedValue::kBoolVal && value.bool_val()) return value;
    break;
  case LeafType::Binary:
    if (kind == TypedValue::kBytesVal) return value;
    // As a key is held: stores and ways back have it so.
    if (kind == TypedValue::kStringVal && leaf.keyMembers != nullptr)
      return keyValueOf(leaf, value.string_val());
    break;
  case LeafType::Int8:
  case LeafType::Int16:
  case LeafType::Int32:
  case LeafType::Int64:
    if (kind == TypedValue::kIntVal) return ofSigned(leaf, value.int_val());
    if (kind == TypedValue::kUintVal && value.uint_val() <= static_cast<std::uint64_t>(INT64_MAX))
      return ofSigned(leaf, static_cast<std::int64_t>(value.uint_val()));
    break;
  case LeafType::Uint8:
  case LeafType::Uint16:
  case LeafType::Uint32:
  case LeafType::Uint64:
    if (kind == TypedValue::kUintVal) return ofUnsigned(leaf, value.uint_val());
    if (kind == TypedValue::kIntVal && value.int_val() >= 0)
      return ofUnsigned(leaf, static_cast<std::uint64_t>(value.int_val()));
    if (kind == TypedValue::kIntVal) return wrong(leaf, fmt::format("{}", value.int_val()));
  }
  return wrong(leaf, nameOf(value));
}

std::string shown(json const& value) {
  return value.is_structured() ? std::string(value.is_object() ? "an object" : "an array")
                               : quotedText(value.dump(-1, ' ', false, json::error_handler_t::replace));
}

LeafValue unsignedOf(LeafInfo const& leaf, json const& value) {
  if (value.is_number_unsigned()) return ofUnsigned(leaf, value.get<std::uint64_t>());
  if (value.is_string() && leaf.type == LeafType::Uint64) {
    if (auto const number = numberIn<std::uint64_t>(value.get_ref<std::string const&>()))
      return ofUnsigned(leaf, *number);
  }
  return wrong(leaf, shown(value));
}

LeafValue signedOf(LeafInfo const& leaf, json const& value) {
  if (value.is_number_integer() && !(value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX))
    return ofSigned(leaf, value.get<std::int64_t>());
  if (value.is_string() && leaf.type == LeafType::Int64) {
    if (auto const number = numberIn<std::int64_t>(value.get_ref<std::string const&>()))
      return ofSigned(leaf, *number);
  }
  return wrong(leaf, shown(value));
}

LeafValue bytesOf(LeafInfo const& leaf, json const& value) {
  std::string bytes;
  if (value.is_string() && absl::Base64Unescape(value.get_ref<std::string const&>(), &bytes))
    return ofBytes(std::move(bytes));
  return wrong(leaf, shown(value));
}

LeafValue decimalOf(LeafInfo const& leaf, json const& value) {
  if (isExact(leaf) && value.is_string()) return ofText(value.get_ref<std::string const&>());
  if (isExact(leaf) && value.is_number_integer()) return ofText(value.dump());
  if (isExact(leaf) && value.is_number()) {
    std::string const shortest = fmt::format("{}", value.get<double>());
    bool const isPlain = shortest.find_first_not_of("-.0123456789") == shortest.npos;
    return isPlain ? ofText(shortest) : ofDecimal(leaf, value.get<double>());
  }
  if (value.is_number()) return ofDecimal(leaf, value.get<double>());
  if (value.is_string()) {
    std::string const& text = value.get_ref<std::string const&>();
    auto const number = numberIn<double>(text);
    bool const isDecimal = text.find_first_not_of("+-.0123456789") == text.npos; // no exponents, no names
    if (number && isDecimal) return ofDecimal(leaf, *number);
  }
  return wrong(leaf, shown(value));
}

LeafValue plainOf(LeafInfo const& leaf, json const& value) {
  switch (leaf.type) {
  case LeafType::String:
  case LeafType::Bits:
  case LeafType::InstanceIdentifier:
    if (value.is_string()) return ofText(leaf, value.get_ref<std::string const&>());
    if (leaf.isUnion && leaf.rules != nullptr && value.is_primitive()) return ofText(value.dump());
    break;
  case LeafType::Boolean:
    if (value.is_boolean()) return ofBool(value.get<bool>());
    break;
  case LeafType::Empty: // as RFC 7951 has it, or as it is told in plain JSON
    if (value.is_array() && value.size() == 1 && value.front().is_null()) return ofBool(true);
    if (value.is_boolean() && value.get<bool>()) return ofBool(true);
    break;
  case LeafType::Binary: return bytesOf(leaf, value);
  case LeafType::Enumeration:
  case LeafType::Identity:
    if (value.is_string()) return ofName(leaf, value.get_ref<std::string const&>());
    break;
  case LeafType::Decimal64: return decimalOf(leaf, value);
  case LeafType::Union: return ofUnion(leaf, value);
  case LeafType::Int8:
  case LeafType::Int16:
  case LeafType::Int32:
  case LeafType::Int64: return signedOf(leaf, value);
  case LeafType::Uint8:
  case LeafType::Uint16:
  case LeafType::Uint32:
  case LeafType::Uint64: return unsignedOf(leaf, value);
  }
  return wrong(leaf, shown(value));
}

// A value that fits its type becomes as its rules have it: texts in their canonical form.
void ruledIs(LeafInfo const& leaf, LeafValue& value) {
  if (!value || leaf.rules == nullptr) return;
  auto text = leaf.rules->canonical(keyTextOf(*value));
  if (!text)
    value = Kstd::Err(std::move(text).error());
  else if (value->has_string_val())
    *value->mutable_string_val() = *std::move(text);
}

template <class Value>
LeafValue scalarOf(LeafInfo const& leaf, Value const& given) {
  LeafValue value = plainOf(leaf, given);
  ruledIs(leaf, value);
  return value;
}

template <class Elements>
LeafValue listOf(LeafInfo const& leaf, Elements const& elements) {
  LeafInfo member = leaf;
  member.isLeafList = false;
  TypedValue list;
  list.mutable_leaflist_val();
  absl::flat_hash_set<std::string> known;
  for (auto const& element : elements) {
    LeafValue value = scalarOf(member, element);
    if (!value) return value;
    if (leaf.isConfig && !known.insert(keyTextOf(*value)).second)
      return Kstd::Err(fmt::format("{} is there twice", quotedText(keyTextOf(*value))));
    *list.mutable_leaflist_val()->add_element() = std::move(*value);
  }
  return list;
}

} // namespace

LeafInfo const* memberOf(LeafInfo const& leaf, TypedValue const& value) {
  for (LeafInfo const& member : *leaf.members) {
    bool const isText = value.has_string_val();
    bool const isTaken = member.type == LeafType::Empty ? isText && value.string_val().empty()
                         : member.type == LeafType::Binary
                             ? isText && scalarOf(member, json(value.string_val())).ok()
                             : scalarOf(member, value).ok();
    if (isTaken) return &member;
  }
  return nullptr;
}

LeafValue leafValueOf(LeafInfo const& leaf, TypedValue const& value) {
  TOVAK_ASSERT(!value.has_json_val() && !value.has_json_ietf_val(),
               Tovak::Platform::getDebugHandler("OndraAgent", false), "JSON is given as a typed value");
  if (!leaf.isLeafList) return scalarOf(leaf, value);
  if (value.has_leaflist_val()) return listOf(leaf, value.leaflist_val().element());
  return Kstd::Err(fmt::format("expected a leaflist_val; found {}", nameOf(value)));
}

LeafValue leafValueOf(LeafInfo const& leaf, json const& value) {
  if (!leaf.isLeafList) return scalarOf(leaf, value);
  if (value.is_array()) return listOf(leaf, value);
  return Kstd::Err(fmt::format("expected an array; found {}", shown(value)));
}

Kstd::Result<void, std::string> textCheck(LeafInfo const& leaf, std::string_view text) {
  return leaf.text == nullptr ? Kstd::Result<void, std::string>() : leaf.text->check(text);
}

namespace {

// Whether keys of that type are texts with a value behind them, which may be spelt in other ways.
bool hasKeyValue(LeafType type) {
  return isUnsigned(type) || isSigned(type) || type == LeafType::Boolean || type == LeafType::Enumeration ||
         type == LeafType::Identity || type == LeafType::Binary;
}

// The key itself is held as its text, what repeats it as its bytes.
LeafValue binaryKeyOf(LeafInfo const& leaf, std::string_view text) {
  std::string bytes;
  if (!absl::Base64Unescape(std::string(text), &bytes)) return wrong(leaf, quotedText(text));
  return leaf.keyMembers != nullptr ? ofText(absl::Base64Escape(bytes)) : ofBytes(std::move(bytes));
}

// What repeats a key that is a union is one itself.
LeafValue unionKeyOf(LeafInfo const& leaf, std::string_view text) {
  LeafInfo const* const member = keyMemberOf(*leaf.members, text);
  LeafValue value = member == nullptr ? wrong(leaf, quotedText(text)) : keyValueOf(*member, text);
  return value && value->has_bytes_val() ? ofText(keyTextOf(*value)) : value;
}

LeafValue plainKeyOf(LeafInfo const& leaf, std::string_view text) {
  if (leaf.members != nullptr) return unionKeyOf(leaf, text);
  if (isUnsigned(leaf.type)) {
    auto const number = numberIn<std::uint64_t>(text);
    return number ? ofUnsigned(leaf, *number) : wrong(leaf, quotedText(text));
  }
  if (isSigned(leaf.type)) {
    auto const number = numberIn<std::int64_t>(text);
    return number ? ofSigned(leaf, *number) : wrong(leaf, quotedText(text));
  }
  if (leaf.type == LeafType::Boolean)
    return text == "true" || text == "false" ? ofBool(text == "true") : wrong(leaf, quotedText(text));
  if (leaf.type == LeafType::Binary) return binaryKeyOf(leaf, text);
  return hasKeyValue(leaf.type) ? ofName(leaf, text) : ofText(text);
}

} // namespace

LeafInfo const* keyMemberOf(std::vector<LeafInfo> const& members, std::string_view text) {
  auto const found =
      std::ranges::find_if(members, [text](LeafInfo const& member) { return keyTextOf(member, text).ok(); });
  return found == members.end() ? nullptr : &*found;
}

LeafValue keyValueOf(LeafInfo const& leaf, std::string_view text) {
  LeafValue value = plainKeyOf(leaf, text);
  ruledIs(leaf, value);
  return value;
}

Kstd::Result<std::string, std::string> keyTextOf(LeafInfo const& leaf, std::string_view text) {
  if (!hasKeyValue(leaf.type) && leaf.rules != nullptr) return leaf.rules->canonical(text);
  if (!hasKeyValue(leaf.type)) return std::string(text);
  LeafValue value = keyValueOf(leaf, text);
  if (!value) return Kstd::Err(std::move(value).error());
  return keyTextOf(*value);
}

std::string keyTextOf(TypedValue const& value) {
  switch (value.value_case()) {
  case TypedValue::kUintVal: return fmt::format("{}", value.uint_val());
  case TypedValue::kIntVal: return fmt::format("{}", value.int_val());
  case TypedValue::kBoolVal: return value.bool_val() ? "true" : "false";
  case TypedValue::kDoubleVal: return fmt::format("{}", value.double_val());
  case TypedValue::kStringVal: return value.string_val();
  case TypedValue::kBytesVal: return absl::Base64Escape(value.bytes_val());
  case TypedValue::kFloatVal: // no key is one of these
  case TypedValue::kDecimalVal:
  case TypedValue::kLeaflistVal:
  case TypedValue::kAnyVal:
  case TypedValue::kJsonVal:
  case TypedValue::kJsonIetfVal:
  case TypedValue::kAsciiVal:
  case TypedValue::kProtoBytes:
  case TypedValue::VALUE_NOT_SET: break;
  }
  return {};
}

} // namespace Agent
