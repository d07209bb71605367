// Blocks count without a lock and are listed at their first run; messages go into a ring under a lock.
#include "Fleck/Timer.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include <fmt/format.h>

#include "Tovak/Clock.h"
#include "Tovak/Lock.h"

namespace Fleck {

namespace {

std::atomic<Tovak::Clock const*> currentClock{nullptr}; // null: the machine's

struct Recorder {
  Tovak::Locking::Lock lock;
  // All guarded by lock. The texts keep their storage, so a ring that has gone round once allocates no more.
  Block* blocks = nullptr; // every block that was ever used, by next_
  std::array<Message, messageCapacity> ring;
  std::uint64_t recorded = 0;
};

// Never freed: blocks are timed until the last static destructor.
Recorder& recorder() {
  static auto* const instance = new Recorder;
  return *instance;
}

} // namespace

std::atomic<bool> Impl::on{false};

std::int64_t Impl::nowNs() {
  Tovak::Clock const* const clock = currentClock.load(std::memory_order_acquire);
  return clock ? clock->monotonicNs() : Tovak::SystemClock::instance().monotonicNs();
}

void Impl::recordMessage(std::string_view text) {
  std::int64_t const now = nowNs();
  Recorder& all = recorder();
  std::lock_guard const guard(all.lock);
  Message& slot = all.ring[all.recorded++ % messageCapacity];
  slot.monotonicNs = now;
  slot.text = text.substr(0, messageMaxLength);
}

void onIs(bool on) { Impl::on.store(on, std::memory_order_relaxed); }

void clockIs(Tovak::Clock const* clock) { currentClock.store(clock, std::memory_order_release); }

void Block::add(std::int64_t ns) {
  count_.fetch_add(1, std::memory_order_relaxed);
  totalNs_.fetch_add(ns, std::memory_order_relaxed);
  std::int64_t max = maxNs_.load(std::memory_order_relaxed);
  while (ns > max && !maxNs_.compare_exchange_weak(max, ns, std::memory_order_relaxed)) {
  }
  if (!listed_.load(std::memory_order_relaxed) && !listed_.exchange(true)) {
    Recorder& all = recorder();
    std::lock_guard const guard(all.lock);
    next_ = std::exchange(all.blocks, this);
  }
}

Tovak::String dump() {
  Recorder& all = recorder();
  std::lock_guard const guard(all.lock);
  std::vector<Block const*> ran;
  for (Block const* block = all.blocks; block; block = block->next_)
    if (block->count() != 0) ran.push_back(block);
  std::sort(ran.begin(), ran.end(),
            [](auto* a, auto* b) { return std::string_view(a->name()) < std::string_view(b->name()); });
  fmt::memory_buffer out;
  for (Block const* block : ran) {
    fmt::format_to(fmt::appender(out), "{}: count {}, total {} ns, max {} ns\n", block->name(),
                   block->count(), block->totalNs(), block->maxNs());
  }
  return fmt::to_string(out);
}

void reset() {
  Recorder& all = recorder();
  std::lock_guard const guard(all.lock);
  for (Block* block = all.blocks; block; block = block->next_) {
    block->count_.store(0, std::memory_order_relaxed);
    block->totalNs_.store(0, std::memory_order_relaxed);
    block->maxNs_.store(0, std::memory_order_relaxed);
  }
  all.recorded = 0;
}

std::vector<Message> messages() {
  Recorder& all = recorder();
  std::lock_guard const guard(all.lock);
  std::vector<Message> kept;
  for (std::uint64_t i = all.recorded - std::min<std::uint64_t>(all.recorded, messageCapacity);
       i < all.recorded; ++i)
    kept.push_back(all.ring[i % messageCapacity]);
  return kept;
}

} // namespace Fleck
