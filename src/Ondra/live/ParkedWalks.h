// Ondra::ParkedWalks: what walks have left for later: the stored queue of each walk, and which walkers wait
// at or below a path; and how a walker comes to be parked and finds its object again.
//
// Invariants
// 1. A walker is in the index exactly from the time it is parked until it leaves its queue or is destroyed,
//    by whomever. What is said of paths and walk ids is read from the index, so that it cannot differ from
//    what the queues hold.
// 2. A stored queue stays where it is until its walk ends; walkers point to it.
// 3. A queue that is running (`WalkQ::running`) is never erased by others. It is marked (`WalkQ::cancelled`),
//    takes no walker any more, and goes when its run ends.
// 4. Walkers that are dropped are destroyed after queues and index have been put right.
// 5. An operation that cannot get memory has done nothing.
// docs/decisions.md: "Is the map from paths to walks a hash map?"
#pragma once

#include <absl/container/btree_set.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "Kel/Allocator.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/Path.h"
#include "Ondra/WalkQ.h"
#include "Ondra/WalkReach.h"
#include "Ondra/paths/PathOrder.h"

namespace Ondra {

// There is one, which lives for the process. Scheduler thread only.
class ParkedWalks {
public:
  using Walker = FullKelTypeWalker;

  static ParkedWalks& instance();

  // Moves all that a running walker needs to go on into one that can be parked, and leaves it without an
  // object. `key`: of the list entry that it walks, or null. What copying a key raises finds the walker as it
  // was.
  [[nodiscard]] static std::unique_ptr<Walker> movedOut(Walker& running, KelKey const* key);
  // Puts the walker into the stored queue of its walk, which is made when there is none. REQUIRES a walk id,
  // and of a stored queue a task (asserted).
  void park(std::unique_ptr<Walker>&& walker);
  // Takes out the next walker whose object is still there, ready to run; null when the queue is empty.
  [[nodiscard]] static std::unique_ptr<Walker> next(WalkQ& queue);
  // Runs one that was taken out; what it parks is resumed before what waits already.
  static WalkResult resume(WalkQ& queue, Walker& walker);
  // Drops what waits at or below the path, in time that grows with the logarithm of all that waits and with
  // what is dropped.
  void dropAtOrBelow(Path const& path);
  // Drops all of one walk; says whether it had a queue.
  bool dropWalk(WalkId id);
  void flush();

  // The walker leaves its queue, or goes: takes it out of the index, if it is there.
  void unlist(Walker& walker) noexcept;

  [[nodiscard]] Walker::WalkMapType& queues() noexcept { return queues_; }
  // Which walks have something waiting at which path.
  [[nodiscard]] Walker::PathWalkIdMapType paths() const;
  // How a place stands to what the walk has parked (WalkReach.h).
  [[nodiscard]] std::optional<WalkReach> reach(WalkInfo const& walkInfo,
                                               std::span<gnmi::PathElem const* const> path) const;

private:
  // By path, so that all at or below one are neighbours; within one path by walk, and then as parked.
  struct Order {
    using is_transparent = void;
    bool operator()(Walker const* a, Walker const* b) const;
    bool operator()(Walker const* a, Path const& b) const { return comparePaths(*a->prefixPath_, b) < 0; }
    bool operator()(Path const& a, Walker const* b) const { return comparePaths(a, *b->prefixPath_) < 0; }
  };
  using Index = absl::btree_set<Walker*, Order, Kel::MemAllocator<Walker*, ParkedWalks>>;

  WalkQ& queueOf(Walker& walker);
  [[nodiscard]] static std::vector<Walker::Link> linksFromPrefix(Walker const& running);
  // Gives a parked walker its object: false when what was being walked has gone. What is raised on the way to
  // it says the same.
  [[nodiscard]] static bool isThereAgain(Walker& parked);
  [[nodiscard]] static bool takeObject(Walker& parked, GifGnmiNotifiee const& notifiee);
  [[nodiscard]] static bool isAtItsPath(Walker& parked);
  // How a place at or below the object of this parked walker, and not of one parked below it, stands to the
  // walk.
  [[nodiscard]] static WalkReach reachOf(Walker const& parked, std::span<gnmi::PathElem const* const> below);
  void unlistAll(WalkQ::WalkerList const& dropped) noexcept;
  void traceUnlisted(Walker const& walker) const;
  [[nodiscard]] bool isListed(Path const& path, WalkId const* id) const;

  Walker::WalkMapType queues_;
  Index index_;
  std::uint64_t parkedSoFar_ = 0;
};

} // namespace Ondra
