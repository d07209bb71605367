// The laws over random data of the modules, with the schema library as the judge that stands outside.
#include <gmock/gmock.h>

#include <fmt/format.h>
#include <google/protobuf/stubs/logging.h>
#include <libyang/libyang.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <set>

#include "Kel/Dir.h"
#include "agent/data/StatePlan.h"
#include "agent/yang/YangData.h"
#include "ondra/WalkHarness.h"
#include "service/subscribe_testing.h"
#include "yang/yang_testing.h"

namespace {

using ServiceTesting::difference;
using YangTesting::fileOf;
using YangTesting::randomData;
using YangTesting::Tree;

ly_ctx const* context() { return YangTesting::model().modules().context(); }

// "PATH=VALUE" of all leaves, of leaf-lists in their order, and of containers with a presence.
std::set<std::string> leavesOf(lyd_node const* tree) {
  std::set<std::string> all;
  for (lyd_node const* root = tree; root != nullptr; root = root->next) {
    lyd_node const* each = nullptr;
    LYD_TREE_DFS_BEGIN(root, each) {
      bool const isPresence =
          each->schema->nodetype == LYS_CONTAINER && (each->schema->flags & LYS_PRESENCE) != 0;
      if (isPresence || (each->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0) {
        std::unique_ptr<char, void (*)(void*)> const path(lyd_path(each, LYD_PATH_STD, nullptr, 0),
                                                          &std::free);
        all.insert(fmt::format("{}={}", path.get(), isPresence ? "{}" : lyd_get_value(each)));
      }
      LYD_TREE_DFS_END(root, each);
    }
  }
  return all;
}

TEST(YangLaw, DataComesOutAsItWentIn) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Tree const given = randomData(seed);
    std::map<std::string, std::string> fromJson, configured;
    gnmi::SetRequest again;
    {
      YangTesting::Bench bench;
      bench.load(fileOf(given, LYD_JSON));
      std::string const told = bench.value("/", gnmi::JSON_IETF);
      lyd_node* back = nullptr;
      ASSERT_EQ(
          lyd_parse_data_mem(context(), told.c_str(), LYD_JSON, LYD_PARSE_STRICT | LYD_PARSE_ONLY, 0, &back),
          LY_SUCCESS)
          << ly_errmsg(context()) << " " << told;
      EXPECT_EQ(leavesOf(back), leavesOf(given.get()));
      EXPECT_EQ(lyd_validate_all(&back, context(), 0, nullptr), LY_SUCCESS) << ly_errmsg(context());
      Tree const held(back, &lyd_free_all);
      fromJson = bench.leaves();
      configured = bench.leaves(gnmi::GetRequest::CONFIG);
      again = bench.configuration();
    }
    {
      YangTesting::Bench bench;
      bench.load(fileOf(given, LYD_XML));
      EXPECT_EQ(difference(fromJson, bench.leaves()), "");
    }
    // What a walk tells, sent back to an empty agent, gives the same tree.
    YangTesting::Bench bench;
    grpc::Status const status = bench.set(again);
    EXPECT_TRUE(status.ok()) << status.error_message();
    EXPECT_EQ(difference(configured, bench.leaves()), "");
  }
}

// Wherever it stops, for want of time or of room in the pipe; of what nobody has walked yet, and again.
TEST(YangLaw, ACutWalkIsAWholeWalk) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    YangTesting::Bench bench;
    bench.load(fileOf(randomData(seed), LYD_JSON));
    std::size_t const leaves = bench.leaves().size();
    Kel::Ptr<Kel::Entity> const root = Agent::dataRootIn(*Kel::globalDir());
    WalkHarness harness;
    for (auto const& [questions, pushes] : {std::pair(1U, 0U), {2U, 0U}, {0U, 1U}, {7U, 3U}}) {
      WalkHarness::clearAll();
      auto const flags = Ondra::flagSnapshot | Ondra::flagStream;
      auto const whole = harness.leavesOf(*root);
      EXPECT_GE(whole.size(), leaves); // unions that hold nothing are told here
      for (bool const again : {false, true}) {
        RecordingRouter router(pushes);
        router.takesLeavesOnce = true;
        unsigned asked = 0;
        auto walk = harness.start(router, *root, flags, [&asked, questions = questions] {
          return questions != 0 && ++asked % questions == 0;
        });
        EXPECT_GT(WalkHarness::finish(walk), leaves / 100) << again;
        EXPECT_EQ(router.leaves(), whole);
        EXPECT_THAT(router.complaints, testing::IsEmpty());
      }
    }
  }
}

