#include "Tovak/Clock.h"

#include <algorithm>
#include <ctime>

#include "Tovak/Trace.h"

namespace Tovak {

namespace {

int64_t readNs(clockid_t id) {
  timespec now;
  clock_gettime(id, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace

Clock::~Clock() = default;

SystemClock& SystemClock::instance() {
  static SystemClock clock;
  return clock;
}

int64_t SystemClock::monotonicNs() const { return readNs(CLOCK_MONOTONIC); }
int64_t SystemClock::wallNs() const { return readNs(CLOCK_REALTIME); }
int64_t SystemClock::blockNs(int64_t deadlineNs) { return std::max<int64_t>(0, deadlineNs - monotonicNs()); }

SimulatedClock::SimulatedClock(int64_t monotonicStartNs, int64_t wallStartNs)
    : monotonicNs_(monotonicStartNs)
    , wallNs_(wallStartNs) {}

int64_t SimulatedClock::blockNs(int64_t deadlineNs) {
  advance(std::max<int64_t>(0, deadlineNs - monotonicNs()));
  return 0;
}

void SimulatedClock::advance(int64_t deltaNs) {
  TOVAK_ASSERT(deltaNs >= 0, Platform::getDebugHandler("Tovak", false), "clock moved back by {} ns",
               -deltaNs);
  monotonicNs_.fetch_add(deltaNs, std::memory_order_relaxed);
  wallNs_.fetch_add(deltaNs, std::memory_order_relaxed);
}

} // namespace Tovak
