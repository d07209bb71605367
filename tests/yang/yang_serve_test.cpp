// Modules as types: what is served of them, values in and out, what is refused.
#include <gmock/gmock.h>

#include "agent/model/SupportedPaths.h"
#include "yang/yang_testing.h"

namespace {

using grpc::StatusCode;
using ServiceTesting::setRequest;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

TEST(YangServe, NodesAndWhatIsLeftOut) {
  auto const& types = YangTesting::model().types();
  for (std::string_view const each :
       {"/every:every/config/any: what it holds has no schema", "under__score: a name with '__'",
        "/every:every/entries/without-keys: a list without keys", "/every:top-list: at the top"})
    EXPECT_THAT(types.leftOut, Contains(HasSubstr(each)));
  std::string const paths = Agent::supportedPaths();
  for (std::string_view const row :
       {"| `/every/config/small` | int8 -5..-1 1..5 | config | event |",
        "| `/every/config/animal` | identityref | config | event |",
        "| `/every/config/numbers` | uint16* | config | event |",
        "| `/every/config/stamped` | uint32 | config | event |",
        "| `/every/entries/entry[name]/state/seen` | uint64 | state | sampled |",
        "| `/every/entries/entry[name]/state/counters/hits` | uint32 | state | sampled |",
        "| `/every/entries/entry[name]/state/mood` | string | state | event |"})
    EXPECT_THAT(paths, HasSubstr(row));
  EXPECT_THAT(paths, AllOf(Not(HasSubstr("gone")), Not(HasSubstr("fancy")), Not(HasSubstr("/do-it"))));
}

// What is set comes back in each encoding as it is to be written there; the canonical form of it.
TEST(YangServe, ValuesOfEveryTypeInAndOut) {
  struct Case {
    std::string_view leaf, given, ietf, plain, typed; // empty: as the one before
  };
  YangTesting::Bench bench;
  for (Case const& each : std::initializer_list<Case>{
           {"i8", "-128", "-128", "", "int_val: -128"},
           {"i64", R"("-9223372036854775808")", R"("-9223372036854775808")", "-9223372036854775808",
            "int_val: -9223372036854775808"},
           {"i16", "int:300", "300", "", "int_val: 300"},
           {"u64", R"("18446744073709551615")", R"("18446744073709551615")", "18446744073709551615",
            "uint_val: 18446744073709551615"},
           {"u8", "int:255", "255", "", "uint_val: 255"},
           {"small", "-5", "-5", "", "int_val: -5"},
           {"flag", "false", "false", "", "bool_val: false"},
           {"word", R"("abc")", R"("abc")", "", R"(string_val: "abc")"},
           {"color", R"("light green")", R"("light green")", "", R"(string_val: "light green")"},
           {"bits", R"("three one")", R"("one three")", "", R"(string_val: "one three")"},
           {"animal", R"("dog")", R"("every:dog")", "", R"(string_val: "every:dog")"},
           {"animal", R"("every-more:horse")", R"("every-more:horse")", "",
            R"(string_val: "every-more:horse")"},
           {"pointer", R"("nobody")", R"("nobody")", "", R"(string_val: "nobody")"},
           {"empty", "[null]", "[null]", "true", "bool_val: true"},
           {"words", R"(["b","a"])", R"(["b","a"])", "",
            R"(leaflist_val { element { string_val: "b" } element { string_val: "a" } })"},
           {"added", R"("x")", R"("x")", "", R"(string_val: "x")"},
       }) {
    std::string const path = "/every/config/" + std::string(each.leaf);
    grpc::Status const status = bench.set(setRequest("update " + path + " " + std::string(each.given)));
    ASSERT_TRUE(status.ok()) << path << ": " << status.error_message();
    std::string_view const plain = each.plain.empty() ? each.ietf : each.plain;
    EXPECT_EQ(bench.value(path, gnmi::JSON_IETF), each.ietf) << path;
    EXPECT_EQ(bench.value(path, gnmi::JSON), plain) << path;
    EXPECT_EQ(bench.value(path, gnmi::PROTO), each.typed) << path;
  }
  EXPECT_THAT(bench.value("/every/config", gnmi::JSON_IETF), HasSubstr(R"("every-more:added":"x")"));
}

TEST(YangServe, WhatDoesNotFitIsRefused) {
  YangTesting::Bench bench;
  for (auto const& [line, code, what] :
       std::initializer_list<std::tuple<char const*, StatusCode, char const*>>{
           {"update /every/config/i8 200", StatusCode::INVALID_ARGUMENT, "range"},
           {"update /every/config/small 0", StatusCode::INVALID_ARGUMENT, "range"},
           {"update /every/config/word \"ABC\"", StatusCode::INVALID_ARGUMENT, "pattern"},
           {"update /every/config/word \"abcdefghi\"", StatusCode::INVALID_ARGUMENT, "length"},
           {"update /every/config/color \"blue\"", StatusCode::INVALID_ARGUMENT,
            "no value of this enumeration"},
           {"update /every/config/bits \"four\"", StatusCode::INVALID_ARGUMENT, "bit"},
           {"update /every/config/empty false", StatusCode::INVALID_ARGUMENT, "empty"},
           {"update /every/entries/entry[name=a]/state/mood \"x\"", StatusCode::INVALID_ARGUMENT, "is state"},
           {"update /every/entries/entry[name=A]/name \"A\"", StatusCode::INVALID_ARGUMENT, "pattern"},
           {"update /every/config/any \"x\"", StatusCode::UNIMPLEMENTED, "not offered"},
           {"update /every/config/gone \"x\"", StatusCode::NOT_FOUND, "not known"},
       }) {
    grpc::Status const status = bench.set(setRequest(line));
    EXPECT_EQ(status.error_code(), code) << line << ": " << status.error_message();
    EXPECT_THAT(status.error_message(), HasSubstr(what)) << line;
  }
  EXPECT_TRUE(bench.leaves().empty());
}

} // namespace
