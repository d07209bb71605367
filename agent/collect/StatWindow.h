// Average, minimum and maximum over the last samples of a figure.
// docs/decisions.md: "Averages"
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"

namespace Agent {

// Holds the last `kSamples` samples. A sample stands for the time since the one before it.
template <class T>
class StatWindow {
public:
  static constexpr std::size_t kSamples = 60;

  struct Stats {
    double avg = 0;
    T min{};
    T max{};
    std::uint64_t minTime = 0; // of the latest such sample, ns since the Unix epoch
    std::uint64_t maxTime = 0;
    std::uint64_t interval = 0; // ns that the samples stand for
  };

  void push(T value, std::uint64_t timeNs, std::uint64_t spanNs) {
    samples_[next_] = {value, timeNs, spanNs};
    next_ = (next_ + 1) % kSamples;
    if (count_ < kSamples) ++count_;
  }

  // REQUIRES that something has been pushed.
  [[nodiscard]] Stats stats() const {
    TOVAK_ASSERT(count_ > 0, Tovak::Platform::getDebugHandler("OndraAgent", false), "figures of no samples");
    std::size_t const oldest = (next_ + kSamples - count_) % kSamples;
    Stats stats{.min = samples_[oldest].value, .max = samples_[oldest].value};
    double sum = 0;
    for (std::size_t i = 0; i < count_; ++i) {
      Sample const& sample = samples_[(oldest + i) % kSamples];
      sum += static_cast<double>(sample.value);
      stats.interval += sample.spanNs;
      if (sample.value <= stats.min) {
        stats.min = sample.value;
        stats.minTime = sample.timeNs;
      }
      if (sample.value >= stats.max) {
        stats.max = sample.value;
        stats.maxTime = sample.timeNs;
      }
    }
    stats.avg = sum / static_cast<double>(count_);
    return stats;
  }

private:
  struct Sample {
    T value{};
    std::uint64_t timeNs = 0;
    std::uint64_t spanNs = 0;
  };
  std::array<Sample, kSamples> samples_{};
  std::size_t next_ = 0;
  std::size_t count_ = 0;
};

} // namespace Agent
