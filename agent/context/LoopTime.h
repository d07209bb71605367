// Agent::LoopTime: the time that the model's changes carry, by the machine's clock, which may be wrong for a
// while.
//
// 1. The time is the machine's, give or take a second, or its clock has leapt within the last ten.
// 2. A leap, forward or back, is believed once it has stood for ten seconds; until then time runs on from
//    where it was. A clock that is wrong for less is never told to anybody.
// 3. Time does not go back while anybody is left who was told a later one: small steps back are waited for,
//    and before a large one that is believed all Subscribe calls end.
#pragma once

#include <cstdint>

#include <absl/functional/function_ref.h>

namespace Tovak {
class Clock;
} // namespace Tovak

namespace Agent {

// Moves the model's activity clock. Made and used by the scheduler's thread; the clock outlives it.
class LoopTime {
public:
  static constexpr std::int64_t leapNs = 1'000'000'000;
  static constexpr std::int64_t proofNs = 10'000'000'000;

  // Takes the machine's time as it is, also when an earlier object of this process was later.
  explicit LoopTime(Tovak::Clock const& clock);

  // At the beginning of a pass of the loop. `goesBack` is called before time does, and ends whatever has been
  // told of it.
  void pass(absl::FunctionRef<void()> goesBack);

private:
  Tovak::Clock const& clock_;
  std::int64_t offsetNs_; // of the time from the monotonic clock
  std::int64_t leapOffsetNs_ = 0;
  std::int64_t leapSinceNs_ = 0; // monotonic; 0: the machine has not leapt
};

} // namespace Agent
