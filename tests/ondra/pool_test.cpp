// The pool of responses: reuse, bound, counters, release from any thread and after the end of the pool.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/responses/ArenaBlocks.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

using Ondra::ArenaPool, Ondra::ArenaRespMsg, Ondra::Path;

ArenaRespMsg::Ptr created(std::string const& prefix = "/p", long timestamp = 1) {
  return ArenaRespMsg::createResponse(Path::strToPathIs(prefix), timestamp).first;
}

// What the counters have gone up by since it was made.
struct Counted {
  std::uint64_t const madeBefore = Ondra::arenaMsgCount, recycledBefore = Ondra::arenaRecycleCount;
  std::uint64_t const releasedBefore = Ondra::arenaReleaseCount;
  [[nodiscard]] std::uint64_t made() const { return Ondra::arenaMsgCount - madeBefore; }
  [[nodiscard]] std::uint64_t recycled() const { return Ondra::arenaRecycleCount - recycledBefore; }
  [[nodiscard]] std::uint64_t released() const { return Ondra::arenaReleaseCount - releasedBefore; }
};

TEST(ArenaPool, HandsOutTheLatestReleaseEmptied) {
  ArenaRespMsg::Ptr first = created();
  ArenaRespMsg::Ptr second = created();
  ArenaRespMsg const* const firstWas = first.get();
  ArenaRespMsg const* const secondWas = second.get();
  auto* const update = second->response->mutable_update();
  update->add_update()->mutable_val()->set_string_val(std::string(100'000, 'x'));
  update->add_delete_()->add_elem()->set_name("d");
  update->mutable_prefix()->set_origin("o");

  Counted const counted;
  first.reset();
  second.reset();
  auto const [again, notification] = ArenaRespMsg::createResponse(Path::strToPathIs("/q[k=1]"), 9);
  EXPECT_EQ(again.get(), secondWas);
  EXPECT_EQ(notification, again->response->mutable_update());
  EXPECT_EQ(again->response->ShortDebugString(),
            R"(update { timestamp: 9 prefix { elem { name: "q" key { key: "k" value: "1" } } } })");
  EXPECT_EQ(again->toString(), "timestamp:9 prefix:/q[k=1] ");
  EXPECT_EQ(created().get(), firstWas);
  EXPECT_EQ(counted.made(), 0U);
  EXPECT_EQ(counted.recycled(), 2U);
  EXPECT_EQ(counted.released(), 3U);
}

TEST(ArenaPool, IsBounded) {
  Counted const counted;
  std::vector<ArenaRespMsg::Ptr> held;
  for (std::uint32_t i = 0; i < ArenaPool::ARENA_POOL_SIZE + 10; ++i)
    held.push_back(created());
  std::uint64_t const existing = Ondra::arenaMsgCount;
  EXPECT_EQ(Ondra::arenaPool.dumpState().find("ArenaPool: buffer.size:"), 0U);
  held.clear();
  ArenaRespMsg::Deleter()(nullptr); // counted, and nothing else
  EXPECT_EQ(Ondra::arenaPool.size(), 2000U);
  EXPECT_EQ(Ondra::arenaMsgCount, existing - 10);
  EXPECT_EQ(counted.released(), 2011U);
}

// Blocks come back to the cache whatever their size, and the cache does not grow with what was in flight.
TEST(ArenaPool, CachesBlocksUpToItsBound) {
  auto const large = [] {
    ArenaRespMsg::Ptr msg = created();
    for (int i = 0; i < 4000; ++i)
      msg->response->mutable_update()->add_update()->mutable_val()->set_uint_val(1);
    return msg;
  };
  std::vector<ArenaRespMsg::Ptr> held;
  for (std::size_t bytes = 0; bytes < 2 * Ondra::ArenaBlocks::kCachedBytesMax;)
    bytes += held.emplace_back(large())->spaceAllocated();
  held.clear();
  EXPECT_LE(Ondra::ArenaBlocks::cachedBytes(), Ondra::ArenaBlocks::kCachedBytesMax);
  EXPECT_GT(Ondra::ArenaBlocks::cachedBytes(), Ondra::ArenaBlocks::kCachedBytesMax / 2);

  // A message as large as one of those takes its blocks from there.
  std::size_t const waiting = Ondra::ArenaBlocks::cachedBytes();
  ArenaRespMsg::Ptr const msg = large();
  EXPECT_LT(Ondra::ArenaBlocks::cachedBytes(), waiting - msg->spaceAllocated() / 2);
}

// One thread makes and fills, others let go: every message is empty when it is made again, and none is lost.
TEST(ArenaPool, ReleasesOnOtherThreads) {
  constexpr int kThreads = 3;
  constexpr int kSlots = 64;
  std::vector<std::atomic<ArenaRespMsg::Ptr*>> slots(kSlots);
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&slots, &stop, t] {
      std::mt19937 random(static_cast<unsigned>(t));
      while (!stop)
        delete slots[random() % kSlots].exchange(nullptr);
    });
  }
  Counted const counted;
  constexpr std::uint64_t kRounds = 5000;
  std::mt19937 random(1);
  for (std::uint64_t i = 1; i <= kRounds; ++i) {
    auto made = ArenaRespMsg::createResponse(Path::strToPathIs("/p"), static_cast<long>(i));
    ASSERT_EQ(made.first->toString(), "timestamp:" + std::to_string(i) + " prefix:/p ");
    for (unsigned leaves = random() % 50; leaves > 0; --leaves)
      made.second->add_update()->mutable_val()->mutable_string_val()->assign("longer than inline texts");
    delete slots[random() % kSlots].exchange(new ArenaRespMsg::Ptr(std::move(made.first)));
  }
  stop = true;
  for (std::thread& thread : threads)
    thread.join();
  for (auto& slot : slots)
    delete slot.exchange(nullptr);
  EXPECT_EQ(counted.released(), kRounds);
  EXPECT_EQ(counted.recycled() + counted.made(), kRounds);
}

// Ends the process with a code that says which expectation failed first.
void require(bool holds, int code) {
  if (!holds) std::_Exit(code);
}

void purge() {
  ArenaRespMsg::Ptr held = created();
  created().reset();
  require(Ondra::arenaPool.size() == 1, 1);
  Ondra::arenaPool.purge();
  require(Ondra::arenaPool.size() == 0 && Ondra::arenaMsgCount == 1, 2);
  require(Ondra::arenaPool.dumpState() == "ArenaPool: buffer.size:0\n", 3);
  require(Ondra::ArenaBlocks::cachedBytes() == 0, 4);
  held.reset();
  require(Ondra::arenaMsgCount == 0 && Ondra::arenaPool.size() == 0, 5);
  std::uint64_t const recycled = Ondra::arenaRecycleCount;
  held = created();
  require(held->toString() == "timestamp:1 prefix:/p " && Ondra::arenaRecycleCount == recycled, 6);
  std::_Exit(0);
}

// A holder that lives longer than the library's statics.
void outlive() {
  static ArenaRespMsg::Ptr* const late = new ArenaRespMsg::Ptr(created());
  Ondra::arenaPool.~ArenaPool(); // as the end of the process does
  late->reset();
  require(Ondra::arenaMsgCount == 0, 1);
  *late = created();
  require(Ondra::arenaMsgCount == 1, 2);
  late->reset();
  std::_Exit(0);
}

TEST(ArenaPoolProcess, NothingIsKeptAfterAPurgeNorAfterTheEndOfThePool) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(purge(), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(outlive(), testing::ExitedWithCode(0), "");
  GTEST_FLAG_SET(death_test_style, "fast");
}

} // namespace
