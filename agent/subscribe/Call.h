// Agent::Call: one Subscribe call as the scheduler thread sees it.
//
// Invariants
// 1. Snapshots of a STREAM start only once the whole model is watched and the call is live: whatever changes from then on is told, by the
//    walk, by a change, or by both with the later one last.
// 2. Snapshot, changes and sync go into the one queue in the order in which they are found: before anything of a walk is queued, the
//    changes that wait are.
// 3. One walk at a time. A job that waits or runs already is not queued again.
// 4. The sync is owed until it is queued behind the last snapshot; a queue that was dropped gives back the sync it held.
// 5. While it must start over (`overflown_`) nothing is queued: the snapshot that follows tells it all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <grpcpp/support/status.h>

#include "agent/subscribe/ByteBundle.h"
#include "agent/subscribe/OutQueue.h"
#include "agent/subscribe/PatternWalk.h"
#include "agent/subscribe/Subscription.h"

namespace Agent {

class Engine;
class SubscribeStream;

// Made for a valid plan, owned by the engine until either side ends the call. Never dropped by what it is called from itself: it asks
// the engine to.
class Call final : private PatternWalk::Receiver {
public:
  Call(Engine& engine, std::shared_ptr<SubscribeStream> stream, CallPlan plan);
  ~Call() override;
  Call(Call const&) = delete;
  Call& operator=(Call const&) = delete;

  // Compiles some of the paths; what is wrong with one of them otherwise. To be called, in turns of its own, until it is prepared.
  [[nodiscard]] grpc::Status prepareSome();
  [[nodiscard]] bool isPrepared() const noexcept {
    return subscriptions_.size() == plan_.subscriptions.size();
  }
  [[nodiscard]] CallMode mode() const noexcept { return mode_; }

  // Begins; a STREAM when the model is watched. A POLL with a first answer, before anything is asked of it.
  void start();
  void poll();
  // The client sends no more.
  void halfClosed();
  // The queue takes more.
  void drained();

  // --- for its subscriptions ---
  enum class Purpose : std::uint8_t {
    Initial,   // everything, stamped as the model says
    Restart,   // everything, stamped with the present time, as those below
    Sample,    // what is sampled, without what is to be suppressed
    Heartbeat, // everything
  };
  void walkIs(Subscription& subscription, Purpose purpose);
  void push(std::span<Message::Ptr const> messages, OutQueue::Kind kind);
  [[nodiscard]] Engine& engine() noexcept { return engine_; }

private:
  struct Job {
    Subscription* subscription;
    Purpose purpose;
    friend bool operator==(Job const&, Job const&) = default;
  };

  bool take(std::shared_ptr<Ondra::ArenaRespMsg>& response) override;
  [[nodiscard]] bool wantsBytes() const override;
  bool takeBytes(Ondra::WireResponse const& response) override;
  [[nodiscard]] bool isFull() const override;
  void sliceEnded() override;
  void walkEnded() override;

  void snapshot(Purpose purpose);
  void nextJob();
  void sync();
  void restart();
  [[nodiscard]] std::int64_t stampOf(std::int64_t walked) const;
  void pushBundles();
  void dropBundles();

  Engine& engine_;
  std::shared_ptr<SubscribeStream> const stream_;
  CallMode const mode_;
  bool const updatesOnly_;
  CallPlan const plan_;
  std::shared_ptr<std::vector<std::string> const> const modules_; // null: all
  std::vector<std::shared_ptr<Pattern const>> patterns_;          // while it is prepared
  std::vector<std::unique_ptr<Subscription>> subscriptions_;
  std::deque<Job> jobs_; // the first one runs while there is a walk
  std::unique_ptr<PatternWalk> walk_;
  std::map<std::int64_t, Message::Parts> bundles_; // of the walk, by time; empty between its slices
  std::map<std::int64_t, ByteBundle> byteBundles_; // the same of walks that tell bytes
  std::size_t bundledLeaves_ = 0;
  bool syncOwed_ = false;
  bool timersOwed_ = false; // of a STREAM, until the first sync
  bool overflown_ = false;
  bool halfClosed_ = false;
};

} // namespace Agent
