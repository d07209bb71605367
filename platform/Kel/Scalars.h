// The model's scalar kinds that the language does not have: points in time, durations, JSON texts.
#pragma once

#include <cstdint>

#include "Kel/String.h"
#include "Kstd/Export.h"

namespace Kel {

// Names an attribute within its type. Notifications carry it, and there it can be negative.
using AttributeId = std::int32_t;

// A duration in seconds. Whatever is stored is quantised to a double that its own number of nanoseconds leads
// back to, so that the nanosecond text of a value gives that value again. Values beyond the range of a signed
// 64-bit number of nanoseconds are clamped; NaN is 0.
class KTD_EXPORT Seconds {
public:
  constexpr Seconds() noexcept = default;
  // Quantised, see above.
  explicit Seconds(double seconds) noexcept : Seconds(fromNanoseconds(toNanoseconds(seconds))) {}
  [[nodiscard]] static Seconds fromNanoseconds(std::int64_t ns) noexcept; // quantised, see above
  [[nodiscard]] double value() const noexcept { return seconds_; }        // in seconds
  [[nodiscard]] std::int64_t nanoseconds() const noexcept { return toNanoseconds(seconds_); } // nearest
  friend bool operator==(Seconds const& a, Seconds const& b) noexcept {
    return a.nanoseconds() == b.nanoseconds();
  }

private:
  static std::int64_t toNanoseconds(double seconds) noexcept;
  double seconds_ = 0;
};

// A point in time, in seconds since the Unix epoch; never negative. Quantised like `Seconds`, over unsigned
// nanoseconds.
class KTD_EXPORT Time {
public:
  constexpr Time() noexcept = default;
  // Quantised, see above.
  explicit Time(double seconds) noexcept : Time(fromNanoseconds(toNanoseconds(seconds))) {}
  [[nodiscard]] static Time fromNanoseconds(std::uint64_t ns) noexcept; // quantised, see above
  [[nodiscard]] double value() const noexcept { return seconds_; }      // in seconds
  [[nodiscard]] std::uint64_t nanoseconds() const noexcept { return toNanoseconds(seconds_); } // nearest
  friend bool operator==(Time const& a, Time const& b) noexcept { return a.nanoseconds() == b.nanoseconds(); }

private:
  static std::uint64_t toNanoseconds(double seconds) noexcept;
  double seconds_ = 0;
};

// A text that is JSON and is handed on as such. The model does not look inside.
struct JsonString {
  String text; // handed on as it is
  friend bool operator==(JsonString const& a, JsonString const& b) noexcept { return a.text == b.text; }
};

// The type of the housekeeping attributes that accompany collections; readers of data skip them.
struct CollectionControl {
  friend bool operator==(CollectionControl, CollectionControl) noexcept { return true; }
};

} // namespace Kel
