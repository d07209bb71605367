// The line above which memory is short, moved up when it stays so; and when to trim: seldom where that gives
// nothing back.
#include "agent/service/MemoryGuard.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace Agent {
namespace {

constexpr std::size_t kLeast = std::size_t{32} << 20;
constexpr std::size_t kWorthwhile = std::size_t{8} << 20;
constexpr std::int64_t kTrimNs = 2'000'000'000;
constexpr std::int64_t kTrimSeldomNs = 60'000'000'000;

} // namespace

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t whole = 0;
  std::size_t resident = 0;
  return statm >> whole >> resident ? resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) : 0;
}

MemoryGuard::MemoryGuard(std::size_t resident, std::size_t room, std::size_t limit)
    : first_(resident)
    , step_(std::max(kLeast, room / 4))
    , line_(std::max(resident + kLeast, std::min(resident + room, limit / 8 * 7)))
    , trimEveryNs_(kTrimNs) {}

bool MemoryGuard::isShort(std::size_t resident, std::int64_t nowNs) {
  isNear_ = resident > first_ + (line_ - first_) / 2;
  if (resident <= line_) {
    sinceNs_ = 0;
    return false;
  }
  if (sinceNs_ == 0) {
    sinceNs_ = nowNs;
  } else if (nowNs - sinceNs_ > acceptNs) { // the model has grown, or the heap keeps it
    line_ = resident + step_;
    sinceNs_ = 0;
  }
  return true;
}

bool MemoryGuard::trimIsDue(std::size_t resident, std::int64_t nowNs) {
  isMore_ = resident > first_ + kLeast;
  if (!isMore_ || nowNs - trimmedNs_ < (resident > line_ ? kTrimNs : trimEveryNs_)) return false;
  trimmedNs_ = nowNs;
  return true;
}

void MemoryGuard::trimmed(std::size_t before, std::size_t after) {
  trimEveryNs_ = before > after + kWorthwhile ? kTrimNs : std::min(2 * trimEveryNs_, kTrimSeldomNs);
}

} // namespace Agent