TEST(YangLaw, SnapshotPlusChangesIsTheTruth) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  YangTesting::Bench bench;
  ServiceTesting::Subscriber client(bench, bench.channel());
  client.send(ServiceTesting::stream().add("/", gnmi::ON_CHANGE).done());
  std::mt19937 random(1);
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    bench.load(fileOf(randomData(seed), LYD_JSON));
    if (seed % 3 == 0) {
      std::string const top = fmt::format("/random-{}", 1 + random() % 8);
      EXPECT_TRUE(bench.provided(fmt::format("delete {}\ndelete /top-list\ndelete /top-leaf", top)).ok());
    }
    bench.advance(kSecond);
    ServiceTesting::Subscriber fresh(bench, bench.channel());
    fresh.send(ServiceTesting::once().add("/").done());
    fresh.untilSync();
    EXPECT_EQ(fresh.tree.size(), bench.leaves().size());
    static_cast<void>(client.applyUntil([&] { return client.tree == fresh.tree; }));
    ASSERT_EQ(client.tree, fresh.tree);
    EXPECT_THAT(client.complaints, testing::IsEmpty());
  }
}

// All that a plan says, in its order.
std::string shown(Agent::PlanNode const& node) {
  std::string text = fmt::format("{} {} {} {}\n", node.path(), node.isNamed, node.isCleared,
                                 node.value ? node.value->ShortDebugString() : "");
  for (auto const& child : node.children())
    text += shown(*child);
  return text;
}

// Of random leaves with values of their own or of others, and of bytes of which one has been changed.
TEST(YangLaw, TheShortWayOfAPlanIsTheWholeOne) {
  google::protobuf::LogSilencer const silencer;
  std::mt19937 random(1);
  gnmi::SetRequest all;
  unsigned taken = 0;
  for (unsigned i = 0; i < 2'000; ++i) {
    if (i % 200 == 0) {
      YangTesting::Bench bench;
      bench.load(fileOf(randomData(i), LYD_JSON));
      all = bench.configuration(gnmi::GetRequest::ALL);
    }
    auto const leaf = [&all](std::size_t at) {
      return all.update(static_cast<int>(at % static_cast<std::size_t>(all.update_size())));
    };
    gnmi::SetRequest request;
    std::size_t const first = random();
    gnmi::PathElem const top = leaf(first).path().elem(0);
    bool const hasPrefix = random() % 2 == 0;
    if (hasPrefix) *request.mutable_prefix()->add_elem() = top;
    for (std::size_t many = 1 + random() % 30, at = first; many > 0; --many, ++at) {
      gnmi::Update update = leaf(random() % 8 == 0 ? random() : at);
      if (random() % 100 == 0) *update.mutable_val() = leaf(random()).val();
      if (random() % 100 == 0 && update.path().elem_size() > 1)
        update.mutable_path()->mutable_elem()->RemoveLast();
      if (random() % 100 == 0) update.mutable_path()->set_origin(random() % 2 == 0 ? "openconfig" : "none");
      if (hasPrefix && update.path().elem(0).SerializeAsString() != top.SerializeAsString()) continue;
      if (hasPrefix) update.mutable_path()->mutable_elem()->DeleteSubrange(0, 1);
      *request.add_update() = update;
    }
    if (request.update().empty()) continue;
    std::string bytes = request.SerializeAsString();
    bool const isChanged = random() % 2 == 0;
    if (isChanged) bytes[random() % bytes.size()] ^= static_cast<char>(1U << random() % 8);

    auto const made = Agent::statePlanOf(bytes);
    taken += made ? 1 : 0;
    bool const isMessage = request.ParseFromString(bytes);
    auto const whole = Agent::setPlanOf(request, nullptr, Agent::Writer::Provider);
    ASSERT_TRUE(made ? isMessage && whole.ok() : isChanged || !whole.ok()) << i << request.DebugString();
    if (!made) continue;
    ASSERT_EQ(shown(made->plan->root), shown((*whole)->root)) << i;
    gnmi::SetResponse answer, wanted;
    ASSERT_TRUE(answer.ParseFromArray(made->answer.begin(), static_cast<int>(made->answer.size())));
    if (request.has_prefix()) *wanted.mutable_prefix() = request.prefix();
    for (gnmi::Update const& update : request.update()) {
      wanted.add_response()->set_op(gnmi::UpdateResult::UPDATE);
      *wanted.mutable_response()->rbegin()->mutable_path() = update.path();
    }
    EXPECT_EQ(answer.DebugString(), wanted.DebugString()) << i;
  }
  EXPECT_GT(taken, 500U);
}

