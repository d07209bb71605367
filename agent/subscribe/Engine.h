// Agent::Engine: the one router of the agent's walks and changes, and all that is subscribed.
//
// Everything here runs on the scheduler thread unless it says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <grpcpp/support/status.h>

#include "agent/subscribe/Snapshot.h"

namespace Agent {

class Pattern;
class Runtime;

// Owned by the Runtime; outlives every walk and every watch of the model.
class Engine {
public:
  explicit Engine(Runtime& runtime);
  ~Engine();
  Engine(Engine const&) = delete;
  Engine& operator=(Engine const&) = delete;

  // Reads everything at and below the pattern for `sink`. The first notification comes in a later turn.
  [[nodiscard]] std::shared_ptr<Snapshot> snapshotIs(Pattern pattern, std::shared_ptr<SnapshotSink> sink);

  // For a Set that may be taken back: while changes are held they wait aside. `Release` sends them in their order, `Drop` forgets them
  // (the model is as it was before). REQUIRES that nothing is held for `Hold`, that something is for the others.
  enum class Output : std::uint8_t { Hold, Release, Drop };
  void outputHeldIs(Output output);

  // Ends every Subscribe call with that status, and refuses new ones with it: the agent is going down.
  void callsEnd(grpc::Status const& status);
  [[nodiscard]] std::size_t callCount() const;

private:
  friend class EngineAccess;
  class Impl;
  std::unique_ptr<Impl> impl_;
};

} // namespace Agent
