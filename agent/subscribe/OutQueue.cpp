#include "agent/subscribe/OutQueue.h"

#include <algorithm>
#include <utility>

namespace Agent {
namespace {

constexpr std::size_t kTightBytes = 64 * 1024;

} // namespace

void OutQueue::push(Message::Ptr message) {
  share_.bytesAre(bytes() + message->bytes());
  messages_.push_back(std::move(message));
  if (bytes() >= (budget_.isTight() ? std::min(bound_, kTightBytes) : bound_)) full_ = true;
}

Message::Ptr OutQueue::pop() {
  Message::Ptr out;
  if (!messages_.empty()) {
    out = std::move(messages_.front());
    messages_.pop_front();
    share_.bytesAre(bytes() - out->bytes());
  }
  if (full_ && bytes() <= bound_ / 2) {
    full_ = false;
    drained_ = true;
  }
  return out;
}

void OutQueue::clear() {
  messages_.clear();
  share_.bytesAre(0);
  full_ = true;
}

bool OutQueue::takeDrained() noexcept { return std::exchange(drained_, false); }

} // namespace Agent
