// Where walks begin, go on and are called off.

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Kel/Dir.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/ParkedWalks.h"
#include "Ondra/live/WalkResults.h"
#include "Ondra/rules/WalkRules.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {

namespace {

// Runs a part of a walk: what is raised outside of its items ends that part. For want of memory the walk is
// called off.
template <class Walk>
WalkResult guarded(SyncWalkId const& id, Walk const& walk) {
  WalkScope const scope; // ends after the exception has been dealt with: changes that wait are told
  try {
    return walk();
  } catch (std::bad_alloc const&) {
    ParkedWalks::instance().dropWalk(id.second);
    throw;
  } catch (...) {
    std::string const text = faultText();
    TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory, "walk {} loses a part: {}", id, text);
    return WalkResult::Success;
  }
}

} // namespace

WalkResult FullKelTypeWalker::walkObject(std::shared_ptr<WalkInfo>& walkInfo) {
  TOVAK_TRACE(walkerTrace(), 1, kWalkerCategory, "walkInfo:{}", walkInfo->toString());
  if (!WalkRules::isEncodable(*walkInfo->path)) {
    TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory,
                "no walk at {}: the path is not UTF-8", walkInfo->path);
    return WalkResult::Success;
  }
  WalkQ queue(walkInfo->syncWalkId, WalkQ::onStack);
  queue.task = walkInfo->task;
  WalkResult const result =
      guarded(walkInfo->syncWalkId, [&] { return doWalkObject(walkInfo, &queue, nullptr, nullptr); });
  return result == WalkResult::SuccessWithPipeFull ? WalkResult::Success : result;
}

WalkResult FullKelTypeWalker::walkObjectInternal(std::shared_ptr<WalkInfo>& walkInfo, WalkQ* walkQ,
                                                 KelKey* key, std::shared_ptr<Ir> ir) {
  return insideResult(
      guarded(walkInfo->syncWalkId, [&] { return doWalkObject(walkInfo, walkQ, key, std::move(ir)); }));
}

WalkResult FullKelTypeWalker::doWalkObject(std::shared_ptr<WalkInfo>& walkInfo, WalkQ* walkQ, KelKey* key,
                                           std::shared_ptr<Ir> ir) {
  TOVAK_ASSERT(walkInfo->obj != nullptr, walkerTrace(), "cannot walk a nullptr");
  WalkScope const scope;
  Kel::Ptr<Kel::GenericIf const> const object = Kel::GenericIf::toObject(walkInfo->obj);
  Kel::KelType const type = object->type();
  TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "walkInfo:[{}] walkQ:{} type:{} ir:{}", walkInfo->toString(),
              WalkQPtr{walkQ}, type.name().view(), static_cast<void const*>(ir.get()));
  if (type == Kel::typeOf<Kel::Dir::Entry>()) {
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "skipping walk of Kel::Dir::Entry");
    return WalkResult::Success;
  }
  Kel::Ptr<GifGnmiNotifiee> const notifiee = setUpGifNotifiee(walkInfo);
  if (!ir && toggleOndraSyncBundlingEnabled()) ir = Ir::IrIs();
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "construct FullKelTypeWalker with prefixPath:{}",
              walkInfo->path);
  long const timestamp = walkInfo->timeStampToUse != 0
                             ? walkInfo->timeStampToUse
                             : Kel::activityManagerStatus()->activityLoopExecNsTime();
  KelKey keyName;
  FullKelTypeWalker walker(walkInfo->path, ir, object, WalkRules::noPath(), walkInfo->router, walkQ,
                           walkInfo->walkerFlags, keyName, true, timestamp);
  walker.notifiee_ = notifiee;
  walker.syncId_ = walkInfo->syncWalkId.first;
  walker.walkId_ = walkInfo->syncWalkId.second;
  walker.isPlain_ = true;
  return walker.walk(key);
}

namespace {

// Marks a queue as running for as long as it lives.
class Running {
public:
  explicit Running(WalkQ& queue) noexcept : queue_(queue) { queue_.running = true; }
  ~Running() { queue_.running = false; }
  Running(Running const&) = delete;
  Running& operator=(Running const&) = delete;

private:
  WalkQ& queue_;
};

// Runs what the queue holds until a walker stops. When none is left, all has been sent, whatever the last
// push said.
WalkResult goThrough(WalkQ& queue) {
  WalkResult result = WalkResult::Success;
  Running const running(queue);
  WalkScope const scope;
  while (std::unique_ptr<FullKelTypeWalker> const walker = ParkedWalks::next(queue)) {
    std::string const name = walkerTrace().isOn(4) ? walker->debugString() : std::string(); // it may be moved
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Resume walk of {}", name);
    result = guarded(queue.syncWalkId, [&] { return ParkedWalks::resume(queue, *walker); });
    if (queue.cancelled) break;
    if (result != WalkResult::Success && !queue.walkers.empty()) {
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Couldn't finish walk of {} due to {}", name, result);
      break;
    }
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Finished walk of {}", name);
  }
  return result;
}

} // namespace

WalkResult FullKelTypeWalker::resumeWalk(std::shared_ptr<WalkInfo>& walkInfo) {
  TOVAK_TRACE(walkerTrace(), 1, kWalkerCategory, "walkInfo:{}", walkInfo->toString());
  TOVAK_ASSERT(walkInfo->task, walkerTrace(), "resuming walk for a walkInfo without a task");
  WalkId const id = walkInfo->syncWalkId.second;
  auto const found = walkMap().find(id);
  if (found == walkMap().end()) {
    TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "object with walkInfo:{} has been deleted",
                walkInfo->toString());
    return WalkResult::Success;
  }
  WalkQ& queue = found->second;
  TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Resume walk of walkQ:{}", WalkQPtr{&queue});
  if (queue.walkers.empty()) {
    TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory, "WalkList is empty for walkId:{}",
                id);
  }
  WalkResult result = WalkResult::Success;
  try {
    result = goThrough(queue);
  } catch (...) { // called off: what is left would be only a part
    ParkedWalks::instance().dropWalk(id);
    throw;
  }
  if (!queue.walkers.empty()) return insideResult(result);
  std::shared_ptr<Tovak::Task> const task = std::move(queue.task); // may be the last to hold what it holds
  walkMap().erase(id);
  return WalkResult::Success;
}

bool FullKelTypeWalker::cancelPendingWalk(std::shared_ptr<WalkInfo>& walkInfo) {
  TOVAK_ASSERT(walkInfo->task, walkerTrace(), "cancelling a pending walk for a WalkInfo without a task");
  WalkId const id = walkInfo->syncWalkId.second;
  bool const pending = ParkedWalks::instance().dropWalk(id);
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "walkInfo:{} pending:{}", walkInfo->toString(), pending);
  return pending;
}

} // namespace Ondra
