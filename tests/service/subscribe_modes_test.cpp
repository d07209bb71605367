// ONCE, POLL and STREAM against the tree, over gRPC.
#include <gmock/gmock.h>

#include "agent/paths/Pattern.h"
#include "service/subscribe_testing.h"

using namespace ServiceTesting;
using testing::ElementsAre;

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

class SubscribeModes : public testing::Test {
protected:
  Bench bench;
  Server server{bench.runtime()};

  std::unique_ptr<Subscriber> call(gnmi::SubscribeRequest const& request) {
    auto made = std::make_unique<Subscriber>(bench, server.channel());
    made->send(request);
    return made;
  }
};

TEST_F(SubscribeModes, updatesOnlyBeginsWithTheSync) {
  auto const eth0 = bench.addInterface("eth0");
  auto const client = call(stream().add("/interfaces").updatesOnly().done());
  EXPECT_TRUE(client->next().sync_response());
  eth0->state->leafIs(&Agent::InterfaceState::mtu, 99);
  EXPECT_EQ(client->next().update().update(0).val().uint_val(), 99U);
  auto const snapshot = call(once().add("/interfaces").updatesOnly().done());
  EXPECT_TRUE(snapshot->next().sync_response());
  EXPECT_TRUE(snapshot->status().ok());
  auto const polled = call(poll().add("/interfaces").updatesOnly().done());
  EXPECT_TRUE(polled->next().sync_response());
  polled->send(pollNow());
  EXPECT_TRUE(polled->next().sync_response());
}

TEST_F(SubscribeModes, theListAndEachPollGiveASnapshotAndASync) {
  auto const eth0 = bench.addInterface("eth0", 1500);
  auto const client = call(poll().add("/interfaces/interface/state/mtu").done());
  for (std::uint16_t mtu : {1500, 1600, 1700}) {
    EXPECT_EQ(client->untilSync(), 1);
    EXPECT_EQ(client->tree["/interfaces/interface[name=eth0]/state/mtu"], fmt::format("uint_val:{}", mtu));
    eth0->state->leafIs(&Agent::InterfaceState::mtu, mtu + 100);
    client->send(pollNow());
  }
  EXPECT_EQ(client->untilSync(), 1);
  client->halfClose();
  EXPECT_TRUE(client->status().ok());
}

TEST_F(SubscribeModes, aLongListIsPreparedInTurnsWhileThePollWaits) {
  bench.addInterface("eth0");
  Request list = poll();
  for (int i = 0; i < 200; ++i)
    list.add(fmt::format("/interfaces/interface[name=eth{}]/state/mtu", i));
  auto const client = call(list.done());
  client->send(pollNow());
  client->halfClose();
  EXPECT_EQ(client->untilSync() + client->untilSync(), 2);
  EXPECT_TRUE(client->status().ok());
}

// What belongs to other models is neither walked nor told of, its ends included.
TEST_F(SubscribeModes, useModelsLeavesOutTheOthers) {
  auto const eth0 = bench.addInterface("eth0");
  auto const unit = eth0->subinterfaces->entryIs(&Agent::Subinterfaces::subinterface, 0);
  for (auto const mode : {gnmi::ON_CHANGE, gnmi::TARGET_DEFINED}) {
    gnmi::SubscribeRequest request = stream().add("/interfaces/interface[name=eth0]", mode).done();
    request.mutable_subscribe()->add_use_models()->set_name("openconfig-if-ip");
    auto const client = call(request);
    client->untilSync();
    eth0->state->leafIs(&Agent::InterfaceState::mtu, 77);
    eth0->state->leafIs(&Agent::InterfaceState::mtu, std::nullopt);
    unit->ipv4->state->leafIs(&Agent::IpState::mtu, 88);
    unit->ipv4->state->leafIs(&Agent::IpState::mtu, std::nullopt);
    EXPECT_TRUE(client->applyUntil([&] { return !client->deletes.empty(); }));
    EXPECT_THAT(client->deletes, ElementsAre(testing::EndsWith("/ipv4/state/mtu")));
    for (auto const& [path, value] : client->tree)
      EXPECT_THAT(path, testing::ContainsRegex("/ipv[46]/"));
    EXPECT_FALSE(client->tree.empty());
  }
}

