// Values by way of JSON in both directions. What is printed keeps no character that could control a terminal.
#include "agent/client/ValueText.h"

#include <absl/strings/escaping.h>
#include <fmt/format.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using Json = nlohmann::ordered_json;

Json parsedJson(std::string const& text) {
  Json json = Json::parse(text, nullptr, false);
  return json.is_discarded() ? Json(text) : json;
}

Json leafListJson(gnmi::ScalarArray const& array) {
  Json list = Json::array();
  for (gnmi::TypedValue const& element : array.element())
    list.push_back(valueJson(element));
  return list;
}

// Older servers send what the messages call deprecated.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

double decimal(gnmi::Decimal64 const& value) {
  double number = static_cast<double>(value.digits());
  for (std::uint32_t i = 0; i < value.precision() && i < 19; ++i)
    number /= 10;
  return number;
}

// Valid UTF-8 on one or more lines without the characters that control a terminal and that JSON does not
// escape: DEL and the range that begins with U+0080.
std::string withoutControls(std::string text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto const byte = static_cast<unsigned char>(text[i]);
    bool const isHigh = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (byte != 0x7F && !isHigh)
      result += text[i];
    else
      result += fmt::format("\\u{:04x}", isHigh ? static_cast<unsigned char>(text[++i]) : byte);
  }
  return result;
}

std::string dumped(Json const& json, int indent) {
  return withoutControls(json.dump(indent, ' ', false, Json::error_handler_t::replace));
}

} // namespace

Json valueJson(gnmi::TypedValue const& value) {
  switch (value.value_case()) {
  case gnmi::TypedValue::kStringVal: return value.string_val();
  case gnmi::TypedValue::kIntVal: return value.int_val();
  case gnmi::TypedValue::kUintVal: return value.uint_val();
  case gnmi::TypedValue::kBoolVal: return value.bool_val();
  case gnmi::TypedValue::kBytesVal: return absl::Base64Escape(value.bytes_val());
  case gnmi::TypedValue::kFloatVal: return value.float_val();
  case gnmi::TypedValue::kDoubleVal: return value.double_val();
  case gnmi::TypedValue::kDecimalVal: return decimal(value.decimal_val());
  case gnmi::TypedValue::kLeaflistVal: return leafListJson(value.leaflist_val());
  case gnmi::TypedValue::kJsonVal: return parsedJson(value.json_val());
  case gnmi::TypedValue::kJsonIetfVal: return parsedJson(value.json_ietf_val());
  case gnmi::TypedValue::kAsciiVal: return value.ascii_val();
  case gnmi::TypedValue::kProtoBytes: return absl::Base64Escape(value.proto_bytes());
  case gnmi::TypedValue::kAnyVal:
  case gnmi::TypedValue::VALUE_NOT_SET: break;
  }
  return nullptr;
}
#pragma GCC diagnostic pop

std::string printable(std::string_view text) {
  std::string const quoted = dumped(Json(text), -1);
  std::string result;
  for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
    if (quoted[i] == '\\') {
      if (quoted[i + 1] != '"') result += '\\'; // a quote needs no escape where there are no quotes
      ++i;
    }
    result += quoted[i];
  }
  return result;
}

std::string valueText(gnmi::TypedValue const& value, int indent) {
  Json const json = valueJson(value);
  return json.is_string() ? printable(json.get_ref<std::string const&>()) : dumped(json, indent);
}

Kstd::Result<gnmi::TypedValue, std::string> valueOf(std::string_view text) {
  std::string content(text);
  bool const isFile = text.starts_with('@');
  if (isFile) {
    std::ifstream file(std::string(text.substr(1)));
    std::ostringstream read;
    if (!file || !(read << file.rdbuf())) return Kstd::Err(fmt::format("cannot read {}", text.substr(1)));
    content = read.str();
  }
  if (!Json::accept(content)) {
    if (isFile) return Kstd::Err(fmt::format("{} is not JSON", text.substr(1)));
    content = Json(content).dump(-1, ' ', false, Json::error_handler_t::replace);
  }
  gnmi::TypedValue value;
  value.set_json_ietf_val(std::move(content));
  return value;
}

} // namespace Agent
