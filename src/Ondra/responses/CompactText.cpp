// Each kind of value as "name:text"; those for which there is no text here are told by their number.
#include "Ondra/CompactText.h"

#include <fmt/format.h>

#include <iterator>
#include <vector>

#include "Ondra/PathFormat.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

// The schema has replaced this field, and the library does not send it; other ends still may.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
float floatOf(gnmi::TypedValue const& value) { return value.float_val(); }
#pragma GCC diagnostic pop

Tovak::String notificationToCompactString(gnmi::Notification const& notification) {
  Tovak::String text;
  auto const out = std::back_inserter(text);
  fmt::format_to(out, "timestamp:{} prefix:{} ", notification.timestamp(), notification.prefix());
  for (int i = 0; i < notification.update_size(); ++i) {
    gnmi::Update const& update = notification.update(i);
    fmt::format_to(out, "update{} ( ", i);
    if (update.has_path()) fmt::format_to(out, "path:{} ", update.path());
    if (update.has_val()) fmt::format_to(out, "{} ", typedValueToCompactString(update.val()));
    fmt::format_to(out, ") ");
  }
  for (int i = 0; i < notification.delete__size(); ++i)
    fmt::format_to(out, "delete{} ( path:{} ) ", i, notification.delete_(i));
  return text;
}

} // namespace

Tovak::String subscribeResponseToCompactString(gnmi::SubscribeResponse const& response) {
  if (response.has_update()) return notificationToCompactString(response.update());
  return response.sync_response() ? "sync_response" : "unsupported response";
}

Tovak::String typedValueToCompactString(gnmi::TypedValue const& value) {
  switch (value.value_case()) {
  case gnmi::TypedValue::kStringVal: return fmt::format("string_val:{}", value.string_val());
  case gnmi::TypedValue::kIntVal: return fmt::format("int_val:{}", value.int_val());
  case gnmi::TypedValue::kUintVal: return fmt::format("uint_val:{}", value.uint_val());
  case gnmi::TypedValue::kBoolVal: return fmt::format("bool_val:{}", value.bool_val());
  case gnmi::TypedValue::kBytesVal: return fmt::format("bytes_val:{}", value.bytes_val());
  case gnmi::TypedValue::kFloatVal: return fmt::format("float_val:{}", floatOf(value));
  case gnmi::TypedValue::kLeaflistVal:
    return fmt::format("leaflist_val:{}", leafListToCompactString(value.leaflist_val()));
  case gnmi::TypedValue::kJsonVal: return fmt::format("json_val:{}", value.json_val());
  case gnmi::TypedValue::kJsonIetfVal: return fmt::format("json_ietf_val:{}", value.json_ietf_val());
  case gnmi::TypedValue::kAsciiVal: return fmt::format("ascii_val:{}", value.ascii_val());
  case gnmi::TypedValue::kProtoBytes: return fmt::format("proto_bytes:{}", value.proto_bytes());
  case gnmi::TypedValue::kDoubleVal: return fmt::format("double_val:{}", value.double_val());
  case gnmi::TypedValue::kDecimalVal:
  case gnmi::TypedValue::kAnyVal:
  case gnmi::TypedValue::VALUE_NOT_SET: break;
  }
  return fmt::format("unsupported value type:{}", static_cast<int>(value.value_case()));
}

Tovak::String leafListToCompactString(gnmi::ScalarArray const& array) {
  std::vector<Tovak::String> texts;
  for (gnmi::TypedValue const& element : array.element())
    texts.push_back(typedValueToCompactString(element));
  return fmt::format("[ {} ]", fmt::join(texts, ", "));
}

} // namespace Ondra
