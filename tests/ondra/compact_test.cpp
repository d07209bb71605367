// The one-line texts of responses and values, beside those that the recorded walk holds.
#include <gtest/gtest.h>

#include <google/protobuf/text_format.h>

#include "Ondra/CompactText.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

TEST(CompactText, OfResponses) {
  struct Case {
    char const* message;
    char const* text;
  };
  for (Case const& one : {
           Case{R"(update {
                     timestamp: 7
                     prefix { elem { name: "p" key { key: "k" value: "1" } } }
                     update { path { elem { name: "a" } } val { ascii_val: "x" } }
                     update { path { elem { name: "b" } elem { name: "c" } } }
                     update { val { json_val: "{}" } }
                     delete { elem { name: "d" } }
                     delete { }
                   })",
                "timestamp:7 prefix:/p[k=1] update0 ( path:/a ascii_val:x ) update1 ( path:/b/c ) update2 ( "
                "json_val:{} ) delete0 ( path:/d ) delete1 ( path: ) "},
           {R"(update { update { val { leaflist_val { element { leaflist_val { element { string_val: "x" } } }
                                                      element { any_val { } } } } }
                        update { val { proto_bytes: "pb" } } })",
            "timestamp:0 prefix: update0 ( leaflist_val:[ leaflist_val:[ string_val:x ], unsupported value "
            "type:9 ] ) update1 ( proto_bytes:pb ) "},
           {"sync_response: true", "sync_response"},
           {"", "unsupported response"},
       }) {
    gnmi::SubscribeResponse message;
    ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(one.message, &message)) << one.message;
    EXPECT_EQ(Ondra::subscribeResponseToCompactString(message), one.text);
  }
}

} // namespace
