// Timed blocks and the ring of messages on a simulated clock; that nothing is read while it is off.
#include <gtest/gtest.h>

#include "Fleck/Timer.h"
#include "Tovak/Clock.h"

namespace {

constinit Fleck::Block slowBlock{"FtSlow"};
constinit Fleck::Block fastBlock{"FtFast"};

class FleckTimer : public ::testing::Test {
protected:
  void SetUp() override {
    Fleck::reset();
    Fleck::clockIs(&clock_);
  }
  void TearDown() override {
    Fleck::onIs(false);
    Fleck::clockIs(nullptr);
    Fleck::reset();
  }
  void run(Fleck::Block& block, std::int64_t ns) {
    Fleck::ScopedTimer const timer(block);
    clock_.advance(ns);
  }
  Tovak::SimulatedClock clock_;
};

TEST_F(FleckTimer, CountsTotalAndMaximumPerBlockWhileOn) {
  run(slowBlock, 5); // off
  Fleck::onIs(true);
  run(slowBlock, 100);
  run(slowBlock, 700);
  run(slowBlock, 200);
  run(fastBlock, 1);
  EXPECT_EQ(Fleck::dump(), "FtFast: count 1, total 1 ns, max 1 ns\n"
                           "FtSlow: count 3, total 1000 ns, max 700 ns\n");
  Fleck::reset();
  run(fastBlock, 2);
  EXPECT_EQ(Fleck::dump(), "FtFast: count 1, total 2 ns, max 2 ns\n");
}

TEST_F(FleckTimer, OffReadsNoClock) {
  struct Unreadable : Tovak::Clock {
    std::int64_t monotonicNs() const override { return ++reads; }
    std::int64_t wallNs() const override { return ++reads; }
    std::int64_t blockNs(std::int64_t) override { return 0; }
    bool isSimulated() const override { return true; }
    mutable std::int64_t reads = 0;
  } clock;
  Fleck::clockIs(&clock);
  run(slowBlock, 1);
  Fleck::message("dropped");
  EXPECT_EQ(clock.reads, 0);
  Fleck::onIs(true);
  run(slowBlock, 1);
  EXPECT_EQ(clock.reads, 2);
  EXPECT_TRUE(Fleck::messages().empty());
}

TEST_F(FleckTimer, KeepsTheLatestMessagesInOrder) {
  Fleck::onIs(true);
  for (size_t i = 0; i < Fleck::messageCapacity + 10; ++i) {
    clock_.advance(1);
    Fleck::message(std::to_string(i));
  }
  auto const kept = Fleck::messages();
  ASSERT_EQ(kept.size(), Fleck::messageCapacity);
  for (size_t i = 0; i < kept.size(); ++i) {
    ASSERT_EQ(kept[i].text, std::to_string(i + 10));
    ASSERT_EQ(kept[i].monotonicNs - kept[0].monotonicNs, static_cast<std::int64_t>(i));
  }
  Fleck::message(Tovak::String(5000, 'x'));
  EXPECT_EQ(Fleck::messages().back().text.size(), Fleck::messageMaxLength);
}

} // namespace
