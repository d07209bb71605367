// Where walks begin, go on and are called off.

#include <memory>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Kel/Dir.h"
#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/Referrers.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {

WalkResult FullKelTypeWalker::walkObject(std::shared_ptr<WalkInfo>& walkInfo) {
  TOVAK_TRACE(walkerTrace(), 1, kWalkerCategory, "walkInfo:{}", walkInfo->toString());
  if (!WalkRules::isEncodable(*walkInfo->path)) {
    TOVAK_TRACE(walkerTrace(), Tovak::traceLevelError, kWalkerCategory,
                "no walk at {}: the path is not UTF-8", walkInfo->path);
    return WalkResult::Success;
  }
  WalkQ queue(walkInfo->syncWalkId, WalkQ::onStack);
  queue.task = walkInfo->task;
  WalkResult const result = doWalkObject(walkInfo, &queue, nullptr, nullptr);
  return result == WalkResult::SuccessWithPipeFull ? WalkResult::Success : result;
}

WalkResult FullKelTypeWalker::walkObjectInternal(std::shared_ptr<WalkInfo>& walkInfo, WalkQ* walkQ,
                                                 KelKey* key, std::shared_ptr<Ir> ir) {
  return insideResult(doWalkObject(walkInfo, walkQ, key, std::move(ir)));
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
  if (!ir && toggleOndraSyncBundlingEnabled()) {
    ir = makeIr();
  }
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "construct FullKelTypeWalker with prefixPath:{}",
              walkInfo->path);
  long const timestamp = walkInfo->timeStampToUse != 0
                             ? walkInfo->timeStampToUse
                             : Kel::activityManagerStatus()->activityLoopExecNsTime();
  KelKey keyName;
  FullKelTypeWalker walker(walkInfo->path, ir, object, WalkRules::noPath(), walkInfo->router, walkQ,
                           walkInfo->walkerFlags, keyName, true, timestamp);
  walker.notifiee_ = notifiee;
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

} // namespace

// Runs one walker with the queue to itself: what it parks is resumed before what was waiting already.
WalkResult FullKelTypeWalker::runParked(WalkQ& walkQ, FullKelTypeWalker& walker) {
  walkQ.waiting.swap(walkQ.walkers);
  bool const nested = !walker.links_.empty();
  Link const attribute =
      nested ? walker.links_.front() : Link(); // of the watched object, in which the value lies
  Kel::Ptr<GifGnmiNotifiee> const notifiee =
      nested ? KelGnmiUtils::lookupGnmiNotifieeMap(walker.prefixPath_) : nullptr;
  RenderScope const rendering(nested, notifiee.get(), nested ? attribute.attr.id() : 0, attribute.key);
  WalkResult result = walker.walk(nullptr);
  walkQ.walkers.splice(walkQ.walkers.begin(), walkQ.waiting);
  if (result == WalkResult::SuccessWithPipeFull) {
    result = walkQ.walkers.empty() ? WalkResult::Success : WalkResult::PipeFull;
  }
  return result;
}

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
  WalkScope const scope;
  {
    Running const running(queue);
    while (std::unique_ptr<FullKelTypeWalker> const walker = popWalkQ(queue)) {
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Resume walk of {}", walker->debugString());
      WalkResult const result = runParked(queue, *walker);
      if (queue.cancelled) {
        break;
      }
      if (result != WalkResult::Success) {
        TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Couldn't finish walk of {} due to {}",
                    walker->debugString(), result);
        return result;
      }
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Finished walk of {}", walker->debugString());
    }
  }
  queue.task.reset();
  walkMap().erase(id);
  return WalkResult::Success;
}

bool FullKelTypeWalker::cancelPendingWalk(std::shared_ptr<WalkInfo>& walkInfo) {
  TOVAK_ASSERT(walkInfo->task, walkerTrace(), "cancelling a pending walk for a WalkInfo without a task");
  WalkId const id = walkInfo->syncWalkId.second;
  auto const found = walkMap().find(id);
  bool const pending = found != walkMap().end();
  WalkQ::WalkerList dropped; // destroyed when the maps are consistent again
  if (pending) {
    WalkQ& queue = found->second;
    for (WalkQ::WalkerList* const list : {&queue.walkers, &queue.waiting}) {
      dropped.splice(dropped.end(), *list);
    }
    for (auto const& walker : dropped) {
      if (pathWalkIdMap().contains(walker->prefixPath_)) {
        unlistParked(queue, walker->prefixPath_);
      }
    }
    if (queue.running) {
      queue.cancelled = true;
    } else {
      walkMap().erase(found);
    }
  }
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "walkInfo:{} pending:{}", walkInfo->toString(), pending);
  return pending;
}

} // namespace Ondra
