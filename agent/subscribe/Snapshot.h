// Agent::Snapshot: everything at and below a pattern as it is now, read in slices of the scheduler. What a Get is made of.
#pragma once

#include <grpcpp/support/status.h>

namespace gnmi {
class Notification;
} // namespace gnmi

namespace Agent {

// Takes what a snapshot reads. Scheduler thread. Must not call back into the engine, nor change the model; may post.
class SnapshotSink {
public:
  virtual ~SnapshotSink() = default;
  // Updates of one time below one prefix. The prefix is concrete and internal: its first element is the data root's
  // (`kOrigin`), its origin and target are empty. Leaves that the pattern does not match are left out already; there is at least one
  // update. Valid during the call.
  virtual void notification(gnmi::Notification const& notification) = 0;
  // All has been read. Told once, never for a snapshot that was dropped before.
  virtual void done(grpc::Status const& status) = 0;
};

// A snapshot on its way; made by `Engine::snapshotIs`. Dropping it calls it off. Scheduler thread.
class Snapshot {
public:
  virtual ~Snapshot() = default;
};

} // namespace Agent
