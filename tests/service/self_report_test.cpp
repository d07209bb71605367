// What the agent tells of itself: the figures that a client finds, once a second, and nobody's to write.

#include <algorithm>
#include <cmath>
#include <random>

#include "agent/context/TimeHistogram.h"
#include "agent/model/Figures.h"
#include "agent/service/SelfReport.h"
#include "service/data_testing.h"
#include "service/subscribe_testing.h"

namespace {

using namespace ServiceTesting;

TEST(TimeHistogram, HoldsToAnEighth) {
  std::mt19937_64 chance(7);
  for (double const scale : {3.0, 12.0, 30.0}) {
    Agent::TimeHistogram histogram;
    std::vector<std::uint64_t> all;
    std::lognormal_distribution<double> time(scale, 2.0);
    for (int i = 0; i < 10'000; ++i) {
      all.push_back(static_cast<std::uint64_t>(time(chance)));
      histogram.add(static_cast<std::int64_t>(all.back()));
    }
    std::ranges::sort(all);
    for (std::size_t const perMille : {1U, 500U, 990U, 999U, 1'000U}) {
      auto const exact = static_cast<double>(all[perMille * all.size() / 1'000 - 1]);
      auto const told = static_cast<double>(histogram.most(perMille));
      EXPECT_GE(told, exact);
      EXPECT_LE(told, exact * 1.125) << perMille;
    }
    EXPECT_EQ(histogram.longest(), all.back());
  }
  EXPECT_EQ(Agent::TimeHistogram().most(500), 0U);
}

TEST(SelfReport, TellsWhatClientsFind) {
  Agent::declareFigures();
  DataBench bench;
  bench.fill();
  Agent::SelfReport const report(bench.runtime());
  auto const figure = [&](std::string const& path) { return bench.value("/ondra-agent/" + path); };
  std::size_t leaves = 0, bytes = 0, messages = 0;
  {
    Subscriber subscriber(bench, bench.channel());
    subscriber.send(stream().add("/interfaces").done());
    auto const take = [&](bool untilSync) { // or until a leaf
      for (gnmi::SubscribeResponse response;;) {
        response = subscriber.next();
        ++messages;
        bytes += response.ByteSizeLong();
        leaves += static_cast<std::size_t>(response.update().update_size());
        if (response.sync_response() || (!untilSync && response.update().update_size() > 0)) return;
      }
    };
    take(true);
    bench.addInterface("eth0")->state->leafIs(&Agent::InterfaceState::mtu, std::uint16_t{1'234});
    take(false);
    bench.advance(Agent::SelfReport::everyNs);
    std::string const stream = "streams/stream[id=1]/state/";
    EXPECT_EQ(figure(stream + "sent-messages"), fmt::format("{}", messages));
    EXPECT_EQ(figure(stream + "sent-leaves"), fmt::format("{}", leaves));
    EXPECT_EQ(figure(stream + "sent-bytes"), fmt::format("{}", bytes));
    EXPECT_EQ(figure(stream + "queued-bytes"), "0");
    EXPECT_EQ(figure(stream + "mode"), "\"STREAM\"");
    EXPECT_TRUE(figure(stream + "peer").starts_with("\"ipv"));
    EXPECT_EQ(figure("calls/call[method=Subscribe]/state/begun"), "1");
    EXPECT_NE(figure("slices/state/count"), "0");
  }
  // What is told changes once a second, also for who watches it.
  Subscriber watcher(bench, bench.channel());
  watcher.send(stream().add("/ondra-agent").done());
  watcher.untilSync();
  constexpr int kSeconds = 5;
  std::size_t told = 0;
  for (int i = 0; i < kSeconds; ++i) {
    bench.advance(Agent::SelfReport::everyNs);
    for (bool hasTime = false; !hasTime;) {
      gnmi::SubscribeResponse const response = watcher.next();
      watcher.apply(response);
      hasTime = std::ranges::any_of(response.update().update(), [&](gnmi::Update const& update) {
        return text(response.update().prefix(), update.path()).ends_with("/ondra-agent/state/time");
      });
      told += hasTime ? 1 : 0;
    }
  }
  EXPECT_EQ(told, static_cast<std::size_t>(kSeconds));
  EXPECT_TRUE(watcher.applyUntil(
      [&] { return !watcher.tree.contains("/ondra-agent/streams/stream[id=1]/state/id"); }));
  for (char const* const wrong :
       {"update /ondra-agent/state/time 1", "delete /ondra-agent/streams",
        "update /ondra-agent/calls/call[method=Get]/state/begun 0", "replace /ondra-agent {}"})
    EXPECT_EQ(bench.set(setRequest(wrong)).error_code(), grpc::StatusCode::INVALID_ARGUMENT) << wrong;
  bench.advance(Agent::SelfReport::everyNs);
  EXPECT_EQ(figure("refusals/refusal[reason=INVALID_ARGUMENT]/state/count"), "4");
}

} // namespace
