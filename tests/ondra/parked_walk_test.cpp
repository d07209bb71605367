// What is parked: the two maps, and walks that are cancelled or meet a full pipe at their very end. That
// walks go on rightly whatever changes meanwhile is played in hostile_test.cpp.
#include "Ondra/IR.h"
#include "WalkHarness.h"
#include "fixture/Populate.h"

namespace {

using Ondra::FullKelTypeWalker;
using Ondra::WalkResult;

class Parked : public testing::Test {
protected:
  static void expectNothingParked() {
    EXPECT_EQ(FullKelTypeWalker::walkMapSize(), 0U);
    EXPECT_EQ(FullKelTypeWalker::pathWalkIdMapSize(), 0U);
  }

  Fixture::World world;
  RecordingRouter recorder; // outlives the notifiees that the harness ends
  WalkHarness harness;
};

TEST_F(Parked, AWalkWhoseQueueHasGoneOrIsEmptyIsDone) {
  WalkHarness::Walk walk = harness.start(recorder, *world.device(), Ondra::flagSnapshot, [] { return true; });
  EXPECT_FALSE(FullKelTypeWalker::cancelPendingWalk(walk.info));
  WalkHarness::slice(walk);
  WalkHarness::Walk other =
      harness.start(recorder, *world.device(), Ondra::flagSnapshot, [] { return true; });
  WalkHarness::slice(other);
  EXPECT_TRUE(FullKelTypeWalker::cancelPendingWalk(other.info));
  EXPECT_EQ(FullKelTypeWalker::walkMapSize(), 1U) << "the other walk is still parked";
  FullKelTypeWalker::flushWalkMap();
  expectNothingParked();
  std::size_t const before = recorder.pushes();
  WalkHarness::slice(walk);
  EXPECT_TRUE(walk.task->done);
  EXPECT_EQ(recorder.pushes(), before);
  FullKelTypeWalker::walkMap().try_emplace(other.info->syncWalkId.second, other.info->syncWalkId,
                                           Ondra::WalkQ::inWalkMap);
  EXPECT_EQ(FullKelTypeWalker::resumeWalk(other.info), WalkResult::Success);
  expectNothingParked();
  for (WalkHarness::Walk const& each : {walk, other})
    each.info->task.reset();
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

// --- walks that go on ----------------------------------------------------------------------------------

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

// --- memory ----------------------------------------------------------------------------------------------

// The most walkers and bytes of collected leaves that a walk of a rack of `count` interfaces holds at its
// pauses.
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
