// The sampler: reads at an interval what the kernel tells only when asked.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Tovak/TaskScheduler.h"

namespace Agent {

// When a round began, by the scheduler's clock.
struct SampleTime {
  std::int64_t wallNs = 0; // since the Unix epoch
  std::int64_t monotonicNs = 0;
};

// Something that is sampled. A round is `begin` and then `advance` until it says that the round is over;
// between two steps the scheduler may do other things, and the model may have changed. A step reads one file
// or line, so that it takes microseconds.
class SampleSource {
public:
  virtual ~SampleSource() = default;
  virtual void begin(SampleTime const& now) = 0;
  // One step; false when the round is over.
  virtual bool advance() = 0;
};

// Samples its sources one after the other, round after round, in slices of the scheduler. A round that is due
// while the one before is still on is left out. Made with std::make_shared; owned by whoever started it;
// dropping it ends the sampling.
class Sampler final : public Tovak::Task {
public:
  Sampler(std::shared_ptr<Tovak::TaskScheduler> scheduler, std::int64_t periodNs);
  ~Sampler() override;

  // Adds a source, sampled in every `everyRounds`-th round, the first included. REQUIRES everyRounds > 0.
  void sourceIs(std::unique_ptr<SampleSource> source, std::uint64_t everyRounds = 1);
  // Begins the first round now and one every period from then on.
  void start();
  [[nodiscard]] std::uint64_t roundsDone() const { return rounds_; }

  void taskExecute() override;

private:
  struct Entry {
    std::unique_ptr<SampleSource> source;
    std::uint64_t everyRounds;
  };
  void beginRound();
  bool beginSource(); // the one at `position_`; false when it sits this round out

  std::int64_t const periodNs_;
  Tovak::TimerId timer_;
  std::vector<Entry> sources_;
  std::size_t position_ = 0;
  bool inRound_ = false;
  bool inSource_ = false;
  SampleTime now_;
  std::uint64_t rounds_ = 0; // done
};

} // namespace Agent
