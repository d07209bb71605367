#include "Ondra/CompactText.h"

#include <fmt/format.h>

#include <iterator>

#include "Ondra/PathFormat.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

using Out = std::back_insert_iterator<Tovak::String>;

// The schema has replaced this field, and the library does not send it; other ends still may.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
float floatOf(gnmi::TypedValue const& value) { return value.float_val(); }
#pragma GCC diagnostic pop

void appendValue(Out out, gnmi::TypedValue const& value);

void appendLeafList(Out out, gnmi::ScalarArray const& array) {
  fmt::format_to(out, "[ ");
  char const* separator = "";
  for (gnmi::TypedValue const& element : array.element()) {
    fmt::format_to(out, "{}", separator);
    appendValue(out, element);
    separator = ", ";
  }
  fmt::format_to(out, " ]");
}

void appendValue(Out out, gnmi::TypedValue const& value) {
  switch (value.value_case()) {
  case gnmi::TypedValue::kStringVal: fmt::format_to(out, "string_val:{}", value.string_val()); return;
  case gnmi::TypedValue::kIntVal: fmt::format_to(out, "int_val:{}", value.int_val()); return;
  case gnmi::TypedValue::kUintVal: fmt::format_to(out, "uint_val:{}", value.uint_val()); return;
  case gnmi::TypedValue::kBoolVal: fmt::format_to(out, "bool_val:{}", value.bool_val()); return;
  case gnmi::TypedValue::kBytesVal: fmt::format_to(out, "bytes_val:{}", value.bytes_val()); return;
  case gnmi::TypedValue::kFloatVal: fmt::format_to(out, "float_val:{}", floatOf(value)); return;
  case gnmi::TypedValue::kLeaflistVal:
    fmt::format_to(out, "leaflist_val:");
    appendLeafList(out, value.leaflist_val());
    return;
  case gnmi::TypedValue::kJsonVal: fmt::format_to(out, "json_val:{}", value.json_val()); return;
  case gnmi::TypedValue::kJsonIetfVal: fmt::format_to(out, "json_ietf_val:{}", value.json_ietf_val()); return;
  case gnmi::TypedValue::kAsciiVal: fmt::format_to(out, "ascii_val:{}", value.ascii_val()); return;
  case gnmi::TypedValue::kProtoBytes: fmt::format_to(out, "proto_bytes:{}", value.proto_bytes()); return;
  case gnmi::TypedValue::kDoubleVal: fmt::format_to(out, "double_val:{}", value.double_val()); return;
  case gnmi::TypedValue::kDecimalVal:
  case gnmi::TypedValue::kAnyVal:
  case gnmi::TypedValue::VALUE_NOT_SET: break;
  }
  fmt::format_to(out, "unsupported value type:{}", static_cast<int>(value.value_case()));
}

void appendNotification(Out out, gnmi::Notification const& notification) {
  fmt::format_to(out, "timestamp:{} prefix:{} ", notification.timestamp(), notification.prefix());
  for (int i = 0; i < notification.update_size(); ++i) {
    gnmi::Update const& update = notification.update(i);
    fmt::format_to(out, "update{} ( ", i);
    if (update.has_path()) {
      fmt::format_to(out, "path:{} ", update.path());
    }
    if (update.has_val()) {
      appendValue(out, update.val());
      fmt::format_to(out, " ");
    }
    fmt::format_to(out, ") ");
  }
  for (int i = 0; i < notification.delete__size(); ++i) {
    fmt::format_to(out, "delete{} ( path:{} ) ", i, notification.delete_(i));
  }
}

} // namespace

Tovak::String subscribeResponseToCompactString(gnmi::SubscribeResponse const& response) {
  if (response.has_update()) {
    Tovak::String text;
    appendNotification(std::back_inserter(text), response.update());
    return text;
  }
  return response.sync_response() ? "sync_response" : "unsupported response";
}

Tovak::String typedValueToCompactString(gnmi::TypedValue const& value) {
  Tovak::String text;
  appendValue(std::back_inserter(text), value);
  return text;
}

Tovak::String leafListToCompactString(gnmi::ScalarArray const& array) {
  Tovak::String text;
  appendLeafList(std::back_inserter(text), array);
  return text;
}

} // namespace Ondra
