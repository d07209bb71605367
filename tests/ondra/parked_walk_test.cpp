// What is parked: the order of queues, the two maps, and walks that go on after changes.

#include <gmock/gmock.h>

#include "Tovak/Trace.h"
#include "Tovak/TraceSink.h"
#include "WalkHarness.h"
#include "WalkerProbe.h"
#include "fixture/Populate.h"
#include "fixture/Types.h"

namespace {

using Ondra::FullKelTypeWalker, Ondra::Path, Ondra::WalkId, Ondra::WalkQ, Ondra::WalkResult;
using testing::HasSubstr;

constexpr char const* kDevice = "/fixture/device";
constexpr char const* kChassis = "/fixture/device/chassis";
constexpr char const* kFan = "/fixture/device/chassis/fan";
constexpr char const* kEth0 = "/fixture/device/interface[name=eth0]";
constexpr char const* kRack = "/fixture/rack";

// With every object watched, and one walk to park for.
class Parked : public testing::Test {
protected:
  Parked() {
    harness.walked(recorder, *world.dir(), Ondra::flagStream);
    walk = harness.start(recorder, *world.device(), Ondra::flagSnapshot);
    stack = std::make_unique<WalkQ>(walk.info->syncWalkId, WalkQ::onStack);
    stack->task = walk.task;
  }
  ~Parked() override {
    walk.info->task.reset();
    stack->task.reset();
  }

  // Parks a walker of that prefix; returns its text.
  std::string park(std::string const& prefix, WalkQ* from = nullptr) {
    auto walker = std::make_unique<WalkerProbe>(prefix, recorder, from == nullptr ? stack.get() : from);
    walker->letGoOfObject();
    std::string text = walker->debugString();
    FullKelTypeWalker::addToWalkQ(std::move(walker));
    return text;
  }
  [[nodiscard]] WalkQ& queue() const { return FullKelTypeWalker::walkMap().at(walk.info->syncWalkId.second); }
  static std::string popped(WalkQ& from) {
    auto const walker = FullKelTypeWalker::popWalkQ(from);
    return walker ? walker->debugString() : "";
  }
  static void expectNothingParked() {
    EXPECT_EQ(FullKelTypeWalker::walkMapSize(), 0U);
    EXPECT_EQ(FullKelTypeWalker::pathWalkIdMapSize(), 0U);
  }

