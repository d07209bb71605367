// Kept as the offset between the wall clock and the monotonic one: a leap is another offset, believed when it
// has stood long enough.
#include "agent/context/LoopTime.h"

#include "Kel/ActivityClock.h"
#include "Tovak/Clock.h"

namespace Agent {
namespace {

bool isNear(std::int64_t one, std::int64_t other) {
  return one - other <= LoopTime::leapNs && other - one <= LoopTime::leapNs;
}

} // namespace

LoopTime::LoopTime(Tovak::Clock const& clock)
    : clock_(clock)
    , offsetNs_(clock.wallNs() - clock.monotonicNs()) {
  Kel::activityManagerStatus()->activityLoopExecNsTimeRestart(clock.wallNs());
}

void LoopTime::pass(absl::FunctionRef<void()> goesBack) {
  std::int64_t const monotonic = clock_.monotonicNs();
  std::int64_t const offset = clock_.wallNs() - monotonic;
  if (isNear(offset, offsetNs_)) {
    offsetNs_ = offset;
    leapSinceNs_ = 0;
  } else if (leapSinceNs_ == 0 || !isNear(offset, leapOffsetNs_)) { // to somewhere, or somewhere else
    leapOffsetNs_ = offset;
    leapSinceNs_ = monotonic;
  } else if (monotonic - leapSinceNs_ >= proofNs) {
    offsetNs_ = offset;
    leapSinceNs_ = 0;
  }
  Kel::ActivityManagerStatus& time = *Kel::activityManagerStatus();
  std::int64_t const now = monotonic + offsetNs_;
  if (time.activityLoopExecNsTime() - now > leapNs) {
    goesBack();
    time.activityLoopExecNsTimeRestart(now);
  }
  time.activityLoopExecNsTimeIs(now);
}

} // namespace Agent
