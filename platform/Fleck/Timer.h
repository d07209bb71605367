// Timing of blocks of code, and the messages of the last moments, for whoever looks at a slow process.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Kstd/Export.h"
#include "Tovak/String.h"

namespace Tovak {
class Clock;
}

// Fleck: where does the time go, and what happened last? Scoped block timers and a ring of trace messages,
// both off until somebody switches them on. Off they cost one load and one test; no clock is read. Any
// thread.
namespace Fleck {

namespace Impl {
extern KTD_EXPORT std::atomic<bool> on;
KTD_EXPORT std::int64_t nowNs();
KTD_EXPORT void recordMessage(std::string_view text);
} // namespace Impl

inline bool isOn() { return Impl::on.load(std::memory_order_relaxed); }
KTD_EXPORT void onIs(bool on);

// The clock that is read while Fleck is on; null for the machine's. The caller keeps it alive.
KTD_EXPORT void clockIs(Tovak::Clock const* clock);

// The figures of one timed block of code. REQUIRES static storage duration, and a name that lives as long (a
// literal): once used it stays in the list of blocks. `static constinit` makes it free of start-up code.
class KTD_EXPORT Block {
public:
  explicit constexpr Block(char const* name) : name_(name) {}
  Block(Block const&) = delete;
  Block& operator=(Block const&) = delete;

  char const* name() const { return name_; }
  std::uint64_t count() const { return count_.load(std::memory_order_relaxed); }
  std::int64_t totalNs() const { return totalNs_.load(std::memory_order_relaxed); }
  std::int64_t maxNs() const { return maxNs_.load(std::memory_order_relaxed); }

  // Counts one run of the block.
  void add(std::int64_t ns);

private:
  friend KTD_EXPORT Tovak::String dump();
  friend KTD_EXPORT void reset();

  char const* const name_;
  std::atomic<std::uint64_t> count_{0};
  std::atomic<std::int64_t> totalNs_{0};
  std::atomic<std::int64_t> maxNs_{0};
  std::atomic<bool> listed_{false};
  Block* next_ = nullptr;
};

// Times the enclosing scope:
//   static constinit Fleck::Block block{"FullKelTypeWalker::walk"};
//   Fleck::ScopedTimer timer{block};
// A scope that begins while Fleck is off is not counted.
class ScopedTimer {
public:
  explicit ScopedTimer(Block& block) {
    if (isOn()) [[unlikely]] {
      block_ = &block;
      startNs_ = Impl::nowNs();
    }
  }
  ~ScopedTimer() {
    if (block_) [[unlikely]]
      block_->add(Impl::nowNs() - startNs_);
  }
  ScopedTimer(ScopedTimer const&) = delete;
  ScopedTimer& operator=(ScopedTimer const&) = delete;

private:
  Block* block_ = nullptr;
  std::int64_t startNs_ = 0;
};

// One line "<name>: count <n>, total <ns> ns, max <ns> ns" per block that has run, in the order of the names.
KTD_EXPORT Tovak::String dump();

// Clears the figures of all blocks and the messages.
KTD_EXPORT void reset();

// How many messages are kept; older ones are overwritten.
inline constexpr size_t messageCapacity = 1024;
// How many bytes of a message are kept.
inline constexpr size_t messageMaxLength = 256;

// Records a trace message in the ring, with the time, while Fleck is on.
inline void message(std::string_view text) {
  if (isOn()) [[unlikely]]
    Impl::recordMessage(text);
}

struct Message {
  std::int64_t monotonicNs;
  Tovak::String text;
};

// The messages in the ring, the oldest first.
KTD_EXPORT std::vector<Message> messages();

} // namespace Fleck
