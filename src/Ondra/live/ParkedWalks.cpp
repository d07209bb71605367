// Parking, leaving in all its ways (next, dropped, called off, flushed), and the walker's own operations on
// queues.
#include "Ondra/live/ParkedWalks.h"

#include <fmt/format.h>

#include <utility>

#include "Ondra/rules/WalkRules.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {

ParkedWalks& ParkedWalks::instance() {
  static auto* const parked = new ParkedWalks();
  return *parked;
}

bool ParkedWalks::Order::operator()(Walker const* a, Walker const* b) const {
  if (int const order = comparePaths(*a->prefixPath_, *b->prefixPath_); order != 0) return order < 0;
  return a->walkId_ == b->walkId_ ? a->parkedAs_ < b->parkedAs_ : a->walkId_ < b->walkId_;
}

// --- parking -----------------------------------------------------------------------------------------

WalkQ& ParkedWalks::queueOf(Walker& walker) {
  WalkQ* const current = walker.walkQ_;
  if (current != nullptr && current->stored == WalkQ::inWalkMap) {
    TOVAK_ASSERT(current->task, walkerTrace(), "walkQ does not have a task");
    return *current;
  }
  TOVAK_ASSERT(current == nullptr || current->stored == WalkQ::onStack, walkerTrace(),
               "walkQ is not stored on stack");
  auto const [entry, inserted] = queues_.try_emplace(walker.walkId_, walker.syncWalkId(), WalkQ::inWalkMap);
  if (inserted && current != nullptr) {
    TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "setting task for inserted WalkQ");
    entry->second.task = current->task;
  }
  return entry->second;
}

void ParkedWalks::park(std::unique_ptr<Walker>&& walker) {
  TOVAK_ASSERT(!(walker->walkId_ == WalkId()), walkerTrace(), "walkId 0 cannot be added to walkQ");
  WalkQ& queue = queueOf(*walker);
  walker->walkQ_ = &queue;
  if (queue.cancelled) return; // nobody will resume it
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Adding walkId:{} for path:{}", walker->walkId_,
              walker->prefixPath_);
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "type:{} walkQ size:{} walkId:{}",
              walker->objType_.name().view(), queue.walkers.size(), walker->walkId_);
  Walker& parked = *walker;
  parked.parkedAs_ = ++parkedSoFar_;
  index_.insert(&parked);
  queue.addWalker(std::move(walker));
}

// --- leaving -----------------------------------------------------------------------------------------

void ParkedWalks::unlist(Walker& walker) noexcept {
  if (walker.parkedAs_ == 0) return;
  index_.erase(&walker);
  walker.parkedAs_ = 0;
  traceUnlisted(walker);
}

void ParkedWalks::unlistAll(WalkQ::WalkerList const& dropped) noexcept {
  for (auto const& walker : dropped)
    unlist(*walker);
}

bool ParkedWalks::isListed(Path const& path, WalkId const* id) const {
  for (auto at = index_.lower_bound(path); at != index_.end() && (*at)->prefixPath_->isEqual(&path); ++at)
    if (id == nullptr || (*at)->walkId_ == *id) return true;
  return false;
}

// Told when it was the last of its walk, or of all, at the path.
void ParkedWalks::traceUnlisted(Walker const& walker) const {
  if (!walkerTrace().isOn(5) || isListed(*walker.prefixPath_, &walker.walkId_)) return;
  TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Removing walkId:{} for path:{}", walker.walkId_,
              walker.prefixPath_);
  if (!isListed(*walker.prefixPath_, nullptr))
    TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Removed path:{}", walker.prefixPath_);
}

void ParkedWalks::dropAtOrBelow(Path const& path) {
  WalkQ::WalkerList dropped;
  for (auto at = index_.lower_bound(path);
       at != index_.end() && WalkRules::isAtOrBelow(path, *(*at)->prefixPath_);) {
    Walker& walker = **at++;
    if (walker.prefixPath_->isEqual(&path)) {
      TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Found path:{} in the walkQ", walker.prefixPath_);
      TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Delete path:{} for walkId:{}", walker.prefixPath_,
                  walker.walkId_);
    } else {
      TOVAK_TRACE(walkerTrace(), 5, kWalkerCategory, "Deleting child path:{} for walkId:{}",
                  walker.prefixPath_, walker.walkId_);
    }
    walker.walkQ_->drop(walker.place_, dropped);
  }
  unlistAll(dropped);
}

bool ParkedWalks::dropWalk(WalkId id) {
  auto const found = queues_.find(id);
  if (found == queues_.end()) return false;
  WalkQ& queue = found->second;
  WalkQ::WalkerList dropped;
  queue.dropAll(dropped);
  unlistAll(dropped);
  if (queue.running)
    queue.cancelled = true;
  else
    queues_.erase(found);
  return true;
}

void ParkedWalks::flush() {
  WalkQ::WalkerList dropped;
  for (auto queue = queues_.begin(); queue != queues_.end();) {
    queue->second.dropAll(dropped);
    if (queue->second.running) {
      queue->second.cancelled = true;
      ++queue;
    } else {
      queue = queues_.erase(queue);
    }
  }
  unlistAll(dropped);
}

FullKelTypeWalker::PathWalkIdMapType ParkedWalks::paths() const {
  Walker::PathWalkIdMapType paths;
  for (Walker const* const walker : index_)
    paths[walker->prefixPath_].insert(walker->walkId_);
  return paths;
}

// --- as the walker's own operations --------------------------------------------------------------------

FullKelTypeWalker::WalkMapType& FullKelTypeWalker::walkMap() { return ParkedWalks::instance().queues(); }
std::size_t FullKelTypeWalker::walkMapSize() { return walkMap().size(); }
std::size_t FullKelTypeWalker::pathWalkIdMapSize() { return ParkedWalks::instance().paths().size(); }

void FullKelTypeWalker::addToWalkQ(std::unique_ptr<FullKelTypeWalker>&& walker) {
  ParkedWalks::instance().park(std::move(walker));
}

void FullKelTypeWalker::delFromWalkQ(Kel::Ptr<Path const> const& path) {
  ParkedWalks::instance().dropAtOrBelow(*path);
}

void FullKelTypeWalker::flushWalkMap() { ParkedWalks::instance().flush(); }

std::unique_ptr<FullKelTypeWalker> FullKelTypeWalker::popWalkQ(WalkQ& walkQ) {
  return ParkedWalks::next(walkQ);
}

std::string FullKelTypeWalker::dumpWalkMap() {
  std::string text;
  for (auto const& [id, queue] : walkMap()) {
    text += fmt::format("walkId:{} walkList:[ ", id);
    for (auto const& walker : queue.walkers)
      text += fmt::format("\n{} ", walker->debugString());
    text += "]\n";
  }
  return text;
}

std::string FullKelTypeWalker::dumpPathWalkIdMap() {
  std::string text;
  for (auto const& [path, ids] : ParkedWalks::instance().paths())
    text += fmt::format("path:{} requestSet:[{}]\n", path, fmt::join(ids, " "));
  return text;
}

} // namespace Ondra
