// Seconds are doubles, nanoseconds integers: the way back takes the neighbour that gives the same count
// again, and nothing overflows.
#include "Kel/Scalars.h"

#include <cmath>
#include <limits>

namespace Kel {
namespace {

constexpr double kNsPerSecond = 1e9;
constexpr double kTwo63 = 9223372036854775808.0;
constexpr double kTwo64 = 18446744073709551616.0;

// The double whose own nanosecond count is `ns` where there is one, looking at the quotient and its two
// neighbours; beyond the resolution of a double, the quotient.
template <class Ns, class Encode>
double secondsFor(Ns ns, Encode encode) noexcept {
  double const quotient = static_cast<double>(ns) / kNsPerSecond;
  double const candidates[] = {quotient, std::nextafter(quotient, -std::numeric_limits<double>::infinity()),
                               std::nextafter(quotient, std::numeric_limits<double>::infinity())};
  for (double const candidate : candidates)
    if (encode(candidate) == ns) return candidate;
  return quotient;
}

} // namespace

std::int64_t Seconds::toNanoseconds(double seconds) noexcept {
  double const ns = seconds * kNsPerSecond;
  if (std::isnan(ns)) return 0;
  if (ns >= kTwo63) return std::numeric_limits<std::int64_t>::max();
  if (ns < -kTwo63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(ns);
}

Seconds Seconds::fromNanoseconds(std::int64_t ns) noexcept {
  Seconds value;
  value.seconds_ = secondsFor(ns, &Seconds::toNanoseconds);
  return value;
}

std::uint64_t Time::toNanoseconds(double seconds) noexcept {
  double const ns = seconds * kNsPerSecond;
  if (!(ns > 0)) return 0;
  if (ns >= kTwo64) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(ns);
}

Time Time::fromNanoseconds(std::uint64_t ns) noexcept {
  Time value;
  value.seconds_ = secondsFor(ns, &Time::toNanoseconds);
  return value;
}

} // namespace Kel
