// The machine's clocks, and one that stands still until somebody blocks on it or moves it on.
#include "Tovak/Clock.h"

#include <algorithm>
#include <ctime>

#include "Tovak/Trace.h"

namespace Tovak {

namespace {

std::int64_t readNs(clockid_t id) {
  timespec now;
  clock_gettime(id, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace

Clock::~Clock() = default;

SystemClock& SystemClock::instance() {
  static SystemClock clock;
  return clock;
}

std::int64_t SystemClock::monotonicNs() const { return readNs(CLOCK_MONOTONIC); }
std::int64_t SystemClock::wallNs() const { return readNs(CLOCK_REALTIME); }
std::int64_t SystemClock::blockNs(std::int64_t deadlineNs) {
  return std::max<std::int64_t>(0, deadlineNs - monotonicNs());
}

SimulatedClock::SimulatedClock(std::int64_t monotonicStartNs, std::int64_t wallStartNs)
    : monotonicNs_(monotonicStartNs)
    , wallNs_(wallStartNs) {}

std::int64_t SimulatedClock::blockNs(std::int64_t deadlineNs) {
  advance(std::max<std::int64_t>(0, deadlineNs - monotonicNs()));
  return 0;
}

void SimulatedClock::advance(std::int64_t deltaNs) {
  TOVAK_ASSERT(deltaNs >= 0, Platform::getDebugHandler("Tovak", false), "clock moved back by {} ns",
               -deltaNs);
  monotonicNs_.fetch_add(deltaNs, std::memory_order_relaxed);
  wallNs_.fetch_add(deltaNs, std::memory_order_relaxed);
}

} // namespace Tovak
