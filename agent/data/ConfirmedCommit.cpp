// The rules of the extension, and a timer.
#include "agent/data/ConfirmedCommit.h"

#include <utility>

#include <fmt/format.h>

namespace Agent {

using grpc::StatusCode;

namespace {

constexpr std::int64_t kAgainNs = 1'000'000'000;

} // namespace

grpc::Status ConfirmedCommit::check(std::optional<CommitOrder> const& order) const {
  bool const begins = !order || order->action == CommitOrder::Action::Commit;
  if (begins && running_)
    return {StatusCode::FAILED_PRECONDITION,
            fmt::format("the commit '{}' waits for its confirmation", statusText(running_->id))};
  if (begins) return grpc::Status::OK;
  if (!running_) return {StatusCode::FAILED_PRECONDITION, "no commit waits for its confirmation"};
  if (order->id != running_->id)
    return {StatusCode::INVALID_ARGUMENT,
            fmt::format("the commit that waits for its confirmation is '{}'", statusText(running_->id))};
  return grpc::Status::OK;
}

void ConfirmedCommit::begin(CommitOrder const& order, std::unique_ptr<SetPlan> back, ConfigChange unwish) {
  running_ = Running{.id = order.id, .back = std::move(back), .unwish = std::move(unwish)};
  durationIs(order.durationNs);
}

void ConfirmedCommit::durationIs(std::int64_t ns) {
  scheduler_->timerDel(running_->timer);
  running_->isOver = false;
  running_->timer = scheduler_->timerAfter(ns, [this] {
    running_->isOver = true;
    isDue_();
  });
}

std::unique_ptr<SetPlan> ConfirmedCommit::back() { return std::move(running_->back); }

void ConfirmedCommit::backIs(std::unique_ptr<SetPlan> back) {
  running_->back = std::move(back);
  durationIs(kAgainNs);
}

void ConfirmedCommit::end() {
  if (running_) scheduler_->timerDel(running_->timer);
  running_.reset();
}

} // namespace Agent
