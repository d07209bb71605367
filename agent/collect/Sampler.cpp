// A round is a task of low priority that yields between steps of its sources; a tick that finds one under way
// starts none.
#include "agent/collect/Sampler.h"
#include "Tovak/Assert.h"
#include "Tovak/Clock.h"
#include "Tovak/DebugHandler.h"

namespace Agent {

Sampler::Sampler(std::shared_ptr<Tovak::TaskScheduler> scheduler, std::int64_t periodNs)
    : Task(std::move(scheduler), "agent-sampler", Tovak::TaskPriority::low)
    , periodNs_(periodNs) {}

Sampler::~Sampler() { scheduler()->timerDel(timer_); }

void Sampler::sourceIs(std::unique_ptr<SampleSource> source, std::uint64_t everyRounds) {
  TOVAK_ASSERT(everyRounds > 0, Tovak::Platform::getDebugHandler("OndraAgent", false),
               "a source that no round samples");
  sources_.push_back({std::move(source), everyRounds});
}

void Sampler::start() {
  scheduler()->timerDel(timer_);
  timer_ = scheduler()->timerEvery(periodNs_, [this] { beginRound(); });
  beginRound();
}

void Sampler::beginRound() {
  if (inRound_) return;
  Tovak::Clock const& clock = scheduler()->clock();
  now_ = {.wallNs = clock.wallNs(), .monotonicNs = clock.monotonicNs()};
  inRound_ = true;
  inSource_ = false;
  position_ = 0;
  scheduleTask();
}

bool Sampler::beginSource() {
  Entry const& entry = sources_[position_];
  if (rounds_ % entry.everyRounds != 0) return false;
  entry.source->begin(now_);
  return true;
}

void Sampler::taskExecute() {
  while (position_ < sources_.size()) {
    bool const goesOn = inSource_ ? sources_[position_].source->advance() : beginSource();
    if (!goesOn) ++position_;
    inSource_ = goesOn;
    if (taskShouldYield()) return scheduleTask();
  }
  inRound_ = false;
  ++rounds_;
}

} // namespace Agent
