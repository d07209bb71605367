// The wire schema must stay compatible with every gNMI client: names, numbers, types, and the names in the descriptor pool.
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"
#include "github.com/openconfig/gnmi/proto/gnmi_ext/gnmi_ext.pb.h"

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <string>

namespace {

namespace pb = google::protobuf;

std::string typeName(pb::FieldDescriptor const& field) {
  if (field.is_map()) {
    return "map<" + typeName(*field.message_type()->map_key()) + "," +
           typeName(*field.message_type()->map_value()) + ">";
  }
  std::string name = field.type_name();
  if (auto const* message = field.message_type()) name = message->name();
  if (auto const* kind = field.enum_type()) name = kind->name();
  return name + (field.is_repeated() ? "*" : "");
}

/// "name number type" of each field in the order of declaration; "oneof|" before and "!" (deprecated) after where it holds.
std::string fieldsText(pb::Descriptor const& message) {
  std::string text;
  for (int i = 0; i < message.field_count(); ++i) {
    auto const& field = *message.field(i);
    text += text.empty() ? "" : "; ";
    if (auto const* oneof = field.containing_oneof()) text += oneof->name() + "|";
    text += field.name() + " " + std::to_string(field.number()) + " " + typeName(field);
    if (field.options().deprecated()) text += "!";
  }
  return text;
}

std::string valuesText(pb::EnumDescriptor const& kind) {
  std::string text;
  for (int i = 0; i < kind.value_count(); ++i) {
    text += (i ? "; " : "") + kind.value(i)->name() + " " + std::to_string(kind.value(i)->number());
  }
  return text;
}

struct Row {
  char const* name;
  char const* text;
};

Row const messages[] = {
    {"gnmi.Notification",
     "timestamp 1 int64; prefix 2 Path; update 4 Update*; delete 5 Path*; atomic 6 bool"},
    {"gnmi.Update", "path 1 Path; value 2 Value!; val 3 TypedValue; duplicates 4 uint32"},
    {"gnmi.TypedValue",
     "value|string_val 1 string; value|int_val 2 int64; value|uint_val 3 uint64; value|bool_val 4 bool; "
     "value|bytes_val 5 bytes; value|float_val 6 float!; value|double_val 14 double; "
     "value|decimal_val 7 Decimal64!; value|leaflist_val 8 ScalarArray; value|any_val 9 Any; "
     "value|json_val 10 bytes; value|json_ietf_val 11 bytes; value|ascii_val 12 string; "
     "value|proto_bytes 13 bytes"},
    {"gnmi.Path", "element 1 string*!; origin 2 string; elem 3 PathElem*; target 4 string"},
    {"gnmi.PathElem", "name 1 string; key 2 map<string,string>"},
    {"gnmi.Value", "value 1 bytes; type 2 Encoding"},
    {"gnmi.Error", "code 1 uint32; message 2 string; data 3 Any"},
    {"gnmi.Decimal64", "digits 1 int64; precision 2 uint32"},
    {"gnmi.ScalarArray", "element 1 TypedValue*"},
    {"gnmi.SubscribeRequest",
     "request|subscribe 1 SubscriptionList; request|poll 3 Poll; extension 5 Extension*"},
    {"gnmi.SubscribeResponse",
     "response|update 1 Notification; response|sync_response 3 bool; response|error 4 Error!; "
     "extension 5 Extension*"},
    {"gnmi.SubscriptionList",
     "prefix 1 Path; subscription 2 Subscription*; qos 4 QOSMarking; mode 5 Mode; "
     "allow_aggregation 6 bool; use_models 7 ModelData*; encoding 8 Encoding; updates_only 9 bool"},
    {"gnmi.Subscription",
     "path 1 Path; mode 2 SubscriptionMode; sample_interval 3 uint64; suppress_redundant 4 bool; "
     "heartbeat_interval 5 uint64"},
    {"gnmi.QOSMarking", "marking 1 uint32"},
    {"gnmi.SetRequest",
     "prefix 1 Path; delete 2 Path*; replace 3 Update*; update 4 Update*; union_replace 6 Update*; "
     "extension 5 Extension*"},
    {"gnmi.SetResponse", "prefix 1 Path; response 2 UpdateResult*; message 3 Error!; timestamp 4 int64; "
                         "extension 5 Extension*"},
    {"gnmi.UpdateResult", "timestamp 1 int64!; path 2 Path; message 3 Error!; op 4 Operation"},
    {"gnmi.GetRequest",
     "prefix 1 Path; path 2 Path*; type 3 DataType; encoding 5 Encoding; use_models 6 ModelData*; "
     "extension 7 Extension*"},
    {"gnmi.GetResponse", "notification 1 Notification*; error 2 Error!; extension 3 Extension*"},
    {"gnmi.CapabilityRequest", "extension 1 Extension*"},
    {"gnmi.CapabilityResponse",
     "supported_models 1 ModelData*; supported_encodings 2 Encoding*; gNMI_version 3 string; "
     "extension 4 Extension*"},
    {"gnmi.ModelData", "name 1 string; organization 2 string; version 3 string"},
    {"gnmi_ext.Extension",
     "ext|registered_ext 1 RegisteredExtension; ext|master_arbitration 2 MasterArbitration; "
     "ext|history 3 History; ext|commit 4 Commit; ext|depth 5 Depth; "
     "ext|config_subscription 6 ConfigSubscription"},
    {"gnmi_ext.RegisteredExtension", "id 1 ExtensionID; msg 2 bytes"},
    {"gnmi_ext.MasterArbitration", "role 1 Role; election_id 2 Uint128"},
    {"gnmi_ext.Uint128", "high 1 uint64; low 2 uint64"},
    {"gnmi_ext.Role", "id 1 string"},
    {"gnmi_ext.History", "request|snapshot_time 1 int64; request|range 2 TimeRange"},
    {"gnmi_ext.TimeRange", "start 1 int64; end 2 int64"},
    {"gnmi_ext.Commit",
     "id 1 string; action|commit 2 CommitRequest; action|confirm 3 CommitConfirm; "
     "action|cancel 4 CommitCancel; action|set_rollback_duration 5 CommitSetRollbackDuration"},
    {"gnmi_ext.CommitRequest", "rollback_duration 1 Duration"},
    {"gnmi_ext.CommitSetRollbackDuration", "rollback_duration 1 Duration"},
    {"gnmi_ext.Depth", "level 1 uint32"},
    {"gnmi_ext.ConfigSubscription",
     "action|start 1 ConfigSubscriptionStart; action|sync_done 2 ConfigSubscriptionSyncDone"},
    {"gnmi_ext.ConfigSubscriptionSyncDone",
     "commit_confirm_id 1 string; server_commit_id 2 string; done 3 bool"},
};

Row const enums[] = {
    {"gnmi.Encoding", "JSON 0; BYTES 1; PROTO 2; ASCII 3; JSON_IETF 4"},
    {"gnmi.SubscriptionList.Mode", "STREAM 0; ONCE 1; POLL 2"},
    {"gnmi.SubscriptionMode", "TARGET_DEFINED 0; ON_CHANGE 1; SAMPLE 2"},
    {"gnmi.UpdateResult.Operation", "INVALID 0; DELETE 1; REPLACE 2; UPDATE 3; UNION_REPLACE 4"},
    {"gnmi.GetRequest.DataType", "ALL 0; CONFIG 1; STATE 2; OPERATIONAL 3"},
    {"gnmi_ext.ExtensionID", "EID_UNSET 0; EID_EXPERIMENTAL 999"},
};

pb::DescriptorPool const& pool() { return *pb::DescriptorPool::generated_pool(); }

TEST(Proto, MessagesAndEnumsCarryThePublishedNumbers) {
  for (auto const& row : messages) {
    auto const* message = pool().FindMessageTypeByName(row.name);
    ASSERT_NE(message, nullptr) << row.name;
    EXPECT_EQ(fieldsText(*message), row.text) << row.name;
  }
  for (auto const& row : enums) {
    auto const* kind = pool().FindEnumTypeByName(row.name);
    ASSERT_NE(kind, nullptr) << row.name;
    EXPECT_EQ(valuesText(*kind), row.text) << row.name;
  }
  struct {
    char const* message;
    int number;
    char const* name;
  } const reserved[] = {{"gnmi.Notification", 3, "alias"},
                        {"gnmi.SubscribeRequest", 4, "aliases"},
                        {"gnmi.SubscriptionList", 3, "use_aliases"}};
  for (auto const& row : reserved) {
    EXPECT_TRUE(pool().FindMessageTypeByName(row.message)->IsReservedNumber(row.number)) << row.message;
    EXPECT_TRUE(pool().FindMessageTypeByName(row.message)->IsReservedName(row.name)) << row.message;
  }
}

TEST(Proto, FilesAndServiceAreFoundUnderThePublishedNames) {
  auto const* file = pool().FindFileByName("github.com/openconfig/gnmi/proto/gnmi/gnmi.proto");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->options().GetExtension(gnmi::gnmi_service), "0.10.0");
  EXPECT_EQ(gnmi::gnmi_service.number(), 1001);
  EXPECT_NE(pool().FindFileByName("github.com/openconfig/gnmi/proto/gnmi_ext/gnmi_ext.proto"), nullptr);

