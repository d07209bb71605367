// Where a parked walker is put, in a turn and outside of one; how walkers are taken and dropped; whether a
// walk is to yield.
#include "Ondra/WalkQ.h"

#include <iterator>
#include <utility>

#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/live/ParkedWalks.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {

WalkQ::WalkQ(SyncWalkId id, WalkQStored where) : syncWalkId(id), stored(where) {}

WalkQ::~WalkQ() = default;

void WalkQ::addWalker(std::unique_ptr<FullKelTypeWalker>&& walker) {
  TOVAK_ASSERT(stored == inWalkMap, walkerTrace(), "{} != {}", static_cast<std::uint32_t>(stored),
               static_cast<std::uint32_t>(inWalkMap));
  TOVAK_ASSERT(walker->syncWalkId() == syncWalkId, walkerTrace(), "{} == {}", walker->syncWalkId(),
               syncWalkId);
  auto const place = walkers.insert(inTurn_ ? next_ : walkers.begin(), std::move(walker));
  (*place)->place_ = place;
  if (inTurn_) next_ = place;
}

std::unique_ptr<FullKelTypeWalker> WalkQ::popWalker() {
  if (walkers.empty()) return nullptr;
  WalkerList taken;
  drop(std::prev(walkers.end()), taken);
  ParkedWalks::instance().unlist(*taken.front());
  return std::move(taken.front());
}

void WalkQ::drop(WalkerList::iterator walker, WalkerList& to) noexcept {
  if (inTurn_ && next_ == walker) ++next_;
  to.splice(to.end(), walkers, walker);
}

void WalkQ::dropAll(WalkerList& to) noexcept {
  to.splice(to.end(), walkers);
  next_ = walkers.end();
}

bool WalkQ::shouldYield() const {
  ++questions_;
  bool const yield = task && task->taskShouldYield();
  TOVAK_TRACE(walkerTrace(), 9, "WalkQ", "task:{} returning {}", static_cast<void const*>(task.get()), yield);
  return yield;
}

} // namespace Ondra
