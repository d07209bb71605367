// The model's activity-loop clock: the time that all changes of one pass of the host's event loop share.
#pragma once

#include <cstdint>

#include "Kstd/Export.h"

namespace Kel {

// Nanoseconds since the Unix epoch. Never goes back, but for `activityLoopExecNsTimeRestart`, and is never 0.
// Read and moved on the scheduler thread.
class KTD_EXPORT ActivityManagerStatus {
public:
  // The time of this pass.
  [[nodiscard]] std::int64_t activityLoopExecNsTime() const noexcept { return now_; }
  // At the beginning of a loop pass: the time is `now`, unless that would take it back.
  void activityLoopExecNsTimeIs(std::int64_t now) noexcept {
    if (now > now_) now_ = now;
  }
  // The time is `now`, also when that takes it back: for a host that has shown itself wrong. REQUIRES now >
  // 0, and that nobody is left who was told of a change by the time until then, or he would take what is told
  // him from now on for older.
  void activityLoopExecNsTimeRestart(std::int64_t now) noexcept { now_ = now; }
  // Moves the time on.
  void activityLoopExecNsTimeInc(std::int64_t ns) noexcept { now_ += ns; }

private:
  std::int64_t now_ = 1;
};

// The one clock of the process.
[[nodiscard]] KTD_EXPORT ActivityManagerStatus* activityManagerStatus();

} // namespace Kel
