// The one-line texts of responses and values.
#include <gtest/gtest.h>

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>

#include <string>

#include "Ondra/CompactText.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

template <class Message>
Message parsed(std::string const& text) {
  google::protobuf::LogSilencer const noDeprecationWarnings;
  Message message;
  EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &message)) << text;
  return message;
}

TEST(CompactText, Values) {
  struct Case {
    char const* message;
    char const* text;
  };
  constexpr Case cases[] = {
      {R"(string_val: "a b")", "string_val:a b"},
      {"int_val: -5", "int_val:-5"},
      {"uint_val: 18446744073709551615", "uint_val:18446744073709551615"},
      {"bool_val: true", "bool_val:true"},
      {R"(bytes_val: "\001x")", "bytes_val:\x01x"},
      {"float_val: 0.1", "float_val:0.1"},
      {"double_val: 0.1", "double_val:0.1"},
      {R"(json_val: "{\"a\":1}")", R"(json_val:{"a":1})"},
      {R"(json_ietf_val: "[]")", "json_ietf_val:[]"},
      {R"(ascii_val: "show")", "ascii_val:show"},
      {R"(proto_bytes: "pb")", "proto_bytes:pb"},
      {"decimal_val { digits: 3 precision: 1 }", "unsupported value type:7"},
      {"any_val { }", "unsupported value type:9"},
      {"", "unsupported value type:0"},
      {"leaflist_val { }", "leaflist_val:[  ]"},
      {"leaflist_val { element { int_val: 1 } element { int_val: 2 } }",
       "leaflist_val:[ int_val:1, int_val:2 ]"},
      {R"(leaflist_val { element { leaflist_val { element { string_val: "x" } } } })",
       "leaflist_val:[ leaflist_val:[ string_val:x ] ]"},
  };
  for (Case const& one : cases) {
    EXPECT_EQ(Ondra::typedValueToCompactString(parsed<gnmi::TypedValue>(one.message)), one.text)
        << one.message;
  }
}

TEST(CompactText, Responses) {
  struct Case {
    char const* message;
    char const* text;
  };
  constexpr Case cases[] = {
      {R"(update {
            timestamp: 7
            prefix { elem { name: "p" key { key: "k" value: "1" } } }
            update { path { elem { name: "a" } } val { uint_val: 1 } }
            update { path { elem { name: "b" } elem { name: "c" } } }
            update { val { bool_val: false } }
            delete { elem { name: "d" } }
            delete { }
          })",
       "timestamp:7 prefix:/p[k=1] update0 ( path:/a uint_val:1 ) update1 ( path:/b/c ) update2 ( "
       "bool_val:false ) "
       "delete0 ( path:/d ) delete1 ( path: ) "},
      {"update { }", "timestamp:0 prefix: "},
      {"sync_response: true", "sync_response"},
      {"sync_response: false", "unsupported response"},
      {"", "unsupported response"},
  };
  for (Case const& one : cases) {
    EXPECT_EQ(Ondra::subscribeResponseToCompactString(parsed<gnmi::SubscribeResponse>(one.message)), one.text)
        << one.message;
  }
}

} // namespace