TEST(YangData, WhatDoesNotFitIsRefusedWithItsPlace) {
  YangTesting::Bench bench;
  for (auto const& [text, what] : std::initializer_list<std::pair<char const*, char const*>>{
           {"", "parse error"},
           {"{} {}", "parse error"},
           {R"({"every:every":{"config":{"i8":1,"i8":2}}})", "there twice"},
           {"\xef\xbb\xbf{\"every:every\":\n{\"config\":{\"i16\":1\n,\"u8\":1,\n\"i8\":200\n}}}",
            "bad:4: /every:every/config/i8: "},
           {"{\"every:every\":{\"config\":\n{\"posix\":\"abd\"}}}",
            "bad:2: /every:every/config/posix: it does not match"},
           {R"({"every:every":{"config":{"nothing":1}}})", "nothing"},
           {R"({"nobody:every":{}})", "nobody"},
           {"<every xmlns='urn:ondra:every'><config>\n<i8>x</i8></config></every>",
            "bad:2: /every:every/config/i8"},
           // What does not hold as a whole: the node, or the entry that lacks one.
           {"{\"every-rules:rules\":{\"spare\":[\n\"a\",\n\"x\"],\"port\":[{\"name\":\"a\"}]}}",
            "bad:3: /every-rules:rules/spare[.='x']: Invalid leafref"},
           {"{\"every-rules:rules\":{\"port\":[{\"name\":\"a\",\"speed\":1},\n{\"speed\":\n101\n,\"name\":"
            "\"b\"}]}}",
            "bad:2: /every-rules:rules/port[name='b']/speed: Must"},
           {"{\"every-rules:rules\":{\"port\":[{\"name\":\"a\",\n\"on\":{}}]}}",
            "bad:2: /every-rules:rules/port[name='a']/on/since: Mandatory"},
           {"<!-- <a> --><r:rules xmlns:r='urn:ondra:every-rules'><port xmlns='urn:ondra:every-rules'>\n"
            "<name>a</name></port>\n<r:port "
            "xmlns:a='/>'><r:name>b</r:name>\n<r:slot>1</r:slot></r:port></r:rules>",
            "bad:4: /every-rules:rules/port[name='b']/slot: When"},
       }) {
    std::string const file = testing::TempDir() + "bad";
    std::ofstream(file, std::ios::binary) << text;
    auto const filled = Agent::yangDataInto(*Kel::globalDir(), YangTesting::model(), {file});
    ASSERT_FALSE(filled.ok()) << text;
    EXPECT_THAT(filled.error(), testing::HasSubstr(what)) << text;
  }
}

// Its key points into a configuration that it does not have: it need not hold.
TEST(YangData, AnEntryOfStateAloneIsNoConfiguration) {
  YangTesting::Bench bench;
  std::string const file = testing::TempDir() + "state";
  for (bool const isState : {true, false}) {
    std::ofstream(file) << fmt::format(R"({{"every-rules:rules":{{"bay":[{{"id":"a",{}}}]}}}})",
                                       isState ? R"("state":{"used":1})" : R"("door":{"color":"red"})");
    auto const filled = Agent::yangDataInto(*Kel::globalDir(), YangTesting::model(), {file});
    EXPECT_EQ(filled.ok(), isState) << (filled.ok() ? "" : filled.error());
  }
}

} // namespace