  Fixture::World world;
  RecordingRouter recorder; // outlives the notifiees that the harness ends
  WalkHarness harness;
  WalkHarness::Walk walk;
  std::unique_ptr<WalkQ> stack;
};

TEST_F(Parked, FirstInFirstOut) {
  std::string const a = park(kDevice), b = park(kChassis);
  auto other = harness.start(recorder, *world.device(), Ondra::flagSnapshot);
  stack->task = other.task;
  std::string const c = park(kRack, &queue()), again = park(kDevice, &queue());
  EXPECT_EQ(queue().task, walk.task) << "copied once, when the queue is stored";
  EXPECT_EQ(FullKelTypeWalker::walkMapSize(), 1U);
  WalkId const id = walk.info->syncWalkId.second;
  EXPECT_EQ(FullKelTypeWalker::dumpWalkMap(),
            fmt::format("walkId:{} walkList:[ \n{} \n{} \n{} \n{} ]\n", id, again, c, b, a));
  EXPECT_THAT(FullKelTypeWalker::dumpPathWalkIdMap(),
              HasSubstr(fmt::format("path:{} requestSet:[{}]\n", kRack, id)));
  EXPECT_EQ(popped(queue()), a);
  EXPECT_EQ(FullKelTypeWalker::pathWalkIdMapSize(), 3U) << "another walker of the same prefix is left";
  for (std::string const& expected : {b, c, again, std::string()})
    EXPECT_EQ(popped(queue()), expected);
  EXPECT_EQ(FullKelTypeWalker::dumpPathWalkIdMap(), "");
  other.info->task.reset();
}

TEST_F(Parked, DeletionDropsWhatLiesAtOrBelow) {
  std::vector<std::string> const all{kDevice, kChassis, kFan, kEth0, kRack};
  for (auto const& [path, left] :
       std::map<std::string, std::vector<std::string>>{// in the order of resumption
                                                       {kChassis, {kDevice, kEth0, kRack}},
                                                       {kFan, {kDevice, kChassis, kEth0, kRack}},
                                                       {kDevice, {kRack}},
                                                       {"/fixture", {}}, // nothing is parked at it
                                                       {"/fixture/device/interface[name=eth1]", all},
                                                       {"/fixture/device/gauges", all}}) {
    SCOPED_TRACE(path);
    for (std::string const& prefix : all)
      park(prefix);
    FullKelTypeWalker::delFromWalkQ(Path::strToPathIs(path));
    EXPECT_EQ(FullKelTypeWalker::pathWalkIdMapSize(), left.size());
    for (std::string const& prefix : left)
      EXPECT_THAT(popped(queue()), HasSubstr("prefix:" + prefix + " "));
    EXPECT_EQ(popped(queue()), "");
    FullKelTypeWalker::flushWalkMap();
  }
}

TEST_F(Parked, WalkersOfObjectsThatHaveGoneArePassedOver) {
  park(kFan);
  std::string const rack = park(kRack);
  world.device()->chassisIs()->fanDel();
  EXPECT_EQ(popped(queue()), rack);
  EXPECT_EQ(FullKelTypeWalker::pathWalkIdMapSize(), 0U);
}

// Wherever the walk pauses while a member loses what it is keyed by, in the middle of the member as well.
TEST_F(Parked, WhatIsElsewhereNowIsNotSentWhereItWas) {
  bool isGone = true;
  for (std::size_t pause = 0; isGone; ++pause) {
    SCOPED_TRACE(pause);
    Kel::Ptr<Fixture::Interface> const port = world.device()->interfaceIs("gone");
    world.device()->shareIs(*port, {1, 2, 3});
    auto slow = harness.start(recorder, *world.device(), Ondra::flagStream | Ondra::flagSnapshot,
                              [] { return true; });
    std::size_t pauses = 0;
    isGone = false;
    WalkHarness::finish(slow, [&] {
      if (pauses++ != pause) return;
      world.device()->interfaceDel("gone");
      isGone = true;
    });
    RecordingRouter fresh;
    harness.walked(fresh, *world.device(), Ondra::flagSnapshot);
    EXPECT_THAT(recorder.differences(fresh), testing::IsEmpty());
    world.device()->shareDel(*port);
  }
}

TEST_F(Parked, CancellingAndFlushingDropEverything) {
  EXPECT_FALSE(FullKelTypeWalker::cancelPendingWalk(walk.info));
  park(kDevice);
  park(kRack);
  auto other = harness.start(recorder, *world.device(), Ondra::flagSnapshot, [] { return true; });
  WalkHarness::slice(other);
  EXPECT_EQ(FullKelTypeWalker::walkMapSize(), 2U);
  EXPECT_TRUE(FullKelTypeWalker::cancelPendingWalk(walk.info));
  EXPECT_EQ(FullKelTypeWalker::walkMapSize(), 1U) << "the other walk is still parked";
  EXPECT_THAT(FullKelTypeWalker::dumpPathWalkIdMap(), testing::Not(HasSubstr(kRack)));
  FullKelTypeWalker::flushWalkMap();
  expectNothingParked();
  std::size_t const before = recorder.pushes();
  WalkHarness::slice(other);
  EXPECT_TRUE(other.task->done) << "a walk whose queue has gone is done";
  EXPECT_EQ(recorder.pushes(), before);

  // A queue that is there and empty.
  FullKelTypeWalker::walkMap().try_emplace(walk.info->syncWalkId.second, walk.info->syncWalkId,
                                           WalkQ::inWalkMap);
  EXPECT_EQ(FullKelTypeWalker::resumeWalk(walk.info), WalkResult::Success);
  expectNothingParked();
  other.info->task.reset();
}

// From inside a resumed slice: nothing more is parked, neither in the queue nor in the map of paths.
TEST_F(Parked, CancellingWhileItRunsLeavesNothing) {
  for (bool const flush : {false, true}) {
    int slice = 0;
    WalkHarness::Walk running = harness.start(recorder, *world.device(), Ondra::flagSnapshot);
    running.task->yieldWhen = [&] {
      if (slice == 2)
        flush ? FullKelTypeWalker::flushWalkMap() : void(FullKelTypeWalker::cancelPendingWalk(running.info));
      return true;
    };
    for (slice = 1; slice <= 2; ++slice) {
      WalkHarness::slice(running);
      running.task->descheduleTask();
    }
    EXPECT_TRUE(running.task->done);
    expectNothingParked();
    running.info->task.reset();
  }
}

// For want of memory, which a traced walk first feels when it parks, a walk is called off with all of it.
TEST_F(Parked, AFirstSliceWithoutMemoryLeavesNothing) {
  Tovak::ScopedTraceSink const sink;
  ASSERT_TRUE(Tovak::Platform::traceIs("OndraWalker/5").ok());
  WalkHarness::Walk poor = harness.start(recorder, *world.device(), Ondra::flagSnapshot, [] { return true; });
  HeapFaults::fails = [] { return FullKelTypeWalker::walkMapSize() != 0; };
  EXPECT_THROW(WalkHarness::slice(poor), std::bad_alloc);
  HeapFaults::fails = nullptr;
  ASSERT_TRUE(Tovak::Platform::traceIs("").ok());
  expectNothingParked();
  WalkHarness::cancel(poor);
}

TEST_F(Parked, AFullPipeAtTheVeryLastPush) {
  auto const optics = world.device()->interfaceIs("eth0")->opticsIs();
  RecordingRouter full(1);
  WalkHarness::Walk last = harness.start(full, *optics, Ondra::flagSnapshot);
  EXPECT_LE(WalkHarness::finish(last), 2U);
  EXPECT_EQ(full.updates(), 1U) << "sent once";
  expectNothingParked();

  if (Ondra::toggleOndraSyncBundlingEnabled()) {
    WalkHarness::Walk nested = harness.start(full, *optics, Ondra::flagSnapshot);
    EXPECT_EQ(FullKelTypeWalker::walkObjectInternal(nested.info, nullptr, nullptr, nullptr),
              WalkResult::PipeFull)
        << "inside another walk a full pipe stops the caller";
    EXPECT_EQ(FullKelTypeWalker::walkObject(nested.info), WalkResult::Success)
        << "at the top the walk has ended";
    nested.info->task.reset();
  }
}

// The most walkers and bytes of leaves that a walk of a rack of `count` interfaces holds at its pauses.
std::pair<std::size_t, std::int64_t> heldAtPauses(WalkHarness& harness, Kel::Ptr<Kel::Dir> const& dir,
                                                  unsigned count) {
  Kel::Ptr<Fixture::Rack> const rack(new Fixture::Rack());
  dir->entityIs("measured", rack);
  for (unsigned i = 0; i < count; ++i)
    Fixture::populate(*rack->interfaceIs("i" + std::to_string(i)), i);
  auto const& leaves = Kel::MemAllocator<Ondra::IrLeaf>::record();
  std::pair<std::size_t, std::int64_t> most{0, 0};
  RecordingRouter router;
  router.keepTexts = false;
  WalkHarness::Walk walk = harness.start(router, *rack, Ondra::flagSnapshot, [] { return true; });
  WalkHarness::finish(walk, [&] {
    auto const& queue = FullKelTypeWalker::walkMap().begin()->second;
    most.first = std::max(most.first, queue.walkers.size());
    most.second = std::max(most.second, leaves.liveBytes());
    EXPECT_LE(FullKelTypeWalker::pathWalkIdMapSize(), queue.walkers.size());
  });
  dir->entityDel("measured");
  WalkHarness::clearAll();
  return most;
}

TEST_F(Parked, AWalkHoldsWhatIsParkedAndNotWhatWasWalked) {
  static_cast<void>(heldAtPauses(harness, world.dir(), 10)); // warms up what is kept spare
  auto const few = heldAtPauses(harness, world.dir(), 10);
  auto const many = heldAtPauses(harness, world.dir(), 100);
  EXPECT_EQ(many.first, few.first);
  EXPECT_LE(many.first, 4U) << "one for each level: rack, interface, unit, queue";
  EXPECT_LE(many.second, few.second);
}

} // namespace
