// Modules as types: what is served of them, values in and out, what is refused.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "agent/access/AccessRules.h"
#include "agent/model/SupportedPaths.h"
#include "agent/yang/Modules.h"
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
        "/every:every/entries/without-keys: a list without keys", "/every:top-any: what it holds",
        "/every:every/entries/under-nothing: a key that is empty"})
    EXPECT_THAT(types.leftOut, Contains(HasSubstr(each)));
  std::string const paths = Agent::supportedPaths();
  for (std::string_view const row :
       {"| `/every/config/small` | int8 -5..-1 1..5 | config | event |",
        "| `/every/config/animal` | identityref | config | event |",
        "| `/every/config/numbers` | uint16* | config | event |",
        "| `/every/config/stamped` | uint32 | config | event |",
        "| `/every/entries/entry[name]/state/seen` | uint64 | state | sampled |",
        "| `/every/entries/entry[name]/state/counters/hits` | uint32 | state | sampled |",
        "| `/every/entries/entry[name]/state/mood` | string | state | event |", "\n## /top-list (every)\n",
        "| `/top-list[k][l]/below/deep` | string | config | event |",
        "| `/top-words` | string* 1..8 | config | event |", "| `/top-seen` | uint64 | state | sampled |"})
    EXPECT_THAT(paths, HasSubstr(row));
  EXPECT_THAT(paths, AllOf(Not(HasSubstr("gone")), Not(HasSubstr("fancy")), Not(HasSubstr("/do-it"))));
}

// What cannot be served is told with its place, in the schema library's words where it is the one to say so.
TEST(YangModules, WhatIsWrongIsSaid) {
  using Texts = std::vector<std::string>;
  auto const body = [](std::string const& nodes) {
    return "module a { namespace 'urn:a'; prefix a; revision 2026-11-22; " + nodes + " }";
  };
  struct Case {
    Texts files;
    Texts modules;
    char const* what;
  };
  for (Case const& each : std::initializer_list<Case>{
           {{}, {}, "there are no modules"},
           {{"this is text"}, {}, "0.yang: this is no module of YANG"},
           {{body("leaf x { type strin; }")}, {}, "strin"},
           {{body("container c { leaf x { type string }")}, {}, "0.yang:1: "},
           {{"module a { namespace 'urn:a'; prefix a;\n import nowhere { prefix n; } }"},
            {},
            "0.yang:2: Data model \"nowhere\""},
           {{body("\nleaf x { type leafref { path '../y'; } }")}, {}, "0.yang:2: /a:x: "},
           {{body(
                "\ngrouping g { leaf y { type string; }\n leaf x { type none; } }\ncontainer c { uses g; }")},
            {},
            "0.yang:3: /a:c/{uses='g'}/x: "},
           {{body("\n// leaf x\n augment '/a:b' { leaf x { type string; } }")},
            {},
            "0.yang:3: /a:{augment='/a:b'}"},
           {{"module a { namespace 'urn:a'; prefix a; include part; }",
             "submodule part { belongs-to a { prefix a; }\n container c { leaf x { type none; } } }"},
            {},
            "1.yang:2: /a:c/x: "},
           {{body("leaf x { type int8; default 200; }")}, {}, "/a:x"},
           {{body("grouping g { uses g; } uses g;")}, {}, "g"},
           {{body("identity i { base i; }")}, {}, "i"},
           {{body("leaf x { type string; } leaf x { type string; }")}, {}, "x"},
           {{body("")}, {"a:none"}, "none"},
           {{body("")}, {"b"}, "module 'b' is in none of the folders"},
           {{body(""), body("leaf x { type string; }")}, {}, "both hold 'a' of revision 2026-11-22"},
       }) {
    std::filesystem::path const folder = testing::TempDir() + "wrong-modules";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    for (std::size_t i = 0; i < each.files.size(); ++i)
      std::ofstream(folder / fmt::format("{}.yang", i)) << each.files[i];
    auto const loaded = Agent::Modules::load({.folders = {folder.string()}, .modules = each.modules});
    ASSERT_FALSE(loaded.ok()) << each.what;
    EXPECT_THAT(loaded.error(), HasSubstr(each.what));
  }
}

