// What holds for a configuration as a whole, before and after every Set.
#include <gmock/gmock.h>

#include <absl/strings/str_split.h>
#include <fmt/format.h>
#include <libyang/libyang.h>
#include <nlohmann/json.hpp>

#include <random>

#include "Kel/Dir.h"
#include "agent/data/SetRun.h"
#include "agent/yang/Constraints.h"
#include "agent/yang/YangData.h"
#include "yang/yang_testing.h"

namespace {

using grpc::StatusCode;
using ServiceTesting::difference;
using ServiceTesting::setRequest;
using testing::HasSubstr;
using YangTesting::fileOf;

// A server whose Sets are held to the modules' constraints, from an empty configuration on.
class RuledBench : public YangTesting::Bench {
public:
  RuledBench() { areHeld(true); }
  ~RuledBench() { areHeld(false); }
  RuledBench(RuledBench const&) = delete;
  RuledBench& operator=(RuledBench const&) = delete;

  void areHeld(bool yes) { runtime().sets().rulesIs(yes ? &rules_ : nullptr); }

private:
  Agent::Constraints rules_{YangTesting::model(), nullptr};
};

TEST(YangRules, SetsAreHeldToWhatHoldsAsAWhole) {
  RuledBench bench;
  struct Case {
    char const* set;
    char const* refusal; // empty: it is taken
    char const* after;   // empty: as before
  };
  std::string held = "{}";
  for (Case const& each : std::initializer_list<Case>{
           {"update /rules/port[name=a]/speed 100", "", R"({"port":[{"name":"a","speed":100}]})"},
           {"update /rules/port[name=a]/speed 101", "/every-rules:rules/port[name='a']/speed", ""},
           {"update /rules/port[name=a] "
            "{\"speed\":101,\"kind\":\"real\",\"slot\":1,\"cage\":{\"color\":\"x\"}}",
            "", R"({"port":[{"name":"a","kind":"real","speed":101,"slot":1,"cage":{"color":"x"}}]})"},
           {"update /rules/port[name=a]/kind \"virtual\"", "Must condition", ""},
           {"update /rules/port[name=a] {\"kind\":\"virtual\",\"speed\":5,\"slot\":2}", "When condition", ""},
           {"update /rules/port[name=a]/speed 5\nupdate /rules/port[name=a]/cage/color \"y\"", "",
            R"({"port":[{"name":"a","kind":"real","speed":5,"slot":1,"cage":{"color":"y"}}]})"},
           // What stands under a condition that holds no more goes with it.
           {"update /rules/port[name=a]/kind \"virtual\"", "",
            R"({"port":[{"name":"a","kind":"virtual","speed":5}]})"},
           {"update /rules/port[name=a]/slot 1", "When condition", ""},
           {"update /rules/port[name=a]/peer \"b\"", "Invalid leafref value \"b\"", ""},
           {"update /rules/port[name=a]/peer \"b\"\nupdate /rules/port[name=b]/address \"1\"", "",
            R"({"port":[{"name":"a","kind":"virtual","speed":5,"peer":"b"},{"name":"b","address":"1"}]})"},
           {"delete /rules/port[name=b]", "Invalid leafref value \"b\"", ""},
           {"update /rules/port[name=a]/address \"1\"", "Unique data leaf", ""},
           {"update /rules/port[name=a]/on {}", "/port[name='a']/on/since: Mandatory node", ""},
           {"update /rules/port[name=a]/bundle {\"member\":[\"1\"]}",
            "/port[name='a']/bundle/member: Too few \"member\" instances", ""},
           {"update /rules/port[name=b]/tag [\"1\",\"2\",\"3\"]", "Too many \"tag\" instances", ""},
           {"update /rules {\"port\":[{\"name\":\"c\"},{\"name\":\"d\"},{\"name\":\"e\"}]}",
            "four ports at most", ""},
           {"replace /rules {\"port\":[{\"name\":\"both'\\\"\"}],\"spare\":[\"both'\\\"\"]}", "",
            R"({"port":[{"name":"both'\""}],"spare":["both'\""]})"},
           {"replace /rules {}\nupdate /rules/bay[id=1]/door/color \"x\"", "",
            R"({"bay":[{"id":"1","config":{"id":"1"},"door":{"color":"x"}}]})"},
           {"delete /rules", "", "{}"},
       }) {
    grpc::Status const status = bench.set(setRequest(each.set));
    bool const isTaken = *each.refusal == '\0';
    EXPECT_EQ(status.error_code(), isTaken ? StatusCode::OK : StatusCode::INVALID_ARGUMENT)
        << each.set << ": " << status.error_message();
    EXPECT_THAT(status.error_message(), HasSubstr(each.refusal)) << each.set;
    if (isTaken) held = each.after;
    EXPECT_EQ(nlohmann::json::parse(bench.value("/rules", gnmi::JSON)), nlohmann::json::parse(held))
        << each.set;
  }
}

