// The parts in the order in which they need each other, and the start and end of the scheduler's thread.
#include "agent/context/Context.h"

#include "Kel/Dir.h"
#include "Kel/MemoryReady.h"

namespace Agent {
namespace {

// A change may have to wait for a slice of somebody's walk: no longer, then, than a network delays it. What a
// slice costs beside its work is a hundredth of that.
constexpr std::int64_t kSliceNs = 1'000'000;

} // namespace

Context::Context(Options const& options)
    : limits_(options.limits)
    , getBudget_(std::make_shared<ByteBudget>(2 * options.limits.getBytes))
    , memory_(options.limits.memoryBytes)
    , clock_(options.clock != nullptr ? *options.clock : Tovak::SystemClock::instance())
    , loopTime_(clock_)
    , scheduler_(std::make_shared<Tovak::TaskScheduler>(clock_))
    , tree_(treeIn(*Kel::globalDir())) {
  scheduler_->sliceNsIs(kSliceNs);
  scheduler_->sliceHookIs([this](std::int64_t tookNs) { slices_.add(tookNs); });
  scheduler_->loopHookIs([this] {
    loopTime_.pass([this] {
      if (clockGoesBack_) clockGoesBack_();
    });
  });
}

Context::~Context() { stop(); }

void Context::start() {
  if (thread_.joinable()) return;
  memoryKeeper_ = std::jthread([](std::stop_token const& stop) { Kel::kelMemKeepReady(stop); });
  thread_ = std::thread([this] { scheduler_->run(); });
}

void Context::stop() {
  if (!thread_.joinable()) return;
  scheduler_->stop();
  thread_.join();
  memoryKeeper_ = {}; // ends it
}

} // namespace Agent