// Deeper than a path can name, and wide: a bounded cost, and the rest is served.
TEST(YangModules, DeepAndWideOnesAreServed) {
  static_cast<void>(YangTesting::model());
  std::string deep = "grouping g0 { leaf x { type string; } } ", wide;
  for (int i = 1; i <= 400; ++i)
    deep +=
        fmt::format("grouping g{} {{ container c {{ uses g{}; leaf y {{ type string; }} }} }} ", i, i - 1);
  wide = "leaf with { if-feature on; type string; } leaf without { if-feature off; type string; } ";
  for (int i = 0; i < 2'000; ++i)
    wide += fmt::format("leaf l{} {{ type string; }} ", i);
  std::filesystem::path const folder = testing::TempDir() + "large-modules";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "large.yang") << fmt::format("\xef\xbb\xbfmodule large {{ namespace 'urn:large'; "
                                                      "prefix l; feature on; feature off; {} "
                                                      "container deep {{ uses g400; }} container wide {{ {} "
                                                      "}} }}",
                                                      deep, wide);
  auto loaded = Agent::YangModel::load({.folders = {folder.string()}, .modules = {"large:on"}});
  ASSERT_TRUE(loaded.ok()) << loaded.error();
  static auto const& kept = *new auto(std::move(*loaded)); // what it has made refers to it
  EXPECT_THAT(kept->types().leftOut, testing::ElementsAre(HasSubstr("deeper than a path can name")));
  YangTesting::Bench bench;
  std::string below;
  for (int i = 0; i < 126; ++i)
    below += "/c";
  EXPECT_TRUE(bench.set(setRequest("update /deep" + below + "/y \"x\"\nupdate /wide/l1999 \"x\"")).ok());
  EXPECT_TRUE(bench.set(setRequest("update /wide/with \"x\"")).ok());
  EXPECT_EQ(bench.set(setRequest("update /wide/without \"x\"")).error_code(), StatusCode::NOT_FOUND);
  EXPECT_EQ(bench.set(setRequest("update /deep" + below + "/c {}")).error_code(), StatusCode::UNIMPLEMENTED);
  EXPECT_EQ(bench.leaves().size(), 3U);
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
           {"decimal", R"("-1.250")", R"("-1.25")", "-1.25", "double_val: -1.25"},
           {"decimal", "double:10.5", R"("10.5")", "10.5", "double_val: 10.5"},
           {"binary", R"("AQID")", R"("AQID")", "", R"(bytes_val: "\001\002\003")"},
           {"texts", R"("ANY")", R"("ANY")", "", R"(string_val: "ANY")"},
           {"fine", R"("-9.223372036854775808")", R"("-9.223372036854775808")", "-9.223372036854775808",
            "double_val: -9.2233720368547765"},
           {"fine", "string:0.100000000000000001", R"("0.100000000000000001")", "0.100000000000000001",
            "double_val: 0.1"},
           {"fine", "double:1.5", R"("1.5")", "1.5", "double_val: 1.5"},
           {"coarse", R"(["922337203685477580.7", "-0.0", 3])", R"(["922337203685477580.7","0.0","3.0"])",
            "[922337203685477580.7,0.0,3.0]",
            "leaflist_val { element { double_val: 9.2233720368547763e+17 } element { double_val: 0 } "
            "element { double_val: 3 } }"},
           {"mixed", "list:AQID", R"(["AQID"])", "",
            R"(leaflist_val { element { bytes_val: "\001\002\003" } })"},
           {"union", "5", "5", "", "uint_val: 5"},
           {"union", R"("many")", R"("many")", "", R"(string_val: "many")"},
           {"union", "int:-300", R"("-300")", "-300", "int_val: -300"},
           {"union", "uint:300", R"("300")", "300", "int_val: 300"},
           {"mixed", R"(["1.5",true,"AQID","dog",150,"900"])", R"(["1.5",true,"AQID","every:dog",150,"900"])",
            R"([1.5,true,"AQID","every:dog",150,900])",
            R"(leaflist_val { element { double_val: 1.5 } element { bool_val: true } )"
            R"(element { bytes_val: "\001\002\003" } element { string_val: "every:dog" } )"
            R"(element { uint_val: 150 } element { uint_val: 900 } })"},
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
           {"update /every/config/posix \"abd\"", StatusCode::INVALID_ARGUMENT, "pattern '[a-c]+'"},
           {"update /every/config/color \"blue\"", StatusCode::INVALID_ARGUMENT,
            "no value of this enumeration"},
           {"update /every/config/bits \"four\"", StatusCode::INVALID_ARGUMENT, "bit"},
           {"update /every/config/empty false", StatusCode::INVALID_ARGUMENT, "empty"},
           {"update /every/entries/entry[name=a]/state/mood \"x\"", StatusCode::INVALID_ARGUMENT, "is state"},
           {"update /every/entries/entry[name=A]/name \"A\"", StatusCode::INVALID_ARGUMENT, "pattern"},
           {"update /every/config/decimal \"1.2345\"", StatusCode::INVALID_ARGUMENT, "fraction digits"},
           {"update /every/config/decimal double:11", StatusCode::INVALID_ARGUMENT, "range"},
           {"update /every/config/fine \"9.223372036854775808\"", StatusCode::INVALID_ARGUMENT, "decimal64"},
           {"update /every/config/union \"few\"", StatusCode::INVALID_ARGUMENT, "no member of this union"},
           {"update /every/config/mixed [\"10.5\"]", StatusCode::INVALID_ARGUMENT, "no member of this union"},
           {"update /every/config/binary \"AQIDBAU=\"", StatusCode::INVALID_ARGUMENT, "length"},
           {"update /every/entries/pair[left=a]/both \"x\"", StatusCode::INVALID_ARGUMENT, "needs its keys"},
           {"update /every/entries/pair[left=a][right=x]/both \"x\"", StatusCode::INVALID_ARGUMENT, "uint16"},
           {"update /every/entries/pair[left=a][right=1]/left \"b\"", StatusCode::INVALID_ARGUMENT,
            "contradicts"},
           {"update /every {\"first-a\":\"x\",\"second\":{\"of-second\":\"y\"}}",
            StatusCode::INVALID_ARGUMENT,
            "'first-a' and 'second' are of different cases of the choice 'one-of'"},
           {"update /every/config/any \"x\"", StatusCode::UNIMPLEMENTED, "not offered"},
           {"update /every/entries/under-nothing[e=]/x \"x\"", StatusCode::UNIMPLEMENTED, "not offered"},
           {"update /every/config/gone \"x\"", StatusCode::NOT_FOUND, "not known"},
       }) {
    grpc::Status const status = bench.set(setRequest(line));
    EXPECT_EQ(status.error_code(), code) << line << ": " << status.error_message();
    EXPECT_THAT(status.error_message(), HasSubstr(what)) << line;
  }
  EXPECT_TRUE(bench.leaves().empty());
}

