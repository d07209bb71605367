// Agent::Pumps: one thread that begins the writing of streams, so that the scheduler thread never encodes nor writes.
// docs/decisions.md: "Who begins a write?"
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Agent {

class SubscribeStream;

// A stream that is idle is handed over when something is queued for it; once its first write is on its way gRPC's threads go on. Any
// thread. The thread begins with the first stream and ends with this object, which drops the streams that still wait.
class Pumps {
public:
  Pumps() = default;
  ~Pumps();
  Pumps(Pumps const&) = delete;
  Pumps& operator=(Pumps const&) = delete;

  void pumpIs(std::shared_ptr<SubscribeStream> stream);

private:
  void run();

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::shared_ptr<SubscribeStream>> waiting_;
  bool ends_ = false;
  std::thread thread_;
};

} // namespace Agent
