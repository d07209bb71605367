// Bytes are counted up to the bound and down to half of it; each message holds its share of the budget while
// it waits.
#include "agent/subscribe/OutQueue.h"

#include <algorithm>
#include <utility>

namespace Agent {
namespace {

constexpr std::size_t kTightBytes = 64 * 1024;

} // namespace

void OutQueue::push(Message::Ptr message) {
  bytes_ += message->bytes();
  Message::Charge charge = message->charged(budget_);
  messages_.push_back({std::move(message), std::move(charge)});
  if (bytes() >= (budget_->isTight() ? std::min(bound_, kTightBytes) : bound_)) full_ = true;
}

Message::Ptr OutQueue::pop() {
  Message::Ptr out;
  if (!messages_.empty()) {
    out = std::move(messages_.front().message);
    messages_.pop_front();
    bytes_ -= out->bytes();
  }
  if (full_ && bytes() <= bound_ / 2) {
    full_ = false;
    drained_ = true;
  }
  return out;
}

void OutQueue::clear() {
  messages_.clear();
  bytes_ = 0;
  full_ = true;
}

bool OutQueue::takeDrained() noexcept { return std::exchange(drained_, false); }

} // namespace Agent
