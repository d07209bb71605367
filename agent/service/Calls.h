// Agent::Calls: the Subscribe calls that there are, from their first byte until their clients have taken the
// end.
//
// Invariants
// 1. A stream is in one of three places: it has begun and owes its list; it has a call; it has been ended as
//    stuck and its client still takes nothing.
// 2. A call is dropped on the scheduler thread alone, and never by what it is called from itself.
// 3. More waits for subscribers than there is memory for only until the next turn: then those who hold the
//    most are ended, who take nothing first.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <absl/container/flat_hash_map.h>
#include <absl/functional/function_ref.h>
#include <grpcpp/support/status.h>

#include "Tovak/TaskScheduler.h"
#include "agent/context/Memory.h"
#include "agent/service/Pumps.h"
#include "agent/subscribe/Call.h"
#include "agent/subscribe/Feed.h"

namespace Agent {

class Context;
class Router;
class SubscribeStream;
struct CallPlan;

// Scheduler thread, where nothing else is said. The router outlives it.
class Calls {
public:
  explicit Calls(Router& router);
  ~Calls();
  Calls(Calls const&) = delete;
  Calls& operator=(Calls const&) = delete;

  [[nodiscard]] Context& context() const noexcept;

  // Ends every call with that status, and refuses new ones with it: the agent is going down.
  void end(grpc::Status const& status);
  // Ends those that are there; new ones may come.
  void restart(grpc::Status const& status);
  [[nodiscard]] std::size_t count() const { return calls_.size(); }
  // Those that have told what they want.
  using Visit = absl::FunctionRef<void(SubscribeStream const& stream, Call const& call)>;
  void forEach(Visit visit) const;

  // --- for streams: any thread ----------------------------------------------------------------------
  // A place among the calls that are allowed at a time, until it is dropped; null when there are too many, or
  // too many from that address (which may be empty: then it has none).
  [[nodiscard]] std::shared_ptr<void const> slotIs(std::string const& address);
  // The next number of a stream.
  [[nodiscard]] std::uint64_t nextId() noexcept {
    return lastId_.fetch_add(1, std::memory_order_relaxed) + 1;
  }
  // See 3.
  void shedIs();
  // Has `pump` of the stream called on a thread that may encode.
  void pumpIs(std::shared_ptr<SubscribeStream> stream);

  // --- for streams ----------------------------------------------------------------------------------
  // A call has begun; its subscription list is to come.
  void streamIs(std::shared_ptr<SubscribeStream> const& stream);
  void callIs(std::shared_ptr<SubscribeStream> const& stream, CallPlan const& plan);
  void poll(SubscribeStream& stream);
  void halfClosed(SubscribeStream& stream);
  void drained(SubscribeStream& stream);
  void streamDel(SubscribeStream& stream);

private:
  class Slots;
  struct Since { // monotonic
    std::shared_ptr<SubscribeStream> stream;
    std::int64_t ns;
  };

  [[nodiscard]] Call* find(SubscribeStream& stream);
  void prepare(std::shared_ptr<SubscribeStream> const& stream);
  void check();
  void shed();
  void endNow(SubscribeStream& stream, char const* why);

  Router& router_;
  FeedIndex feeds_;
  std::shared_ptr<Slots> const slots_;
  absl::flat_hash_map<SubscribeStream*, Since> begun_;                 // have not told their lists
  absl::flat_hash_map<SubscribeStream*, std::unique_ptr<Call>> calls_; // each holds its stream
  std::vector<Since> stuck_;                                           // have been ended
  std::optional<grpc::Status> ending_;
  Tovak::TimerId checkTimer_;
  HeapTrimmer trimmer_;
  std::atomic<bool> shedComes_ = false;
  std::atomic<std::uint64_t> lastId_ = 0;
  Pumps pumps_; // ends first
};

} // namespace Agent
