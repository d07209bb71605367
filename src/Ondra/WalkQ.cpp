#include "Ondra/WalkQ.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {

WalkQ::WalkQ(SyncWalkId id, WalkQStored where) : syncWalkId(id), stored(where) {}

WalkQ::~WalkQ() = default;

void WalkQ::addWalker(std::unique_ptr<FullKelTypeWalker>&& walker) {
  TOVAK_ASSERT(stored == inWalkMap, walkerTrace(), "{} != {}", static_cast<std::uint32_t>(stored),
               static_cast<std::uint32_t>(inWalkMap));
  TOVAK_ASSERT(walker->syncWalkId() == syncWalkId, walkerTrace(), "{} == {}", walker->syncWalkId(),
               syncWalkId);
  walkers.push_front(std::move(walker));
}

std::unique_ptr<FullKelTypeWalker> WalkQ::popWalker() {
  if (walkers.empty()) {
    return nullptr;
  }
  std::unique_ptr<FullKelTypeWalker> walker = std::move(walkers.back());
  walkers.pop_back();
  return walker;
}

bool WalkQ::shouldYield() const {
  bool const yield = task && task->taskShouldYield();
  TOVAK_TRACE(walkerTrace(), 9, "WalkQ", "task:{} returning {}", static_cast<void const*>(task.get()), yield);
  return yield;
}

// --- the two maps of parked walks -----------------------------------------------------------------

FullKelTypeWalker::WalkMapType& FullKelTypeWalker::walkMap() {
  static auto* const staticWalkMap = new WalkMapType();
  return *staticWalkMap;
}

FullKelTypeWalker::PathWalkIdMapType& FullKelTypeWalker::pathWalkIdMap() {
  static auto* const staticPathWalkIdMap = new PathWalkIdMapType();
  return *staticPathWalkIdMap;
}

std::size_t FullKelTypeWalker::walkMapSize() { return walkMap().size(); }
std::size_t FullKelTypeWalker::pathWalkIdMapSize() { return pathWalkIdMap().size(); }

void FullKelTypeWalker::addToWalkQ(std::unique_ptr<FullKelTypeWalker>&& walker) {
  TOVAK_ASSERT(!(walker->walkId_ == WalkId()), walkerTrace(), "walkId 0 cannot be added to walkQ");
  WalkQ* const current = walker->walkQ_;
  if (current != nullptr && current->stored == WalkQ::inWalkMap) {
    TOVAK_ASSERT(current->task, walkerTrace(), "walkQ does not have a task");
    if (current->cancelled) {
      return; // nobody will resume it
    }
  } else {
    TOVAK_ASSERT(current == nullptr || current->stored == WalkQ::onStack, walkerTrace(),
                 "walkQ is not stored on stack");
    auto const [entry, inserted] =
        walkMap().try_emplace(walker->walkId_, walker->syncWalkId(), WalkQ::inWalkMap);
    if (inserted && current != nullptr) {
      TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "setting task for inserted WalkQ");
      entry->second.task = current->task;
    }
    walker->walkQ_ = &entry->second;
  }
  WalkQ& queue = *walker->walkQ_;
  pathWalkIdMap()[walker->prefixPath_].insert(walker->walkId_);
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Adding walkId:{} for path:{}", walker->walkId_,
              walker->prefixPath_);
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "type:{} walkQ size:{} walkId:{}",
              walker->objType_.name().view(), queue.walkers.size(), walker->walkId_);
  queue.addWalker(std::move(walker));
}

// A walker of that prefix has left the queue: without another one of the same prefix the path no longer names this walk.
void FullKelTypeWalker::unlistParked(WalkQ& walkQ, Kel::Ptr<Path const> const& path) {
  auto const samePrefix = [&path](std::unique_ptr<FullKelTypeWalker> const& other) {
    return other->prefixPath_->isEqual(path.get());
  };
  if (std::any_of(walkQ.walkers.begin(), walkQ.walkers.end(), samePrefix) ||
      std::any_of(walkQ.waiting.begin(), walkQ.waiting.end(), samePrefix)) {
    return;
  }
  auto const entry = pathWalkIdMap().find(path);
  if (entry == pathWalkIdMap().end()) {
    TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "path {} is not found in the staticPathWalkIdMap", path);
    return;
  }
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Removing walkId:{} for path:{}", walkQ.syncWalkId.second,
              path);
  entry->second.erase(walkQ.syncWalkId.second);
  if (entry->second.empty()) {
    TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Removed path:{}", path);
    pathWalkIdMap().erase(entry);
  }
}

