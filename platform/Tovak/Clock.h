// Time as a dependency: the machine's clock, and one that tests move.
#pragma once

#include <atomic>
#include <cstdint>

#include "Kstd/Export.h"

namespace Tovak {

// Where time comes from. Everything that needs the time is given a clock, so that tests run on a
// SimulatedClock and never sleep. All times are nanoseconds. Readable from any thread. Whoever makes a clock
// owns it; the users hold references and must go first.
class KTD_EXPORT Clock {
public:
  virtual ~Clock();

  // Time since an arbitrary fixed point; never goes back. Deadlines, slices and durations are measured with
  // it.
  virtual std::int64_t monotonicNs() const = 0;

  // Time since the Unix epoch; may be set back by the machine's operator.
  virtual std::int64_t wallNs() const = 0;

  // An event loop with nothing to do before `deadlineNs` (monotonic) asks how long, in real nanoseconds, it
  // has to block for the clock to get there; 0 means that it is there already. A simulated clock jumps to the
  // deadline.
  virtual std::int64_t blockNs(std::int64_t deadlineNs) = 0;

  // Whether reading the clock costs next to nothing and exact readings matter more than saving them.
  virtual bool isSimulated() const = 0;
};

// The machine's clocks.
class KTD_EXPORT SystemClock final : public Clock {
public:
  // The one instance, valid for the life of the process.
  static SystemClock& instance();

  std::int64_t monotonicNs() const override;
  std::int64_t wallNs() const override;
  std::int64_t blockNs(std::int64_t deadlineNs) override;
  bool isSimulated() const override { return false; }
};

// A clock that moves only when told to, or when an event loop has nothing else to do (see Clock::blockNs).
// Both of its times advance together.
class KTD_EXPORT SimulatedClock final : public Clock {
public:
  // Where both times begin.
  explicit SimulatedClock(std::int64_t monotonicStartNs = 1'000'000'000,
                          std::int64_t wallStartNs = 1'600'000'000'000'000'000);

  std::int64_t monotonicNs() const override { return monotonicNs_.load(std::memory_order_relaxed); }
  std::int64_t wallNs() const override { return wallNs_.load(std::memory_order_relaxed); }
  std::int64_t blockNs(std::int64_t deadlineNs) override;
  bool isSimulated() const override { return true; }

  // Moves both times forward. REQUIRES deltaNs >= 0.
  void advance(std::int64_t deltaNs);

  // Sets the wall time alone, also back, as an operator would.
  void wallNsIs(std::int64_t wallNs) { wallNs_.store(wallNs, std::memory_order_relaxed); }

private:
  std::atomic<std::int64_t> monotonicNs_;
  std::atomic<std::int64_t> wallNs_;
};

} // namespace Tovak
