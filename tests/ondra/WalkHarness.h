// Runs walks under a test's control: where they yield, when the pipe is full, what happens meanwhile.
#pragma once

#include "Kel/ActivityClock.h"
#include "Kel/Entity.h"
#include "Kel/Ptr.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/Path.h"
#include "RecordingRouter.h"
#include "Tovak/Clock.h"
#include "Tovak/TaskScheduler.h"

// Yields when its rule says so, at each question anew.
class ControlledTask final : public Ondra::WalkTask {
public:
  using Ondra::WalkTask::WalkTask;
  bool taskShouldYield() const override {
    ++questions;
    return yieldWhen && yieldWhen();
  }
  void walkDone(Ondra::SyncWalkId const& id, bool streaming) override {
    done = true;
    doneId = id;
    doneStreaming = streaming;
  }
  bool providerPaused() const override { return paused; }

  std::function<bool()> yieldWhen;
  mutable std::size_t questions = 0;
  bool done = false;
  bool doneStreaming = false;
  bool paused = false;
  Ondra::SyncWalkId doneId;
};

inline Kel::Ptr<Ondra::Path const> pathOf(Kel::Entity const& entity) {
  return Ondra::Path::strToPathIs(entity.fullName().view());
}

class WalkHarness {
public:
  WalkHarness() : scheduler_(std::make_shared<Tovak::TaskScheduler>(clock_)) {
    Kel::activityManagerStatus()->activityLoopExecNsTimeIs(clock_.wallNs());
  }
  ~WalkHarness() { clearAll(); }

  static void clearAll() {
    Ondra::FullKelTypeWalker::flushWalkMap();
    Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees();
  }

  struct Walk {
    std::shared_ptr<Ondra::WalkInfo> info;
    std::shared_ptr<ControlledTask> task;
  };

  Walk start(Ondra::BaseRouter& router, Kel::Entity const& root, Ondra::WalkerFlags flags,
             std::function<bool()> yieldWhen = {}) {
    Walk walk;
    walk.info = Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(++lastWalkId_)},
                                            pathOf(root), &root, flags);
    walk.task = std::make_shared<ControlledTask>(scheduler_, walk.info, Tovak::TaskPriority::normal);
    walk.task->yieldWhen = std::move(yieldWhen);
    walk.info->task = walk.task;
    return walk;
  }
  // One slice.
  static void slice(Walk& walk) { walk.task->taskExecute(); }
  // To the end, calling `between` after each slice that did not end it. Returns the number of slices.
  static std::size_t finish(Walk& walk, std::function<void()> const& between = {}) {
    std::size_t slices = 0;
    while (!walk.task->done) {
      slice(walk);
      walk.task->descheduleTask();
      if (++slices > 1'000'000) {
        ADD_FAILURE() << "the walk does not end";
        break;
      }
      if (!walk.task->done && between) between();
    }
    walk.info->task.reset();
    return slices;
  }
  static void cancel(Walk& walk) {
    walk.task->descheduleTask();
    Ondra::FullKelTypeWalker::cancelPendingWalk(walk.info);
    walk.info->task.reset();
  }

  // A whole walk in one go.
  Walk walked(Ondra::BaseRouter& router, Kel::Entity const& root, Ondra::WalkerFlags flags) {
    Walk walk = start(router, root, flags);
    finish(walk);
    return walk;
  }
  RecordingRouter::Leaves leavesOf(Kel::Entity const& root, Ondra::WalkerFlags flags = Ondra::flagSnapshot) {
    RecordingRouter router;
    walked(router, root, flags);
    return router.leaves();
  }

private:
  Tovak::SimulatedClock clock_;
  std::shared_ptr<Tovak::TaskScheduler> scheduler_;
  std::uint64_t lastWalkId_ = 0;
};
