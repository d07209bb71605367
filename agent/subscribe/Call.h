// Agent::Call: one Subscribe call as the scheduler thread sees it.
//
// Invariants
// 1. Snapshots of a STREAM start only once the whole model is watched and the call is live: whatever changes
//    from then on is told, by the walk, by a change, or by both with the later one last.
// 2. Snapshot, changes and sync go into the one queue in the order in which they are found, as long as that
//    has room. Then changes wait in the backlog, by leaf: but for those that a walk has still to reach, which
//    it will tell.
// 3. What waits in the backlog has been passed by the walk that runs, so that nothing the walk tells later is
//    older. Where that is not certain (`isUrgent_`), and for ends of paths, the backlog goes before the next
//    that the walk tells.
// 4. Beyond its bound, and before that of a subscriber who takes nothing, the backlog gives up what it holds;
//    what that concerned, and no more, is walked again (`Purpose::Refresh`). While such a walk waits, its
//    region is all ahead.
// 5. One walk at a time. A job that waits or runs already is not queued again. While a walk runs, walk and
//    backlog share what the subscriber takes by halves.
// 6. The sync is owed until it is queued behind the last walk of the snapshot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <grpcpp/support/status.h>

#include "agent/access/RuleTrail.h"
#include "agent/context/ByteBudget.h"
#include "agent/router/PatternWalk.h"
#include "agent/subscribe/Backlog.h"
#include "agent/subscribe/ByteBundle.h"
#include "agent/subscribe/Subscriber.h"
#include "agent/subscribe/Subscription.h"
#include "agent/subscribe/WireJson.h"

namespace Agent {

class Context;
class Router;

// Made for a valid plan, owned by the registry of calls until either side ends the call. Never dropped by
// what it is called from itself. Router, feeds and subscriber outlive it. Scheduler thread.
class Call final : private PatternWalk::Receiver {
public:
  Call(Router& router, FeedIndex& feeds, std::shared_ptr<Subscriber> subscriber, CallPlan plan);
  ~Call() override;
  Call(Call const&) = delete;
  Call& operator=(Call const&) = delete;

  // Compiles some of the paths; what is wrong with one of them otherwise. To be called, in turns of its own,
  // until it is prepared.
  [[nodiscard]] grpc::Status prepareSome();
  [[nodiscard]] bool isPrepared() const noexcept {
    return subscriptions_.size() == plan_.subscriptions.size();
  }

  // Begins; a STREAM once the model is watched. A POLL with a first answer, before anything is asked of it.
  // REQUIRES that it is prepared.
  void begin();
  void poll();
  // The client sends no more.
  void halfClosed();
  // The queue takes more.
  void drained();
  // What it keeps for its subscriber beside the queue.
  [[nodiscard]] std::size_t heldBytes() const noexcept { return backlog_.bytes(); }
  // What has become of its subscriber's slowness so far.
  struct Slowness {
    std::size_t waitingLeaves;      // that have changed, and wait
    std::uint64_t coalescedChanges; // of leaves that waited already
    std::uint64_t restarts;         // walks of what had to be given up
  };
  [[nodiscard]] Slowness slowness() const noexcept {
    return {backlog_.leafCount(), backlog_.coalesced(), restarts_};
  }
  // There is no memory for what one of its subscriptions must keep: it ends.
  void exhausted();

  // --- for its subscriptions ---
  enum class Purpose : std::uint8_t {
    Initial,   // everything, stamped as the model says
    Refresh,   // everything, stamped with the present time, as those below
    Sample,    // what is sampled, without what is to be suppressed
    Heartbeat, // everything
  };
  void walkIs(Subscription& subscription, Purpose purpose);
  void changed(Subscription const& subscription, std::span<Message::Ptr const> messages);
  [[nodiscard]] Context& context() const noexcept { return context_; }
  [[nodiscard]] FeedIndex& feeds() const noexcept { return feeds_; }
  [[nodiscard]] Feed::Delivery& delivery() noexcept { return *delivery_; }

private:
  class Refill;
  struct Job {
    Subscription* subscription;
    Purpose purpose;
    std::string region = {};      // canonical bytes of a path: of what lies there alone; empty: of all
    bool hasEnded = false;        // the subscriber has been told the end of the region
    std::int64_t notBeforeNs = 0; // monotonic
  };

  bool take(std::shared_ptr<Ondra::ArenaRespMsg>& response) override;
  [[nodiscard]] bool wantsBytes() const override;
  bool takeBytes(Ondra::WireResponse const& response) override;
  [[nodiscard]] bool isFull() const override;
  bool sliceBegins(Tovak::Task const& task) override;
  void sliceEnded() override;
  void walkEnded() override;

  void start();
  void snapshot(Purpose purpose);
  void nextJob();
  [[nodiscard]] bool takeDueJob();
  void sync();
  [[nodiscard]] std::int64_t stampOf(std::int64_t walked) const;
  void pushBundles();

  void putAside(Subscription const& subscription, Message const& message);
  [[nodiscard]] Ondra::WalkReach reachOf(Subscription const& subscription, PathView const& path,
                                         std::string_view bytes) const;
  [[nodiscard]] bool isToBeTold(Subscription const& subscription, std::string_view bytes,
                                bool onlyEnded) const;
  // A walk that waits tells all that the subscription covers.
  [[nodiscard]] bool isAllToBeTold(Subscription const& subscription) const;
  [[nodiscard]] bool isStalled() const;
  void giveUp();
  void giveUpAll();
  void refreshIs(Backlog::Lost const& lost);
  void refreshIs(Subscription& subscription, std::string_view region, bool hasEnded);
  void pushEnds();
  void refill(Tovak::Task const* task = nullptr);
  void goOn();

  Router& router_;
  Context& context_;
  FeedIndex& feeds_;
  std::shared_ptr<Subscriber> const subscriber_;
  CallMode const mode_;
  bool const updatesOnly_;
  CallPlan const plan_;
  std::shared_ptr<std::vector<std::string> const> const modules_; // null: all
  std::shared_ptr<Turns::Turn> const deliveryTurn_;
  std::shared_ptr<Feed::Delivery> const delivery_; // of subscriptions that overlap
  std::shared_ptr<Refill> const refill_;
  std::vector<std::shared_ptr<Pattern const>> patterns_; // while it is prepared
  std::size_t overlaps_ = 0;
  std::vector<std::unique_ptr<Subscription>> subscriptions_;
  std::optional<RuleTrail> access_; // along the walk that tells bytes
  std::deque<Job> jobs_;            // the first one runs while there is a walk
  std::unique_ptr<PatternWalk> walk_;
  std::map<std::int64_t, Message::Parts> bundles_; // of the walk, by time; empty between its slices
  std::map<std::int64_t, ByteBundle> byteBundles_; // the same of walks that tell bytes
  std::unique_ptr<WireJson> wireJson_;             // for those; null: for PROTO, or not yet
  std::size_t bundledLeaves_ = 0;
  Backlog backlog_;
  ByteBudget::Share backlogShare_;
  std::uint64_t restarts_ = 0;
  bool isUrgent_ = false;
  std::int64_t lastEndedNs_ = 0; // monotonic: when ends were last given up
  std::int64_t patienceNs_ = 0;  // before what they stood for is told anew
  Tovak::TimerId jobTimer_;
  bool syncOwed_ = false;
  bool timersOwed_ = false; // of a STREAM, until the first sync
  bool halfClosed_ = false;
};

} // namespace Agent