  auto const* service = pool().FindServiceByName("gnmi.gNMI");
  ASSERT_NE(service, nullptr);
  std::string calls;
  for (int i = 0; i < service->method_count(); ++i) {
    auto const& call = *service->method(i);
    calls += call.name() + "(" + (call.client_streaming() ? "stream " : "") + call.input_type()->name() +
             ")->" + (call.server_streaming() ? "stream " : "") + call.output_type()->name() + " ";
  }
  EXPECT_EQ(calls,
            "Capabilities(CapabilityRequest)->CapabilityResponse Get(GetRequest)->GetResponse "
            "Set(SetRequest)->SetResponse Subscribe(stream SubscribeRequest)->stream SubscribeResponse ");
  EXPECT_STREQ(gnmi::gNMI::service_full_name(), "gnmi.gNMI");
}

// A second copy of the generated code in the process would register the files twice and end the program at start; that the
// class seen here and the one in the pool are the same shows that the copy of the library is the one in use.
TEST(Proto, MessagesOfThisProgramAreThoseOfTheLibrary) {
  EXPECT_EQ(gnmi::Path::descriptor(), pool().FindMessageTypeByName("gnmi.Path"));
  gnmi::Path path;
  auto* elem = path.add_elem();
  elem->set_name("interface");
  (*elem->mutable_key())["name"] = "lo";
  path.set_origin("o");
  EXPECT_EQ(path.SerializeAsString(), std::string("\x12\x01o"
                                                  "\x1a\x17\x0a\x09interface\x12\x0a\x0a\x04name\x12\x02lo"));
}

} // namespace
