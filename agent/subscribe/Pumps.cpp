#include "agent/subscribe/Pumps.h"

#include <utility>

#include "agent/subscribe/SubscribeStream.h"

namespace Agent {

Pumps::~Pumps() {
  {
    std::lock_guard const guard(mutex_);
    ends_ = true;
  }
  arrived_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Pumps::pumpIs(std::shared_ptr<SubscribeStream> stream) {
  bool wake = false;
  {
    std::lock_guard const guard(mutex_);
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    wake = waiting_.empty();
    waiting_.push_back(std::move(stream));
  }
  if (wake) arrived_.notify_one();
}

void Pumps::run() {
  std::vector<std::shared_ptr<SubscribeStream>> now;
  std::unique_lock guard(mutex_);
  while (!ends_) {
    arrived_.wait(guard, [this] { return ends_ || !waiting_.empty(); });
    now.swap(waiting_);
    guard.unlock();
    for (std::shared_ptr<SubscribeStream> const& stream : now)
      stream->pump();
    now.clear();
    guard.lock();
  }
}

} // namespace Agent
