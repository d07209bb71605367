// A queue and a thread that starts with the first piece of work. At the end, what still waits is dropped.
#include "agent/context/Worker.h"

#include <utility>

namespace Agent {

Worker::~Worker() {
  {
    std::lock_guard const guard(mutex_);
    ends_ = true;
  }
  arrived_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Worker::post(Work work) {
  {
    std::lock_guard const guard(mutex_);
    waiting_.push_back(std::move(work));
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  }
  arrived_.notify_one();
}

void Worker::run() {
  for (;;) {
    Work work; // dropped without the lock
    {
      std::unique_lock guard(mutex_);
      arrived_.wait(guard, [this] { return ends_ || !waiting_.empty(); });
      if (ends_) return;
      work = std::move(waiting_.front());
      waiting_.pop_front();
    }
    work();
  }
}

} // namespace Agent
