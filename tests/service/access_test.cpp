// Access rules: the file, the verdicts against a second reading of the rules, what may be written and read.

#include "service/access_testing.h"
#include "service/data_testing.h"

using namespace ServiceTesting;

namespace {

using Cover = Agent::Pattern::Cover;
using grpc::StatusCode;

TEST(AccessFile, FaultsNameTheirLine) {
  Agent::declareTypes();
  std::string const good = R"({"group": "*", "path": "/interfaces", "mode": "read", "action": "permit"})";
  auto const file = [&good](std::string_view rule) {
    return fmt::format("{{\"groups\": {{\"ops\": [\"ann\"]}},\n\"rules\": [\n{},\n{}\n]}}", good, rule);
  };
  auto const with = [&good](std::string_view what, std::string_view by) {
    std::string rule = good;
    return rule.replace(rule.find(what), what.size(), by);
  };
  EXPECT_TRUE(Agent::AccessRules::parse(file(good)).ok());
  EXPECT_TRUE(Agent::AccessRules::parse("{}").ok()) << "nobody may do anything";
  for (auto const& [text, fault] : std::vector<std::pair<std::string, std::string>>{
           {"", "line 1: this is no JSON"},
           {"{\n\n\"rules\": [}", "line 3: this is no JSON"},
           {"[]", "line 1: expected an object"},
           {R"({"rule": []})", "'rule' means nothing here"},
           {R"({"groups": {"a": "ann"}})", "the group 'a' is no list of users"},
           {R"({"groups": {"*": []}})", "the group '*'"},
           {file(with("read", "look")), "line 4: 'mode' is neither 'read' nor 'write'"},
           {file(with("permit", "allow")), "line 4: 'action' is neither"},
           {file(with("\"*\"", "\"other\"")), "line 4: there is no group 'other'"},
           {file(with("\"*\"", "7")), "line 4: 'group' is no text"},
           {file(with("group", "users")), "line 4: 'users' means nothing in a rule"},
           {file(with("\"group\"", "\"user\": \"ann\", \"group\"")), "line 4: a rule is of a 'user' or"},
           {file(with("\"mode\"", "\"path\": \"/\", \"mode\"")), "line 4: 'path' is there twice"},
           {file(with("/interfaces", "/nonsense")), "line 4: nonsense of /nonsense is not in the schema"},
           {file(with("/interfaces", "/interfaces/...")), "line 4: a rule takes no element '...'"},
           {file(with("/interfaces", "/interfaces/interface[nam=x]")), "line 4: "},
       }) {
    auto const rules = Agent::AccessRules::parse(text);
    ASSERT_FALSE(rules.ok()) << text;
    EXPECT_NE(rules.error().find(fault), std::string::npos) << rules.error();
  }
  EXPECT_FALSE(Agent::AccessRules::fromFile("no/such/file").ok());
}

// Each path of a filled tree, and each that lies above one.
std::set<std::string> pathsOf(DataBench::Leaves const& leaves) {
  std::set<std::string> paths = {"/"};
  for (auto const& [leaf, value] : leaves)
    for (gnmi::Path at = path(leaf); at.elem_size() > 0; at.mutable_elem()->RemoveLast())
      paths.insert(text(at));
  return paths;
}

TEST(AccessRules, TheTreeSaysWhatTheRulesSay) {
  DataBench bench;
  bench.fill();
  for (int i = 0; i < 5; ++i)
    bench.addInterface(fmt::format("eth{}", i));
  std::set<std::string> const paths = pathsOf(bench.leaves());
  std::vector<std::string> const principals = {"group *", "group ops", "user ann", "user bob"};
  for (unsigned seed = 1; seed <= 60 && !::testing::Test::HasFailure(); ++seed) {
    std::mt19937 random(seed);
    auto const rules = randomRules(random, 1 + seed % 12, principals);
    std::string const file = accessFile(rules, R"({"ops": ["ann", "carl"]})");
    SCOPED_TRACE(fmt::format("seed {}\n{}", seed, file));
    Agent::AccessRules const access = accessRules(file);
    for (auto const& [user, his] : std::vector<std::pair<std::string, std::vector<std::string>>>{
             {"ann", {"group *", "group ops", "user ann"}},
             {"bob", {"group *", "user bob"}},
             {"carl", {"group *", "group ops"}},
             {"", {"group *"}}}) {
      auto const rights = access.rightsOf(user);
      for (bool const writes : {false, true}) {
        std::map<std::string, bool> verdicts;
        for (std::string const& each : paths)
          verdicts[each] = isPermitted(rules, his, writes, each);
        for (auto const& [each, verdict] : verdicts) {
          Agent::RuleTree::Place const place =
              (writes ? rights.writes : rights.reads)->at(Agent::PathView(path(each), 0));
          EXPECT_EQ(place.permits(), verdict) << user << " " << writes << " " << each;
          if (place.cover() == Cover::Partial) continue;
          std::string const stem = each == "/" ? each : each + "/";
          for (auto below = verdicts.lower_bound(stem);
               below != verdicts.end() && below->first.starts_with(stem); ++below)
            EXPECT_EQ(below->second, place.cover() == Cover::All) << each << " over " << below->first;
        }
      }
    }
  }
}

TEST(AccessRules, WhatMeansTheSameIsOneTree) {
  Agent::declareTypes();
  std::vector<TestRule> rules = {{"group ops", "/interfaces", false, true},
                                 {"user bob", "/interfaces", false, true}};
  auto const groups = R"({"ops": ["ann", "carl"]})";
  auto const before = accessRules(accessFile(rules, groups));
  auto const readsBefore = [&before](char const* user) { return before.rightsOf(user).reads; };
  EXPECT_EQ(readsBefore("ann"), readsBefore("carl"));
  EXPECT_EQ(readsBefore("ann"), readsBefore("bob"));
  EXPECT_NE(readsBefore("ann"), readsBefore("dora"));
  rules.push_back({"user carl", "/system", false, true});
  rules.push_back({"user ann", "/system", true, true});
  auto after = accessRules(accessFile(rules, groups));
  after.keepFrom(before);
  EXPECT_EQ(after.rightsOf("ann").reads, readsBefore("ann"));
  EXPECT_NE(after.rightsOf("ann").writes, before.rightsOf("ann").writes);
  EXPECT_NE(after.rightsOf("carl").reads, readsBefore("carl"));
}

// A filled tree whose server knows rules for everybody.
class GuardedBench : public DataBench {
public:
  explicit GuardedBench(std::vector<TestRule> const& rules)
      : guarded_(runtime(),
                 gateOf(std::make_shared<Agent::AccessRules const>(accessRules(accessFile(rules)))))
      , guardedStub_(gnmi::gNMI::NewStub(guarded_.channel())) {
    fill();
  }
  grpc::Status guardedSet(gnmi::SetRequest const& request) {
    gnmi::SetResponse response;
    return awaited(*this, [&](auto* context, auto done) {
      guardedStub_->async()->Set(context, &request, &response, done);
    });
  }
  grpc::Status guardedGet(gnmi::GetRequest const& request, gnmi::GetResponse& response) {
    return awaited(*this, [&](auto* context, auto done) {
      guardedStub_->async()->Get(context, &request, &response, done);
    });
  }

private:
  Server guarded_;
  std::unique_ptr<gnmi::gNMI::Stub> guardedStub_;
};

TEST(Access, ASetIsCarriedOutWholeOrRefusedWithThePath) {
  GuardedBench bench({{"group *", "/interfaces/interface[name=*]/config", true, true},
                      {"group *", "/interfaces/interface[name=*]/config/mtu", true, false},
                      {"group *", "/interfaces/interface[name=eth0]/config/mtu", true, true},
                      {"group *", "/system/config/hostname", true, true},
                      {"group *", "/system/dns", true, true}});
  std::string const eth0 = "/interfaces/interface[name=eth0]";
  std::string const eth1 = "/interfaces/interface[name=eth1]";
  // The path that the answer names, where it is refused.
  for (auto const& [set, refused] : std::vector<std::pair<std::string, std::string>>{
           {"update " + eth0 + "/config/mtu uint:1400", ""},
           {"update " + eth1 + "/config/mtu uint:1400", eth1 + "/config/mtu"},
           {"update " + eth1 + "/config {\"description\":\"x\"}", ""},
           {"update " + eth1 + "/config {\"description\":\"y\",\"mtu\":1400}", eth1 + "/config/mtu"},
           {"update " + eth1 + " {\"name\":\"eth1\",\"config\":{\"name\":\"eth1\",\"description\":\"z\"}}",
            ""},
           {"update /system/config/hostname string:a\nupdate " + eth1 + "/config/mtu uint:9",
            eth1 + "/config/mtu"},
           {"replace " + eth0 + "/config {\"description\":\"r\"}", ""},
           {"replace " + eth1 + "/config {\"description\":\"r\"}", eth1 + "/config"},
           {"delete " + eth0 + "/config/description", ""},
           {"delete " + eth0, eth0},
           {"delete /interfaces/interface[name=*]/config", "/interfaces/interface[name=*]/config"},
           {"delete /interfaces/interface[name=*]/config/description", ""},
           {"delete /interfaces/.../mtu", "/interfaces/.../mtu"},
           {"delete /system/dns", ""},
           {"delete /system", "/system"},
           {"replace / {}", "/"},
           {"delete /interfaces/interface[name=nobody]", "/interfaces/interface[name=nobody]"},
       }) {
    auto const before = bench.leaves();
    SCOPED_TRACE(set);
    grpc::Status const status = bench.guardedSet(setRequest(set));
    SCOPED_TRACE(status.error_message());
    EXPECT_EQ(status.error_code(), refused.empty() ? StatusCode::OK : StatusCode::PERMISSION_DENIED);
    if (refused.empty()) continue;
    EXPECT_TRUE(status.error_message().starts_with(refused + ": "));
    EXPECT_EQ(difference(before, bench.leaves()), "");
  }
}

TEST(Access, WhoMayWriteNothingTakesNothingBackAndIsNoMaster) {
  GuardedBench bench({{"group *", "/", false, true}});
  gnmi::SetRequest request;
  auto& commit = *request.add_extension()->mutable_commit();
  commit.set_id("x");
  commit.mutable_cancel();
  EXPECT_EQ(bench.guardedSet(request).error_code(), StatusCode::PERMISSION_DENIED);
  request.clear_extension();
  request.add_extension()->mutable_master_arbitration()->mutable_election_id()->set_low(7);
  EXPECT_EQ(bench.guardedSet(request).error_code(), StatusCode::PERMISSION_DENIED);
}

TEST(Access, AGetGivesWhatMayBeReadAndNothingElseIsThere) {
  GuardedBench bench({{"group *", "/interfaces/interface[name=*]/state", false, true},
                      {"group *", "/interfaces/interface[name=eth1]/state", false, false},
                      {"group *", "/system/config", false, true}});
  for (gnmi::Encoding const encoding : {gnmi::PROTO, gnmi::JSON, gnmi::JSON_IETF}) {
    gnmi::GetResponse response;
    ASSERT_TRUE(bench.guardedGet(getRequest({"/interfaces"}, encoding), response).ok());
    std::string const text = response.ShortDebugString();
    EXPECT_NE(text.find("eth0"), std::string::npos) << text;
    EXPECT_NE(text.find("in-octets"), std::string::npos) << text;
    EXPECT_EQ(text.find("eth1"), std::string::npos) << text;
    EXPECT_EQ(text.find("\"config\""), std::string::npos) << text;
    for (char const* const hidden :
         {"/interfaces/interface[name=eth1]", "/interfaces/interface[name=eth0]/config",
          "/interfaces/interface[name=none]", "/system/dns", "/components"})
      EXPECT_EQ(bench.guardedGet(getRequest({hidden}, encoding), response).error_code(),
                StatusCode::NOT_FOUND)
          << hidden;
  }
}

} // namespace