// Entries of a list with several keys, whole ones and by wildcards on some of them.
TEST(YangServe, SeveralKeys) {
  YangTesting::Bench bench;
  grpc::Status const made = bench.set(setRequest(R"(update /every/entries/pair[left=a][right=1]/both "a1"
update /every/entries {"pair":[{"left":"b","right":1,"both":"b1"},{"left":"a","right":20},{"right":3,"left":"a"}]})"));
  ASSERT_TRUE(made.ok()) << made.error_message();
  EXPECT_EQ(
      bench.value("/every/entries", gnmi::JSON_IETF),
      R"({"every:pair":[{"left":"a","right":1,"both":"a1"},{"left":"a","right":3},{"left":"a","right":20},)"
      R"({"left":"b","right":1,"both":"b1"}]})");
  EXPECT_EQ(bench.value("/every/entries/pair[left=b][right=1]/both"), R"("b1")");
  EXPECT_EQ(bench.value("/every/entries/pair[left=a][right=20]/right"), "20");
  // A number with zeros in front is that number, to whomever.
  EXPECT_EQ(bench.value("/every/entries/pair[left=a][right=0020]/right"), "20");
  EXPECT_TRUE(bench.set(setRequest("update /every/entries/pair[left=b][right=001]/both \"b1\"")).ok());
  gnmi::GetResponse ones;
  ASSERT_TRUE(
      bench.get(ServiceTesting::getRequest({"/every/entries/pair[right=1]/both"}, gnmi::PROTO), ones).ok());
  EXPECT_EQ(ones.notification(0).update_size(), 2);
  ASSERT_TRUE(bench.set(setRequest("delete /every/entries/pair[left=a][right=*]")).ok());
  EXPECT_EQ(bench.value("/every/entries", gnmi::JSON), R"({"pair":[{"left":"b","right":1,"both":"b1"}]})");
  ASSERT_TRUE(bench.set(setRequest("delete /every/entries/pair[left=b][right=1]")).ok());
  EXPECT_TRUE(bench.leaves().empty());
}

// More keys before fewer, then in the order of their names; what is left open holds for some.
TEST(YangServe, AccessRulesOfSeveralKeys) {
  static_cast<void>(YangTesting::model());
  auto const rules = Agent::AccessRules::parse(R"({"rules": [
    {"group": "*", "mode": "read", "action": "permit", "path": "/every/entries/pair[left=a]"},
    {"group": "*", "mode": "read", "action": "deny", "path": "/every/entries/pair[left=*][right=1]"},
    {"group": "*", "mode": "read", "action": "permit", "path": "/every/entries/pair[right=1][left=b]"}]})");
  ASSERT_TRUE(rules.ok()) << rules.error();
  auto const rights = rules->rightsOf("");
  using Cover = Agent::Pattern::Cover;
  for (auto const& [path, cover] : std::initializer_list<std::pair<char const*, Cover>>{
           {"/every/entries/pair[left=a][right=1]/both", Cover::All},
           {"/every/entries/pair[left=a][right=2]/both", Cover::All},
           {"/every/entries/pair[left=b][right=1]", Cover::All},
           {"/every/entries/pair[left=b][right=2]", Cover::None},
           {"/every/entries/pair[left=c][right=1]/both", Cover::None},
           {"/every/entries/pair[left=a]", Cover::All},
           {"/every/entries/pair[left=c]", Cover::None},
           {"/every/entries/pair[right=1]", Cover::Partial},
           {"/every/entries", Cover::Partial}}) {
    gnmi::Path const at = ServiceTesting::path(path);
    EXPECT_EQ(rights.reads->at(Agent::PathView(at, 0)).cover(), cover) << path;
  }
}

