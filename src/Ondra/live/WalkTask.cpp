// Begins or resumes its walk at each turn, schedules itself again when only time was short, and says once
// that it is done.
#include "Ondra/WalkTask.h"

#include <fmt/format.h>

#include <utility>

#include "Ondra/KelTypeWalker.h"
#include "Ondra/PathFormat.h"
#include "Tovak/Allocator.h"
#include "Tovak/Trace.h"

namespace Ondra {
namespace {

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraWalkTask", false);
  return handler;
}

std::string taskName(WalkInfo const& walkInfo) { return fmt::format("SyncWalkId-{}", walkInfo.syncWalkId); }

std::shared_ptr<Tovak::TaskScheduler> required(std::shared_ptr<Tovak::TaskScheduler> scheduler) {
  TOVAK_ASSERT(scheduler, trace(), "TaskScheduler required to construct WalkTask");
  return scheduler;
}

} // namespace

WalkInfo::WalkInfo(BaseRouter& theRouter, SyncWalkId id, Kel::Ptr<Path const> thePath,
                   Kel::PtrInterface const* object, WalkerFlags flags)
    : router(theRouter)
    , syncWalkId(id)
    , path(std::move(thePath))
    , obj(object)
    , walkerFlags(flags) {
  TOVAK_ASSERT(obj != nullptr, trace(), "cannot walk a nullptr");
}

std::shared_ptr<WalkInfo> WalkInfo::WalkInfoIs(BaseRouter& router, SyncWalkId syncWalkId,
                                               Kel::Ptr<Path const> path, Kel::PtrInterface const* obj,
                                               WalkerFlags flags) {
  return std::allocate_shared<WalkInfo>(Tovak::Allocator<WalkInfo>(), router, syncWalkId, std::move(path),
                                        obj, flags);
}

Tovak::String WalkInfo::toString() const {
  return fmt::format("syncWalkId:{} path:{} obj:{} walkerFlags:{} task:{} timeStampToUse:{}", syncWalkId,
                     path, static_cast<void const*>(obj), walkerFlags, static_cast<void const*>(task.get()),
                     timeStampToUse);
}

WalkTask::WalkTask(std::shared_ptr<Tovak::TaskScheduler> scheduler, std::shared_ptr<WalkInfo>& walkInfo,
                   Tovak::TaskPriority::PriorityEnum priority)
    : Tovak::Task(required(std::move(scheduler)), taskName(*walkInfo), priority)
    , walkInfo_(walkInfo) {
  TOVAK_ASSERT(!walkInfo_->task, trace(), "constructing a WalkTask with a WalkInfo that already has a task");
  taskStatsNameIs("WalkTask");
}

std::shared_ptr<WalkTask> WalkTask::WalkTaskIs(std::shared_ptr<Tovak::TaskScheduler> scheduler,
                                               std::shared_ptr<WalkInfo>& walkInfo,
                                               Tovak::TaskPriority::PriorityEnum priority) {
  return std::allocate_shared<WalkTask>(Tovak::Allocator<WalkTask>(), std::move(scheduler), walkInfo,
                                        priority);
}

void WalkTask::taskExecute() {
  if (!walkInfo_) return; // done before: a pipe that drains may wake a walk that has ended
  TOVAK_TRACE(trace(), 1, "WalkTask", "{}", walkInfo_->toString());
  if (providerPaused()) return;
  std::shared_ptr<Tovak::Task> const self = shared_from_this();
  bool const resumed = std::exchange(walkStarted_, true);
  WalkResult result;
  try {
    result = resumed ? FullKelTypeWalker::resumeWalk(walkInfo_) : FullKelTypeWalker::walkObject(walkInfo_);
  } catch (...) { // memory is short, and the walk called off: it never says that it is done
    walkInfo_.reset();
    throw;
  }
  if (result == WalkResult::Success) {
    TOVAK_TRACE(trace(), 1, "WalkTask", "walk complete for {} at priority {}", walkInfo_->toString(),
                priority());
    walkDone(walkInfo_->syncWalkId, !walkInfo_->walkerFlags.has(flagSnapshot));
    walkInfo_.reset();
    return;
  }
  TOVAK_TRACE(trace(), 1, "WalkTask", "walk did not complete due to {}", result);
  if (result == WalkResult::QuantaExceeded) scheduleTask();
}

Tovak::String WalkTask::toString() const { return fmt::format("walkStarted:{}", walkStarted_); }

} // namespace Ondra
