// Agent::TimeHistogram: how long things took, to an eighth, in a constant space.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace Agent {

// Nanoseconds. A plain value; one thread at a time.
class TimeHistogram {
public:
  void add(std::int64_t ns) noexcept {
    auto const took = static_cast<std::uint64_t>(std::max<std::int64_t>(ns, 0));
    ++counts_[bucketOf(took)];
    ++count_;
    longest_ = std::max(longest_, took);
  }

  [[nodiscard]] std::uint64_t count() const noexcept { return count_; }
  [[nodiscard]] std::uint64_t longest() const noexcept { return longest_; }
  // What so many of a thousand took at most; 0 when there was none.
  [[nodiscard]] std::uint64_t most(std::uint64_t perMille) const noexcept {
    std::uint64_t const rank = count_ - count_ * (1'000 - perMille) / 1'000;
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < counts_.size(); ++bucket) {
      seen += counts_[bucket];
      if (seen >= rank && seen > 0) return std::min(endOf(bucket), longest_);
    }
    return longest_;
  }

private:
  static constexpr unsigned kBits = 3; // behind the first one that is set
  static constexpr std::size_t kSteps = std::size_t{1} << kBits;

  // Numbers below 8 have buckets of their own; each power of two from there on has eight.
  [[nodiscard]] static std::size_t bucketOf(std::uint64_t ns) noexcept {
    if (ns < kSteps) return ns;
    auto const shift = static_cast<unsigned>(std::bit_width(ns)) - 1 - kBits;
    return (shift + 1) * kSteps + ((ns >> shift) & (kSteps - 1));
  }
  // The largest number of a bucket.
  [[nodiscard]] static std::uint64_t endOf(std::size_t bucket) noexcept {
    if (bucket < kSteps) return bucket;
    std::size_t const shift = bucket / kSteps - 1;
    return ((kSteps + bucket % kSteps + 1) << shift) - 1;
  }

  std::array<std::uint64_t, (64 - kBits) * kSteps> counts_{};
  std::uint64_t count_ = 0;
  std::uint64_t longest_ = 0;
};

} // namespace Agent