// Lists, leaf-lists and leaves that no container is around.
TEST(YangServe, NodesAtTheTop) {
  YangTesting::Bench bench;
  std::string held = "{}";
  for (
      auto const& [line, refusal, after] : std::initializer_list<std::array<char const*, 3>>{
          {"update /top-leaf \"abc\"\nupdate /top-one \"1\"", "", R"({"top-leaf":"abc","top-one":"1"})"},
          {"update / {\"every:top-words\":[\"b\",\"a\"]}", "",
           R"({"top-leaf":"abc","top-words":["b","a"],"top-one":"1"})"},
          {"update /top-list[k=a][l=1]/value 1.5\nupdate /top-list[k=a][l=2]/below/deep \"x\"\n"
           "update /top-two[k=x]/k \"x\"\ndelete /top-words\ndelete /top-leaf",
           "",
           R"({"top-list":[{"k":"a","l":1,"value":1.5},{"k":"a","l":2,"below":{"deep":"x"}}],"top-two":[{"k":"x"}]})"},
          {"update /top-leaf \"A\"", "pattern", ""},
          {"update /top-seen 1", "is state", ""},
          {"update /top-any {}", "not offered", ""},
          {"delete /top-list[l=2]\nreplace /top-list[k=a][l=1] {\"below\":{\"deep\":\"y\"}}\n"
           "update /top-words [\"c\"]\ndelete /top-two",
           "", R"({"top-list":[{"k":"a","l":1,"below":{"deep":"y"}}],"top-words":["c"]})"},
          {"replace / {\"top-leaf\":\"z\"}", "", R"({"top-leaf":"z"})"},
      }) {
    grpc::Status const status = bench.set(setRequest(line));
    EXPECT_THAT(status.error_message(), HasSubstr(refusal)) << line;
    EXPECT_EQ(status.ok(), *refusal == '\0') << line << ": " << status.error_message();
    if (status.ok()) held = after;
    EXPECT_EQ(nlohmann::json::parse(bench.value("/")), nlohmann::json::parse(held)) << line;
  }
  ASSERT_TRUE(bench.set(setRequest("update /top-presence {}")).ok());
  EXPECT_EQ(bench.value("/top-presence"), "{}");
  ASSERT_TRUE(bench.set(setRequest("delete /top-presence")).ok());
  EXPECT_THAT(bench.value("/top-presence"), HasSubstr("nothing"));
  ASSERT_TRUE(bench.provided("update /top-seen 5\nupdate /top-list[k=b][l=1]/counted [\"7\"]").ok());
  EXPECT_EQ(bench.value("/top-seen", gnmi::JSON_IETF), R"("5")");
  EXPECT_EQ(bench.value("/top-list[l=1]/counted", gnmi::PROTO), "leaflist_val { element { uint_val: 7 } }");
  EXPECT_EQ(
      bench.value("/", gnmi::JSON_IETF),
      R"({"every:top-leaf":"z","every:top-seen":"5","every:top-list":[{"k":"b","l":1,"counted":["7"]}]})");
}

