// Ondra::WalkQ: the unfinished walkers of one walk.
//
// Invariants
// 1. A queue on the stack (the first slice of a walk) never holds walkers; parking moves to the stored queue
//    of the walk's id.
// 2. `walkers` is first in, first out: in at the front, out at the back. While a resumed walker has its turn,
//    what it parks comes to stand behind all that waits already, and so is resumed before it, in the order in
//    which it was parked.
// 3. A queue that is running is not erased; it is marked cancelled and goes when its run ends.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include <fmt/core.h>

#include "Kel/Allocator.h"
#include "Kstd/Export.h"
#include "Ondra/WalkTask.h"
#include "Ondra/WalkTypes.h"

namespace Ondra {

class FullKelTypeWalker;

class KTD_EXPORT WalkQ {
public:
  enum WalkQStored : std::uint32_t {
    onStack = 0,
    inWalkMap = 1,
  };
  using WalkerList = std::list<std::unique_ptr<FullKelTypeWalker>,
                               Kel::MemAllocator<std::unique_ptr<FullKelTypeWalker>, WalkQ>>;

  WalkQ(SyncWalkId syncWalkId, WalkQStored stored);
  ~WalkQ();
  WalkQ(WalkQ const&) = delete;
  WalkQ& operator=(WalkQ const&) = delete;

  // While one lives, a walker that was taken out runs. One at a time.
  class Turn {
  public:
    explicit Turn(WalkQ& queue) noexcept : queue_(queue) {
      queue_.next_ = queue_.walkers.end();
      queue_.inTurn_ = true;
    }
    ~Turn() { queue_.inTurn_ = false; }
    Turn(Turn const&) = delete;
    Turn& operator=(Turn const&) = delete;

  private:
    WalkQ& queue_;
  };

  // Parks a walker. REQUIRES a stored queue of the walker's own walk (asserted).
  void addWalker(std::unique_ptr<FullKelTypeWalker>&& walker);
  // The walker that is to run next; null when there is none.
  [[nodiscard]] std::unique_ptr<FullKelTypeWalker> popWalker();
  // Moves one walker, or all of them, over into `to`.
  void drop(WalkerList::iterator walker, WalkerList& to) noexcept;
  void dropAll(WalkerList& to) noexcept;
  // The running task has used up its slice; false without a task.
  [[nodiscard]] bool shouldYield() const;
  // How often that has been asked.
  [[nodiscard]] std::uint64_t questions() const noexcept { return questions_; }

  std::shared_ptr<Tovak::Task> task; // drives the walk; may be empty
  SyncWalkId const syncWalkId;
  WalkerList walkers;
  WalkQStored const stored;
  bool running = false;
  bool cancelled = false;

private:
  WalkerList::iterator next_; // in a turn: before which the next one is put
  bool inTurn_ = false;
  mutable std::uint64_t questions_ = 0;
};

// A queue in traces: its address, or "walkQ:NULL".
struct WalkQPtr {
  WalkQ const* queue;
};

} // namespace Ondra

template <>
struct fmt::formatter<Ondra::WalkQPtr> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }
  template <typename Context>
  auto format(Ondra::WalkQPtr walkQ, Context& context) const {
    if (walkQ.queue == nullptr) return fmt::format_to(context.out(), "walkQ:NULL");
    return fmt::format_to(context.out(), "{}", static_cast<void const*>(walkQ.queue));
  }
};