TEST_F(SubscribeModes, aHalfClosedStreamGoesOnAndACancelledOneIsForgotten) {
  auto const eth0 = bench.addInterface("eth0");
  auto const client = call(stream().add("/interfaces").done());
  client->halfClose();
  client->untilSync();
  eth0->state->leafIs(&Agent::InterfaceState::mtu, 77);
  EXPECT_TRUE(client->applyUntil(
      [&] { return client->tree["/interfaces/interface[name=eth0]/state/mtu"] == "uint_val:77"; }));
  EXPECT_EQ(bench.runtime().calls().count(), 1U);
  client->cancel();
  EXPECT_EQ(client->status().error_code(), grpc::StatusCode::CANCELLED);
  EXPECT_TRUE(bench.settleUntil([&] { return bench.runtime().calls().count() == 0; }));
}

TEST_F(SubscribeModes, originTargetAndEncodingAreThoseAskedFor) {
  bench.addInterface("eth0")->state->counters->leafIs(&Agent::InterfaceCounters::inOctets, 1'234'567'890'123);
  for (auto const& [encoding, value] : std::vector<std::pair<gnmi::Encoding, std::string>>{
           {gnmi::PROTO, "uint_val: 1234567890123"},
           {gnmi::JSON, "json_val: \"1234567890123\""},
           {gnmi::JSON_IETF, "json_ietf_val: \"\\\"1234567890123\\\"\""}}) {
    for (bool const inPrefix : {false, true}) {
      char const* const origin = encoding == gnmi::PROTO  ? ""
                                 : encoding == gnmi::JSON ? "openconfig"
                                                          : "openconfig-interfaces";
      Request made = once();
      made.encoding = encoding;
      gnmi::SubscribeRequest request = made.add("/interface[name=eth0]/state/counters/in-octets").done();
      gnmi::Path& prefix = *request.mutable_subscribe()->mutable_prefix();
      prefix = path("/interfaces");
      prefix.set_target("here");
      (inPrefix ? prefix : *request.mutable_subscribe()->mutable_subscription(0)->mutable_path())
          .set_origin(origin);
      gnmi::Notification const answer = call(request)->next().update();
      EXPECT_EQ(answer.prefix().origin(), origin);
      EXPECT_EQ(answer.prefix().target(), "here");
      EXPECT_EQ(text(answer.prefix(), answer.update(0).path()),
                "/interfaces/interface[name=eth0]/state/counters/in-octets");
      EXPECT_EQ(answer.update(0).val().ShortDebugString(), value);
    }
  }
}

// --- samples, heartbeats -----------------------------------------------------------------------------------

TEST_F(SubscribeModes, samplesComeAtEachTickWithThePresentTime) {
  auto const eth0 = bench.addInterface("eth0");
  auto const client =
      call(stream().add("/interfaces/interface/state/counters/in-octets", gnmi::SAMPLE, 2 * kSecond).done());
  EXPECT_EQ(client->untilSync(), 1);
  std::int64_t last = 0;
  for (int tick = 0; tick < 3; ++tick) {
    if (tick == 1) eth0->state->counters->leafIs(&Agent::InterfaceCounters::inOctets, 5);
    bench.advance(2 * kSecond);
    gnmi::Notification const sample = client->next().update();
    EXPECT_EQ(sample.update(0).val().uint_val(), tick == 0 ? 0U : 5U);
    EXPECT_GE(sample.timestamp(), last + (tick == 0 ? 0 : 2 * kSecond));
    last = sample.timestamp();
  }
  eth0->state->containerDel(&Agent::InterfaceState::counters); // ends are told at once
  EXPECT_EQ(client->next().update().delete__size(), 1);
}

TEST_F(SubscribeModes, suppressedSamplesAndHeartbeats) {
  auto const eth0 = bench.addInterface("eth0");
  auto const client =
      call(stream()
               .add("/interfaces/interface/state/mtu", gnmi::SAMPLE, kSecond, 3 * kSecond, true)
               .add("/interfaces/interface/state/counters", gnmi::ON_CHANGE, 0, 3 * kSecond)
               .done());
  client->untilSync();
  std::map<int, std::vector<std::string>> told; // second -> leaves
  auto& counters = *eth0->state->counters;
  for (int second = 1; second <= 7; ++second) {
    if (second == 5) eth0->state->leafIs(&Agent::InterfaceState::mtu, 1000);
    bench.advance(kSecond);
    counters.leafIs(&Agent::InterfaceCounters::outOctets, 100 + second); // a mark that ends the second
    for (bool marked = false; !marked;) {
      gnmi::Notification const got = client->next().update();
      for (gnmi::Update const& update : got.update()) {
        std::string const leaf = update.path().elem(update.path().elem_size() - 1).name();
        marked = marked || (leaf == "out-octets" && update.val().uint_val() == 100U + second);
        if (leaf != "out-octets") told[second].push_back(leaf);
      }
    }
  }
  EXPECT_THAT(told, // the snapshot counts as sent; the mtu is told when it changes or has not for a heartbeat
              ElementsAre(testing::Pair(3, testing::UnorderedElementsAre("mtu", "in-octets")),
                          testing::Pair(5, ElementsAre("mtu")), testing::Pair(6, ElementsAre("in-octets"))));
}

