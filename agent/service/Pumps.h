// Agent::Pumps: the threads that encode and write responses, so that neither the scheduler's nor gRPC's do,
// and no peer waits for another's. docs/decisions.md: "Who begins a write?"
//
// 1. Peers have a turn one after the other, for one write each, however many streams they have; a peer's
//    streams likewise among themselves.
// 2. A stream stands in line once at most; it comes again when its write is done.
// 3. The threads give way to all others of the process: what is to be written can wait for what is to be
//    told, not the other way round.
#pragma once

#include <absl/container/node_hash_map.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Agent {

class SubscribeStream;

// Any thread. As many threads as processors begin with the first stream and end with this object, which drops
// the streams that still wait.
class Pumps {
public:
  Pumps() = default;
  ~Pumps();
  Pumps(Pumps const&) = delete;
  Pumps& operator=(Pumps const&) = delete;

  // `SubscribeStream::pump` follows. That it does not stand in line already is the stream's to know.
  void pumpIs(std::shared_ptr<SubscribeStream> stream);

private:
  using Lines = absl::node_hash_map<std::string, std::deque<std::shared_ptr<SubscribeStream>>>;

  void threadsBegin(); // REQUIRES the lock
  void run();
  // Who has the next turn. REQUIRES that somebody waits; that the lock is held the guard shows.
  [[nodiscard]] std::shared_ptr<SubscribeStream> next(std::unique_lock<std::mutex> const& guard);

  std::mutex mutex_;
  std::condition_variable arrived_;
  Lines lines_;                         // by peer; none is empty
  std::deque<Lines::value_type*> ring_; // of all of them
  bool ends_ = false;
  std::vector<std::thread> threads_;
};

} // namespace Agent
