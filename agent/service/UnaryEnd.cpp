// Whoever exchanges the reactor away finishes; from then on an alarm ends the call of a client who does not
// take its answer.
#include "agent/service/UnaryEnd.h"

#include <grpc/support/time.h>

#include "agent/context/Context.h"

namespace Agent {

void UnaryContext::patienceIs(std::int64_t ns) {
  gpr_timespec const until =
      gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC), gpr_time_from_nanos(ns, GPR_TIMESPAN));
  // The alarm keeps what it was given until it goes itself.
  alarm_.Set(until, [self = shared_from_this()](bool isDue) mutable {
    std::shared_ptr<UnaryContext> const context = std::move(self);
    if (isDue) context->takeAway();
  });
}

void UnaryContext::doneIs() {
  {
    std::lock_guard const guard(mutex_);
    context_ = nullptr;
  }
  alarm_.Cancel();
}

void UnaryContext::takeAway() {
  std::lock_guard const guard(mutex_);
  if (context_ != nullptr) context_->TryCancel();
}

void UnaryEnd::finish(grpc::Status const& status) {
  grpc::ServerUnaryReactor* const reactor = reactor_.exchange(nullptr);
  if (reactor == nullptr) return;
  if (told_) told_(status);
  agent_.tally().ended(status.error_code());
  if (status.ok()) context_->patienceIs(agent_.limits().stuckNs);
  reactor->Finish(status);
}

} // namespace Agent
