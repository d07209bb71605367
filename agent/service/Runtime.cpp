#include "agent/service/Runtime.h"

#include "Kel/Dir.h"
#include "agent/data/ByteBudget.h"
#include "agent/data/ClientEntries.h"
#include "agent/data/SetRun.h"
#include "agent/service/Memory.h"
#include "agent/service/Worker.h"
#include "agent/subscribe/Engine.h"

namespace Agent {

Runtime::Runtime() : Runtime(Options()) {}

Runtime::Runtime(Options const& options)
    : limits_(options.limits)
    , getBudget_(std::make_shared<ByteBudget>(2 * options.limits.getBytes))
    , memory_(std::make_unique<MemoryBudgets>(options.limits.memoryBytes))
    , clientEntries_(std::make_unique<ClientEntries>(memory_->entries))
    , clock_(options.clock != nullptr ? *options.clock : Tovak::SystemClock::instance())
    , loopTime_(clock_)
    , scheduler_(std::make_shared<Tovak::TaskScheduler>(clock_))
    , tree_(treeIn(*Kel::globalDir()))
    , engine_(std::make_unique<Engine>(*this))
    , worker_(std::make_unique<Worker>())
    , sets_(std::make_unique<SetRuns>(*this)) {
  scheduler_->loopHookIs([this] {
    loopTime_.pass([this] {
      engine_->callsRestart(
          {grpc::StatusCode::UNAVAILABLE, "the machine's clock was set back: subscribe again"});
    });
  });
}

Runtime::~Runtime() { stop(); }

void Runtime::start() {
  if (!thread_.joinable()) thread_ = std::thread([this] { scheduler_->run(); });
}

void Runtime::stop() {
  if (!thread_.joinable()) return;
  scheduler_->stop();
  thread_.join();
}

} // namespace Agent