TEST_F(SubscribeModes, targetDefinedTellsEventsAtOnceAndSamplesCounters) {
  auto const eth0 = bench.addInterface("eth0");
  auto const client =
      call(stream().add("/interfaces/interface/state", gnmi::TARGET_DEFINED, 2 * kSecond).done());
  client->untilSync();
  eth0->state->counters->leafIs(&Agent::InterfaceCounters::inOctets, 5);
  eth0->state->leafIs(&Agent::InterfaceState::mtu, 1000);
  EXPECT_EQ(client->next().update().update(0).val().uint_val(), 1000U); // the counter waits
  bench.advance(2 * kSecond);
  gnmi::Notification const sample = client->next().update();
  ASSERT_EQ(sample.update_size(), 1);
  EXPECT_EQ(sample.update(0).val().uint_val(), 5U);
}

TEST_F(SubscribeModes, aLeafBelongsToTheNearestSubscription) {
  auto const eth0 = bench.addInterface("eth0");
  auto const client = call(stream()
                               .add("/interfaces", gnmi::ON_CHANGE)
                               .add("/interfaces/interface/state/counters", gnmi::SAMPLE, 5 * kSecond)
                               .add("/interfaces", gnmi::ON_CHANGE) // once more
                               .done());
  int const initial = client->untilSync();
  EXPECT_EQ(initial, static_cast<int>(client->tree.size())) << "each leaf once";
  eth0->state->counters->leafIs(&Agent::InterfaceCounters::inOctets, 5);
  eth0->state->leafIs(&Agent::InterfaceState::mtu, 1000);
  EXPECT_EQ(client->next().update().update(0).val().uint_val(), 1000U);
  bench.advance(5 * kSecond);
  EXPECT_EQ(client->next().update().update(0).val().uint_val(), 5U);
}

// The machine's clock leaps by a day, and back.
TEST_F(SubscribeModes, aClockThatLeapsIsFollowedOnceItHasStoodAndNoLeafGetsAnEarlierTime) {
  constexpr std::int64_t kDay = 86'400 * kSecond;
  auto const made = bench.addInterface("eth0");
  std::uint64_t octets = 0;
  std::string const leaf = "/interfaces/interface[name=eth0]/state/counters/in-octets";
  auto client = call(stream().add(leaf).done());
  client->untilSync();
  // How far the time of a change now is from `since` and what has gone by since then.
  std::int64_t const wall = bench.clock().wallNs() - bench.clock().monotonicNs();
  auto const offset = [&] {
    made->state->counters->leafIs(&Agent::InterfaceCounters::inOctets, ++octets);
    bench.advance(kSecond / 10);
    EXPECT_TRUE(client->applyUntil([&] { return client->tree[leaf] == fmt::format("uint_val:{}", octets); }));
    return client->stamps[leaf] - (bench.clock().monotonicNs() + wall);
  };
  auto const leap = [&](std::int64_t ns) { bench.clock().wallNsIs(bench.clock().wallNs() + ns); };
  auto const isNear = [](std::int64_t one, std::int64_t other) {
    return std::abs(one - other) < 2 * kSecond;
  };

  leap(kDay);
  bench.advance(8 * kSecond);
  EXPECT_TRUE(isNear(offset(), 0)) << "not believed yet";
  leap(-kDay);
  EXPECT_TRUE(isNear(offset(), 0));
  bench.advance(20 * kSecond);
  leap(-kSecond / 2);
  EXPECT_TRUE(isNear(offset(), 0)) << "a small step back is waited for";
  leap(kSecond / 2 + kDay);
  bench.advance(11 * kSecond);
  EXPECT_TRUE(isNear(offset(), kDay)) << "it has stood";
  leap(-kDay);
  EXPECT_TRUE(isNear(offset(), kDay));
  EXPECT_EQ(client->complaints, std::vector<std::string>());
  bench.advance(11 * kSecond);
  EXPECT_EQ(client->status().error_message(), "the machine's clock was set back: subscribe again");
  client = call(stream().add(leaf).done());
  client->untilSync();
  EXPECT_TRUE(isNear(offset(), 0)) << "without a restart";
  EXPECT_EQ(client->complaints, std::vector<std::string>());
}

} // namespace
