// Agent::Worker: a thread for what takes long and touches no model.
// docs/decisions.md: "Where is a Set planned?"
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <absl/functional/any_invocable.h>

namespace Agent {

// Does one thing after the other. Any thread. Its own begins with the first piece of work and ends with this
// object, which drops what still waits.
class Worker {
public:
  using Work = absl::AnyInvocable<void()>;

  Worker() = default;
  ~Worker();
  Worker(Worker const&) = delete;
  Worker& operator=(Worker const&) = delete;

  void post(Work work);

private:
  void run();

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Work> waiting_;
  bool ends_ = false;
  std::thread thread_;
};

} // namespace Agent
