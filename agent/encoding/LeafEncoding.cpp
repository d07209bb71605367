// Which numbers are written as strings, which names get their module, and how keys are written from their
// texts.
#include "agent/encoding/LeafEncoding.h"
#include "Kel/Attr.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <utility>

#include <absl/strings/escaping.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/encoding/LeafValue.h"

namespace Agent {

using gnmi::TypedValue;

namespace {

bool isWide(Kel::KelType type) {
  return type.isBuiltin() &&
         (type.builtinKind() == Kel::BuiltinKind::U64 || type.builtinKind() == Kel::BuiltinKind::S64);
}

bool isEnumerator(Kel::KelType type, std::string_view name) {
  if (!type.isEnum()) return false;
  auto const& all = type.enumerators();
  return std::any_of(all.begin(), all.end(), [&](auto const& each) { return each.name.view() == name; });
}

// Whether a name of the leaf is an identity, and not just a text that a union allows too.
bool isIdentityName(LeafInfo const& leaf, std::string_view name) {
  if (leaf.type == LeafType::Identity) return true;
  for (Kel::KelTypeBase::AttributeQIterator alternative(leaf.held); alternative; ++alternative)
    if (isEnumerator((*alternative).memberType(), name)) return true;
  return false;
}

void appendDecimal(std::string& to, double number, int digits, bool isText) {
  if (!std::isfinite(number)) {
    to += "null";
    return;
  }
  if (isText) to += '"';
  fmt::format_to(std::back_inserter(to), FMT_STRING("{:.{}f}"), number, digits);
  for (; digits > 1 && to.back() == '0'; --digits)
    to.pop_back(); // canonical: no zeros behind but the first digit
  if (isText) to += '"';
}

} // namespace

bool isNumberText(LeafInfo const& leaf) {
  switch (leaf.type) {
  case LeafType::Int64:
  case LeafType::Uint64:
  case LeafType::Decimal64: return true;
  case LeafType::Union:
    for (Kel::KelTypeBase::AttributeQIterator alternative(leaf.held); alternative; ++alternative)
      if (isWide((*alternative).memberType())) return true;
    return false;
  case LeafType::String:
  case LeafType::Boolean:
  case LeafType::Uint8:
  case LeafType::Uint16:
  case LeafType::Uint32:
  case LeafType::Enumeration:
  case LeafType::Identity:
  case LeafType::Int8:
  case LeafType::Int16:
  case LeafType::Int32:
  case LeafType::Bits:
  case LeafType::Empty:
  case LeafType::Binary:
  case LeafType::InstanceIdentifier: break;
  }
  return false;
}

bool isEncodingSupported(gnmi::Encoding encoding) {
  return encoding == gnmi::JSON || encoding == gnmi::JSON_IETF || encoding == gnmi::PROTO;
}

void appendJsonString(std::string& to, std::string_view text) {
  if (!isPlainJsonText(text)) {
    to += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return;
  }
  to += '"';
  to += text;
  to += '"';
}

void appendNameJson(std::string& to, std::string_view name, LeafInfo const& leaf, bool isIetf) {
  bool const isQualified = isIetf && !leaf.identityModule.empty() &&
                           (leaf.type == LeafType::Identity || leaf.type == LeafType::Union) &&
                           isIdentityName(leaf, name);
  if (!isQualified) return appendJsonString(to, name);
  to += '"';
  to += leaf.identityModule;
  to += ':';
  to += name; // a name of the model: nothing to escape
  to += '"';
}

void appendLeafJson(std::string& to, TypedValue const& value, LeafInfo const& leaf, bool isIetf) {
  if (leaf.keyMembers != nullptr && value.has_string_val())
    return appendKeyJson(to, value.string_val(), leaf, isIetf);
  if (leaf.members != nullptr && !value.has_leaflist_val()) {
    LeafInfo const* const member = memberOf(leaf, value);
    static LeafInfo const text;
    return appendLeafJson(to, value, member == nullptr ? text : *member, isIetf);
  }
  switch (value.value_case()) {
  case TypedValue::kStringVal:
    if (leaf.type == LeafType::Decimal64 && !isIetf) {
      to += value.string_val(); // canonical: a number of JSON
      return;
    }
    if (leaf.type == LeafType::Empty) { // of a union
      to += isIetf ? "[null]" : "true";
      return;
    }
    return appendNameJson(to, value.string_val(), leaf, isIetf);
  case TypedValue::kUintVal: return appendNumber(to, value.uint_val(), isIetf && isNumberText(leaf));
  case TypedValue::kIntVal: return appendNumber(to, value.int_val(), isIetf && isNumberText(leaf));
  case TypedValue::kBoolVal:
    to += isIetf && leaf.type == LeafType::Empty ? "[null]" : value.bool_val() ? "true" : "false";
    return;
  case TypedValue::kBytesVal: {
    std::string text;
    absl::Base64Escape(value.bytes_val(), &text);
    to += '"';
    to += text;
    to += '"';
    return;
  }
  case TypedValue::kDoubleVal:
    return appendDecimal(to, value.double_val(), leaf.fractionDigits, isIetf && isNumberText(leaf));
  case TypedValue::kLeaflistVal: {
    to += '[';
    bool isFirst = true;
    for (TypedValue const& element : value.leaflist_val().element()) {
      if (!std::exchange(isFirst, false)) to += ',';
      appendLeafJson(to, element, leaf, isIetf);
    }
    to += ']';
    return;
  }
  case TypedValue::VALUE_NOT_SET: // a union that holds nothing
  case TypedValue::kFloatVal:     // no leaf of the model holds one of these
  case TypedValue::kDecimalVal:
  case TypedValue::kAnyVal:
  case TypedValue::kJsonVal:
  case TypedValue::kJsonIetfVal:
  case TypedValue::kAsciiVal:
  case TypedValue::kProtoBytes: to += "null";
  }
}

void appendKeyJson(std::string& to, std::string_view text, LeafInfo const& leaf, bool isIetf) {
  if (leaf.keyMembers != nullptr)
    if (LeafInfo const* const member = keyMemberOf(*leaf.keyMembers, text))
      return appendKeyJson(to, text, *member, isIetf);
  switch (leaf.type) {
  case LeafType::Int64:
  case LeafType::Uint64:
    if (isIetf) break;
    [[fallthrough]];
  case LeafType::Int8:
  case LeafType::Int16:
  case LeafType::Int32:
  case LeafType::Uint8:
  case LeafType::Uint16:
  case LeafType::Uint32:
  case LeafType::Boolean: to += text; return; // canonical: the model's own text
  case LeafType::Decimal64:
    if (isIetf) break;
    to += text;
    return;
  case LeafType::String:
  case LeafType::Enumeration:
  case LeafType::Identity:
  case LeafType::Union:
  case LeafType::Bits:
  case LeafType::Empty:
  case LeafType::Binary:
  case LeafType::InstanceIdentifier: break;
  }
  appendNameJson(to, text, leaf, isIetf);
}

namespace {

// What a text stands for.
void toldIs(TypedValue& value, LeafInfo const& leaf) {
  if (value.has_leaflist_val())
    for (TypedValue& element : *value.mutable_leaflist_val()->mutable_element())
      toldIs(element, leaf);
  if (!value.has_string_val()) return;
  std::string const text = value.string_val();
  LeafInfo const* const member = leaf.keyMembers != nullptr ? keyMemberOf(*leaf.keyMembers, text)
                                 : leaf.members != nullptr  ? memberOf(leaf, value)
                                                            : &leaf;
  if (member == nullptr) return;
  if (leaf.keyMembers != nullptr)
    if (LeafValue meant = keyValueOf(*member, text)) value = *std::move(meant);
  if (member->type == LeafType::Decimal64) {
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    value.set_double_val(number);
  } else if (member->type == LeafType::Empty) {
    value.set_bool_val(true);
  } else if (std::string bytes; member->type == LeafType::Binary && absl::Base64Unescape(text, &bytes)) {
    value.set_bytes_val(std::move(bytes));
  }
}

} // namespace

void leafEncodingIs(TypedValue& value, LeafInfo const& leaf, gnmi::Encoding encoding) {
  if (encoding == gnmi::PROTO && Impl::isToldOtherwise(leaf)) toldIs(value, leaf);
  if (encoding == gnmi::PROTO) return;
  bool const isIetf = encoding == gnmi::JSON_IETF;
  TOVAK_ASSERT(isIetf || encoding == gnmi::JSON, Tovak::Platform::getDebugHandler("OndraAgent", false),
               "no leaf can be written in encoding {}", static_cast<int>(encoding));
  std::string text;
  appendLeafJson(text, value, leaf, isIetf);
  if (isIetf)
    *value.mutable_json_ietf_val() = std::move(text);
  else
    *value.mutable_json_val() = std::move(text);
}

} // namespace Agent
