// Agent::Snapshot: everything at and below a pattern as it is now, read in slices of the scheduler. What a
// Get is made of.
#pragma once

#include <memory>
#include <string>

#include <grpcpp/support/status.h>

#include "agent/router/PatternWalk.h"
#include "agent/router/Selector.h"

namespace gnmi {
class Notification;
} // namespace gnmi

namespace Agent {

class Router;

// Takes what a snapshot reads. Scheduler thread. Must not call back into the router, nor change the model;
// may post.
class SnapshotSink {
public:
  virtual ~SnapshotSink() = default;
  // Updates of one time below one prefix. The prefix is concrete and internal: its first element is the data
  // root's (`kOrigin`), its origin and target are empty. Leaves that the pattern does not match are left out
  // already; there is at least one update. Valid during the call.
  virtual void notification(gnmi::Notification const& notification) = 0;
  // All has been read. Told once, never for a snapshot that was dropped before.
  virtual void done(grpc::Status const& status) = 0;
};

// A snapshot on its way; dropping it calls it off. Scheduler thread; the router outlives it.
class Snapshot final : private PatternWalk::Receiver {
public:
  // Reads for `sink` what it may read, when it is the turn of a peer of that address. The first notification
  // comes in a later turn.
  Snapshot(Router& router, Pattern pattern, Selector::Access access, std::shared_ptr<SnapshotSink> sink,
           std::string const& address);
  ~Snapshot() override;
  Snapshot(Snapshot const&) = delete;
  Snapshot& operator=(Snapshot const&) = delete;

private:
  bool take(std::shared_ptr<Ondra::ArenaRespMsg>& response) override;
  void walkEnded() override;

  Router& router_;
  Selector const selector_;
  std::shared_ptr<SnapshotSink> const sink_;
  std::unique_ptr<PatternWalk> walk_;
};

} // namespace Agent
