// Agent::Engine: the one router of the agent's walks and changes, and all that is subscribed.
//
// Everything here runs on the scheduler thread unless it says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include <grpcpp/support/status.h>

#include "agent/subscribe/PatternWalk.h"
#include "agent/subscribe/Snapshot.h"
#include "agent/subscribe/Staging.h"
#include "agent/subscribe/Turns.h"

namespace Tovak {
class Task;
} // namespace Tovak

namespace Agent {

class FeedIndex;
class Pattern;
class Runtime;
class SubscribeStream;
struct CallPlan;

// Owned by the Runtime; outlives every walk and every watch of the model.
class Engine {
public:
  explicit Engine(Runtime& runtime);
  ~Engine();
  Engine(Engine const&) = delete;
  Engine& operator=(Engine const&) = delete;

  // Reads everything at and below the pattern for `sink`, when it is the turn of a peer of that address. The first notification comes in a
  // later turn.
  [[nodiscard]] std::shared_ptr<Snapshot> snapshotIs(Pattern pattern, std::shared_ptr<SnapshotSink> sink,
                                                     std::string const& address);

  // --- for a Set, which may take several turns and be taken back -----------------------------------
  // From now on nothing is read and no STREAM begins, and changes wait aside (see Staging). REQUIRES that it is not so already.
  void stagingBegins();
  // Whose the changes are that come now; the Set's own at first.
  void stagedIs(Staging::Whose whose);
  [[nodiscard]] bool hasRoomForStaged() const;
  // Forgets those of the Set, but at and below `kept`.
  void stagedDel(std::span<std::string const> kept);
  // Tells those that wait; false when the task's slice is over before.
  [[nodiscard]] bool stagedTold(Tovak::Task const& task);
  // Everything goes on.
  void stagingEnds();

  // Ends every Subscribe call with that status, and refuses new ones with it: the agent is going down.
  void callsEnd(grpc::Status const& status);
  // Ends those that are there; new ones may come.
  void callsRestart(grpc::Status const& status);
  [[nodiscard]] std::size_t callCount() const;

  // --- for Subscribe streams ----------------------------------------------------------------------
  // A place among the calls that are allowed at a time, until it is dropped; null when there are too many, or too many from that address
  // (which may be empty: then it has none). Any thread, both.
  [[nodiscard]] std::shared_ptr<void const> slotIs(std::string const& address);
  // More waits for subscribers than there is memory for: in a turn to come those who hold the most are ended, who take nothing first.
  void shedIs();
  // Has `pump` of the stream called on a thread that may encode. Any thread.
  void pumpIs(std::shared_ptr<SubscribeStream> stream);
  // A call has begun; its subscription list is to come.
  void callBegun(std::shared_ptr<SubscribeStream> const& stream);
  void callIs(std::shared_ptr<SubscribeStream> const& stream, CallPlan const& plan);
  void callPoll(SubscribeStream& stream);
  void callHalfClosed(SubscribeStream& stream);
  void callDrained(SubscribeStream& stream);
  void callDel(SubscribeStream& stream);

  // --- for calls and their parts --------------------------------------------------------------------
  [[nodiscard]] Runtime& runtime() noexcept;
  [[nodiscard]] FeedIndex& feeds() noexcept;
  // A walk for `receiver`, known to the router until `walkDel`; its maker owns it.
  [[nodiscard]] std::unique_ptr<PatternWalk> walkIs(std::shared_ptr<Pattern const> pattern,
                                                    Ondra::WalkerFlags flags, PatternWalk::Receiver& receiver,
                                                    std::string const& address);
  [[nodiscard]] Turns& turns() noexcept;
  void walkDel(PatternWalk const& walk);

private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

} // namespace Agent