std::unique_ptr<FullKelTypeWalker> FullKelTypeWalker::popWalkQ(WalkQ& walkQ) {
  while (std::unique_ptr<FullKelTypeWalker> walker = walkQ.popWalker()) {
    TOVAK_ASSERT(!walker->gif_, walkerTrace(), "Expected walker->gif_ to be null!");
    unlistParked(walkQ, walker->prefixPath_);
    Kel::Ptr<GifGnmiNotifiee> const notifiee = KelGnmiUtils::lookupGnmiNotifieeMap(walker->prefixPath_);
    if (!notifiee) {
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "Failed to find a gNmiNotif for prefix:{}",
                  walker->prefixPath_);
    } else if (walker->takeObject(*notifiee)) {
      return walker;
    }
    // What it was walking has gone while it was parked; what others of its walk left in the bundle has not.
    if (walker->rootWalker_ && walker->ir_ && !walker->ir_->empty()) {
      walker->routerPush(true);
    }
  }
  return nullptr;
}

void FullKelTypeWalker::delFromWalkQ(Kel::Ptr<Path const> const& path) {
  if (pathWalkIdMap().empty()) {
    return;
  }
  // Destroyed at the very end, when the maps are consistent again.
  WalkQ::WalkerList dropped;
  absl::flat_hash_set<WalkId> walks;
  for (auto const& [parkedAt, ids] : pathWalkIdMap()) {
    if (WalkRules::isAtOrBelow(*path, *parkedAt)) {
      walks.insert(ids.begin(), ids.end());
    }
  }
  for (WalkId const id : walks) {
    auto const found = walkMap().find(id);
    if (found == walkMap().end()) {
      TOVAK_TRACE(walkerTrace(), 4, kWalkerCategory, "walkId:{} not found", id);
      continue;
    }
    WalkQ& queue = found->second;
    std::size_t const before = dropped.size();
    for (WalkQ::WalkerList* const list : {&queue.walkers, &queue.waiting}) {
      for (auto walker = list->begin(); walker != list->end();) {
        auto const next = std::next(walker);
        Kel::Ptr<Path const> const& prefix = (*walker)->prefixPath_;
        if (prefix->isEqual(path.get())) {
          TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Found path:{} in the walkQ", path);
          TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Delete path:{} for walkId:{}", path, id);
          dropped.splice(dropped.end(), *list, walker);
        } else if (WalkRules::isAtOrBelow(*path, *prefix)) {
          TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Deleting child path:{} for walkId:{}", prefix, id);
          dropped.splice(dropped.end(), *list, walker);
        }
        walker = next;
      }
    }
    for (auto walker = std::next(dropped.begin(), static_cast<std::ptrdiff_t>(before));
         walker != dropped.end(); ++walker) {
      if (pathWalkIdMap().contains((*walker)->prefixPath_)) {
        unlistParked(queue, (*walker)->prefixPath_);
      }
    }
  }
}

void FullKelTypeWalker::flushWalkMap() {
  pathWalkIdMap().clear();
  for (auto queue = walkMap().begin(); queue != walkMap().end();) {
    if (queue->second.running) {
      queue->second.cancelled = true;
      queue->second.walkers.clear();
      queue->second.waiting.clear();
      ++queue;
    } else {
      queue = walkMap().erase(queue);
    }
  }
}

std::string FullKelTypeWalker::dumpWalkMap() {
  std::string text;
  for (auto const& [id, queue] : walkMap()) {
    text += fmt::format("walkId:{} walkList:[ ", id);
    for (auto const& walker : queue.walkers) {
      text += fmt::format("\n{} ", walker->debugString());
    }
    text += "]\n";
  }
  return text;
}

std::string FullKelTypeWalker::dumpPathWalkIdMap() {
  std::string text;
  for (auto const& [path, ids] : pathWalkIdMap()) {
    text += fmt::format("path:{} requestSet:[{}]\n", path, fmt::join(ids, " "));
  }
  return text;
}

} // namespace Ondra