// State of an entry makes no configuration of it, and stays without asking anybody.
TEST(YangRules, StateIsHeldToNothing) {
  RuledBench bench;
  ASSERT_TRUE(bench.provided("update /rules/port[name=a]/state/seen 1").ok());
  ASSERT_TRUE(bench.provided("update /rules/bay[id=1]/state/used 1").ok());
  ASSERT_TRUE(bench.set(setRequest("update /rules/bay[id=1]/door/color \"x\"")).ok());
  EXPECT_EQ(bench.value("/rules/bay[id=1]/config", gnmi::JSON), R"({"id":"1"})");
  ASSERT_TRUE(bench.provided("update /rules {\"port\":[{\"name\":\"b\",\"state\":{\"seen\":1}}]}").ok());
  EXPECT_THAT(bench.set(setRequest("update /rules/spare [\"a\"]")).error_message(), HasSubstr("leafref"));
  ASSERT_TRUE(
      bench.set(setRequest("update /rules/port[name=a]/note \"x\"\nupdate /rules/spare [\"a\"]")).ok());
  EXPECT_THAT(bench.set(setRequest("delete /rules/port[name=a]")).error_message(), HasSubstr("leafref"));
  ASSERT_TRUE(bench.set(setRequest("delete /rules/port[name=a]\ndelete /rules/spare")).ok());
  EXPECT_THAT(bench.set(setRequest("update /rules/spare [\"a\"]")).error_message(), HasSubstr("leafref"));
  EXPECT_EQ(bench.value("/rules/port[name=a]", gnmi::JSON), R"({"name":"a","state":{"seen":1}})");
  // So it is again when a commit is taken back.
  ASSERT_TRUE(bench.provided("update /rules/bay[id=2]/state/used 1").ok());
  std::string const was = bench.value("/rules", gnmi::JSON);
  gnmi::SetRequest commit = setRequest("update /rules/bay[id=2]/door/color \"x\""), cancel;
  commit.add_extension()->mutable_commit()->mutable_commit();
  cancel.add_extension()->mutable_commit()->mutable_cancel();
  for (gnmi::SetRequest* const each : {&commit, &cancel}) {
    each->mutable_extension(0)->mutable_commit()->set_id("1");
    ASSERT_TRUE(bench.set(*each).ok());
    EXPECT_EQ(bench.value("/rules", gnmi::JSON) == was, each == &cancel);
  }
}

// --- the law: what is taken is valid, what is refused is invisible, and would not have been ------------------