// Writing into one case clears the others, whatever stands in them.
TEST(YangServe, ChoicesAndPresence) {
  YangTesting::Bench bench;
  for (auto const& [line, held] : std::initializer_list<std::pair<char const*, char const*>>{
           {"update /every/first-a \"1\"\nupdate /every/first-b \"2\"", R"({"first-a":"1","first-b":"2"})"},
           {"update /every/second {\"of-second\":\"x\"}", R"({"second":{"of-second":"x"}})"},
           {"update /every/third[k=a]/k \"a\"\nupdate /every/third[k=b]/k \"b\"",
            R"({"third":[{"k":"a"},{"k":"b"}]})"},
           {"update /every/first-a \"3\"", R"({"first-a":"3"})"},
           {"update /every/presence {\"inside\":\"p\"}", R"({"first-a":"3","presence":{"inside":"p"}})"},
           {"delete /every/presence", R"({"first-a":"3"})"},
       }) {
    grpc::Status const status = bench.set(setRequest(line));
    ASSERT_TRUE(status.ok()) << line << ": " << status.error_message();
    EXPECT_EQ(nlohmann::json::parse(bench.value("/every")), nlohmann::json::parse(held)) << line;
  }
  EXPECT_THAT(bench.value("/every/presence"), HasSubstr("nothing"));
  ASSERT_TRUE(bench.set(setRequest("update /every/presence {}")).ok());
  EXPECT_EQ(bench.value("/every/presence"), "{}");
  EXPECT_EQ(bench.value("/every"), R"({"first-a":"3","presence":{}})");
  EXPECT_EQ(bench.value("/every", gnmi::JSON, gnmi::GetRequest::STATE), "nothing");
}

// Where the device's own processes write, state goes like configuration, and no client takes it away.
TEST(YangServe, ProvidersWriteState) {
  YangTesting::Bench bench;
  ASSERT_TRUE(
      bench
          .provided("update /every/entries/entry[name=a]/state {\"mood\":\"good\",\"counters\":{\"hits\":1}}")
          .ok());
  ASSERT_TRUE(
      bench.set(setRequest("update /every/entries/entry[name=a]/nested[number=-1]/value \"x\"")).ok());
  ASSERT_TRUE(bench.set(setRequest("delete /every/entries/entry[name=a]")).ok());
  EXPECT_EQ(bench.value("/every/entries"),
            R"({"entry":[{"name":"a","state":{"mood":"good","counters":{"hits":1}}}]})");
  EXPECT_EQ(bench.provided("update /every/entries/entry[name=a]/state/seen -1").error_code(),
            StatusCode::INVALID_ARGUMENT);
  // Typed values alone are planned from the bytes; what is wrong with them is told in the same words.
  gnmi::SetResponse response;
  ASSERT_TRUE(bench
                  .provided("update /every/entries/entry[name=a]/state/seen uint:7\n"
                            "update /every/entries/entry[name=a]/state/mood string:bad",
                            &response)
                  .ok());
  ASSERT_EQ(response.response_size(), 2);
  EXPECT_EQ(ServiceTesting::text(response.response(1).path()), "/every/entries/entry[name=a]/state/mood");
  EXPECT_EQ(response.timestamp(), bench.clock().wallNs());
  EXPECT_EQ(bench
                .provided("update /every/entries/entry[name=a]/state/seen uint:8\n"
                          "update /every/entries/entry[name=a]/state/mood int:1")
                .error_message(),
            "/every/entries/entry[name=a]/state/mood: expected a value of type string; found int_val");
  EXPECT_EQ(bench.value("/every/entries/entry[name=a]/state"),
            R"({"seen":7,"mood":"bad","counters":{"hits":1}})");
  ASSERT_TRUE(bench.provided("delete /every/entries/entry[name=a]").ok());
  EXPECT_TRUE(bench.leaves().empty());
}

} // namespace
