// Agent::Feed, FeedIndex: the way of changes to those that are subscribed to them.
//
// Invariants
// 1. Subscriptions that ask for the same share one feed: a change is selected, framed and encoded once for
//    all of them. docs/decisions.md: "One feed for equal subscriptions."
// 2. A feed is in the index, at its pattern's anchor, exactly while it has members.
// 3. A change is compared with the patterns of those feeds alone whose anchors lie above it (for the end of a
//    path: or below).
// 4. Changes of one time that follow each other become one message. A path that is in it already, and the end
//    of a path, close it.
// 5. Every member gets all messages that were made since it joined, each once, in their order; when exactly
//    is up to the delivery, which is cut into slices, or to the member, which catches up before it queues
//    anything else.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "agent/router/ChangeListener.h"
#include "agent/router/Selector.h"
#include "agent/router/Turns.h"
#include "agent/subscribe/Message.h"
#include "agent/subscribe/SubscribePlan.h"

namespace Ondra {
class ArenaRespMsg;
} // namespace Ondra
namespace Tovak {
class Task;
class TaskScheduler;
} // namespace Tovak

namespace Agent {

// One subscription's end of a feed. Scheduler thread.
class FeedMember {
public:
  virtual ~FeedMember() = default;
  virtual void changed(std::span<Message::Ptr const> messages) = 0;

private:
  friend class Feed;
  std::uint64_t position_ = 0; // number of the message that it gets next
};

class Feed {
public:
  // Has feeds give their members what there is for them, in slices, one feed after the other.
  class Delivery;

  Feed(Selector theSelector, std::shared_ptr<Frame const> theFrame, LeafMode theMode)
      : selector(std::move(theSelector))
      , frame(std::move(theFrame))
      , mode(theMode) {}

  // Takes a change that may concern the members. What of it does is found out when it is delivered.
  void take(std::shared_ptr<Ondra::ArenaRespMsg> const& response) { taken_.push_back(response); }
  // Gives a member what it has not got yet.
  void catchUp(FeedMember& member);
  // The same, but false when the task's slice is over before.
  [[nodiscard]] bool catchUpSome(FeedMember& member, Tovak::Task const& task);
  // Gives all members what they have not got yet; false when it was told to yield before the end.
  bool deliver(Tovak::Task const& task);

  void memberIs(FeedMember& member) { joining_.push_back({&member, taken_.size()}); }
  void memberDel(FeedMember& member);
  [[nodiscard]] bool empty() const noexcept { return members_.empty() && joining_.empty(); }

  Selector const selector;
  std::shared_ptr<Frame const> const frame;
  LeafMode const mode;
  std::uint64_t seen = 0;       // by which change it has been found already
  bool isDue = false;           // waits for the delivery
  Delivery* delivery = nullptr; // outlives its members

private:
  void settle();
  [[nodiscard]] bool settleSome(Tovak::Task const* task);
  [[nodiscard]] bool give(FeedMember& member, std::uint64_t until, Tovak::Task const* task);
  void select(std::shared_ptr<Ondra::ArenaRespMsg> const& response);
  void bundle(std::shared_ptr<Ondra::ArenaRespMsg> const& response, Selection updates);
  void hashPaths(gnmi::Notification const& notification, Selection const& updates);
  [[nodiscard]] bool repeatsPath() const;
  void close();
  [[nodiscard]] std::uint64_t end() const noexcept { return first_ + log_.size(); }

  struct Joining {
    FeedMember* member;
    std::size_t from; // which of `taken_` is its first
  };

  void joinedBefore(std::size_t taken);

  std::vector<FeedMember*> members_;
  std::deque<Joining> joining_; // members to be, in their order: what was taken before is not theirs
  std::vector<std::shared_ptr<Ondra::ArenaRespMsg>> taken_; // of which the first have been looked at:
  std::size_t nextTaken_ = 0;
  std::size_t nextMember_ = 0;    // of the delivery
  std::uint64_t deliveryEnd_ = 0; // before which the members so far have got all; else none has begun
  std::vector<Message::Ptr> log_; // what some member has not got yet
  std::uint64_t first_ = 0;       // its number
  Message::Parts open_;           // the message that is being made
  std::int64_t openTime_ = 0;
  std::size_t openLeaves_ = 0;
  absl::flat_hash_set<std::size_t> openPaths_; // hashes
  std::vector<std::size_t> paths_;             // of the change that is looked at, likewise
};

// Scheduler thread.
class FeedIndex final : public ChangeListener {
public:
  using Delivery = Feed::Delivery;

  explicit FeedIndex(std::shared_ptr<Tovak::TaskScheduler> scheduler);
  ~FeedIndex() override;

  // For the feeds of one call's own, which are delivered when it is its turn.
  [[nodiscard]] std::shared_ptr<Delivery> deliveryIs(std::shared_ptr<Turns::Turn> turn) const;
  // The feed that such subscriptions share; one of its own, and of the call's delivery, for a subscription
  // with rivals. Not indexed before it has a member.
  [[nodiscard]] std::shared_ptr<Feed> feedIs(Selector const& selector, Frame const& frame, LeafMode mode,
                                             Delivery& ofCall);
  void memberIs(std::shared_ptr<Feed> const& feed, FeedMember& member);
  void memberDel(std::shared_ptr<Feed> const& feed, FeedMember& member);

  // Whether some feed may be concerned by a change.
  [[nodiscard]] bool concerns(Ondra::ArenaRespMsg const& response) override;
  // Takes a change into every feed that it concerns, to be delivered in the turns that follow.
  void changed(std::shared_ptr<Ondra::ArenaRespMsg> const& response) override;

private:
  struct Node;
  void find(gnmi::Notification const& notification);
  void take(Node const& node);
  void takeBelow(Node const& node);
  void findBelow(Node const& node, PathView const& path, std::size_t from, bool isEnd);

  absl::flat_hash_map<std::string, std::weak_ptr<Feed>> shared_; // by all that its members have in common
  std::unique_ptr<Node> root_;
  std::size_t count_ = 0; // of feeds that have members
  std::uint64_t change_ = 0;
  std::vector<std::shared_ptr<Feed>> found_;
  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  std::shared_ptr<Delivery> const delivery_; // of shared feeds
};

} // namespace Agent