bool isValid(YangTesting::Bench& bench) {
  ly_ctx const* const context = YangTesting::model().modules().context();
  std::string const text = bench.value("/rules", gnmi::JSON_IETF, gnmi::GetRequest::CONFIG);
  lyd_node* tree = nullptr;
  std::string const whole = text == "nothing" ? "{}" : fmt::format(R"({{"every-rules:rules":{}}})", text);
  EXPECT_EQ(lyd_parse_data_mem(context, whole.c_str(), LYD_JSON, LYD_PARSE_STRICT | LYD_PARSE_ONLY, 0, &tree),
            LY_SUCCESS)
      << text;
  bool const is = lyd_validate_all(&tree, context, LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS;
  lyd_free_all(tree);
  return is;
}

// Over data of every construct: a Set that a constraint refuses, and a commit that nobody confirms.
TEST(YangRules, WhatIsRefusedOrTakenBackHasNotBeen) {
  static_cast<void>(YangTesting::model());
  auto const configured = [](unsigned seed, std::string_view more) {
    YangTesting::Bench bench;
    bench.load(fileOf(YangTesting::randomData(seed), LYD_JSON));
    gnmi::SetRequest request = bench.configuration();
    request.MergeFrom(setRequest(more));
    return request;
  };
  for (unsigned seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    auto const before = configured(seed, "update /rules/port[name=a]/kind \"real\"\n"
                                         "update /rules/port[name=a]/cage/pin[number=1]/role \"x\"\n"
                                         "update /rules/spare [\"a\"]\nupdate /every/presence {}");
    auto after = configured(seed + 100, "delete /\nupdate /rules/port[name=b]/kind \"virtual\"\n"
                                        "update /rules/port[name=a]/kind \"virtual\"\n"
                                        "update /top-presence {}");
    gnmi::SetRequest bad = after;
    bad.MergeFrom(setRequest("update /rules/spare [\"nobody\"]"));
    RuledBench bench;
    ASSERT_TRUE(bench.set(before).ok());
    std::string const was = bench.value("/", gnmi::JSON_IETF);
    auto const leavesBefore = bench.leaves();
    auto const isAsBefore = [&] {
      EXPECT_EQ(bench.value("/", gnmi::JSON_IETF), was);
      EXPECT_TRUE(isValid(bench));
      // The constraints know it, too.
      for (char const* const each : {"delete /rules/port[name=a]", "update /rules/spare [\"b\"]"})
        EXPECT_THAT(bench.set(setRequest(each)).error_message(), HasSubstr("leafref")) << each;
    };
    auto const extended = [](gnmi::SetRequest request, auto const& change) {
      gnmi_ext::Commit& commit = *request.add_extension()->mutable_commit();
      commit.set_id("1");
      change(commit);
      return request;
    };
    auto const begin = [](gnmi_ext::Commit& commit) {
      commit.mutable_commit()->mutable_rollback_duration()->set_seconds(5);
    };
    for (gnmi::SetRequest const& refused : {bad, extended(bad, begin)}) {
      EXPECT_THAT(bench.set(refused).error_message(), HasSubstr("leafref"));
      isAsBefore();
    }
    for (bool const isCancelled : {false, true}) {
      grpc::Status const begun = bench.set(extended(after, begin));
      ASSERT_TRUE(begun.ok()) << begun.error_message();
      std::string const committed = bench.value("/", gnmi::JSON_IETF);
      EXPECT_NE(committed, was);
      EXPECT_EQ(bench.set(bad).error_code(), StatusCode::FAILED_PRECONDITION);
      EXPECT_EQ(bench.value("/", gnmi::JSON_IETF), committed);
      if (!isCancelled) bench.advance(5'000'000'000);
      auto const cancel = extended({}, [](auto& commit) { commit.mutable_cancel(); });
      EXPECT_TRUE(!isCancelled || bench.set(cancel).ok());
      EXPECT_TRUE(bench.settleUntil([&] { return bench.leaves() == leavesBefore; }));
      isAsBefore();
    }
  }
}

TEST(YangRules, RandomSetsLeaveAValidConfiguration) {
  std::vector<std::string> const kOperations = absl::StrSplit(
      "delete {0}|delete {0}/kind|update {0}/kind \"real\"|update {0}/kind \"virtual\"|update {0}/speed 200|"
      "delete {0}/speed|update {0}/address \"1\"|update {0}/peer \"{1}\"|delete {0}/peer|update {0}/slot 1|"
      "update {0}/cage/color \"x\"|update {0}/cage/pin[number=1]/role \"x\"|update {0}/on/since \"x\"|"
      "delete {0}/on/since|delete {0}/on|update {0}/red \"x\"|update {0}/green \"x\"|"
      "update /rules/spare [\"{1}\"]|delete /rules/spare|update {0}/note \"x\"|update {0}/tag "
      "[\"1\",\"{1}\"]",
      '|');
  for (unsigned seed = 1; seed <= 4; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    RuledBench bench;
    std::mt19937 random(seed);
    auto const one = [&random](std::initializer_list<char const*> of) {
      return of.begin()[random() % of.size()];
    };
    unsigned taken = 0;
    constexpr unsigned kSets = 60;
    for (unsigned i = 0; i < kSets; ++i) {
      std::string text;
      for (unsigned many = 1 + random() % 3; many > 0; --many) {
        std::string const port = fmt::format("/rules/port[name={}]", one({"a", "b", "c", "d", "e"}));
        text += fmt::format(fmt::runtime(kOperations[random() % kOperations.size()] + "\n"), port,
                            one({"a", "b", "c"}));
      }
      auto request = setRequest(text);
      auto const before = bench.leaves();
      grpc::Status const status = bench.set(request);
      if (status.ok()) {
        ++taken;
        ASSERT_TRUE(isValid(bench)) << text;
        continue;
      }
      EXPECT_EQ(difference(before, bench.leaves()), "") << text << status.error_message();
      if (status.error_message().find("cases of the choice") != std::string::npos) continue;
      std::string const config = bench.value("/rules", gnmi::JSON);
      bench.areHeld(false);
      ASSERT_TRUE(bench.set(request).ok()) << text;
      EXPECT_FALSE(isValid(bench)) << text << status.error_message();
      std::string const back = config == "nothing" ? "delete /rules" : "replace /rules " + config;
      ASSERT_TRUE(bench.set(setRequest(back)).ok());
      bench.areHeld(true);
      ASSERT_EQ(difference(before, bench.leaves()), "");
    }
    EXPECT_GT(taken, kSets / 8);
    EXPECT_LT(taken, kSets);
  }
}

} // namespace
