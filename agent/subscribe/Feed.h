// Agent::Feed, FeedIndex: the way of changes to those that are subscribed to them.
//
// Invariants
// 1. Subscriptions that ask for the same share one feed: a change is selected and framed once for all of them.
// 2. A feed is in the index, at its pattern's anchor, exactly while it has members.
// 3. A change is compared with the patterns of those feeds alone whose anchors lie above it (for the end of a path: or below).
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "agent/subscribe/Selector.h"
#include "agent/subscribe/SubscribePlan.h"

namespace Ondra {
class ArenaRespMsg;
} // namespace Ondra

namespace Agent {

// One subscription's end of a feed. Scheduler thread.
class FeedMember {
public:
  virtual ~FeedMember() = default;
  virtual void changed(Message::Ptr const& message) = 0;
};

class Feed {
public:
  Feed(Selector theSelector, std::shared_ptr<Frame const> theFrame, LeafMode theMode)
      : selector(std::move(theSelector))
      , frame(std::move(theFrame))
      , mode(theMode) {}

  // Tells the members of what concerns them: ends of paths first, then updates.
  void changed(std::shared_ptr<Ondra::ArenaRespMsg> const& response);

  Selector const selector;
  std::shared_ptr<Frame const> const frame;
  LeafMode const mode;
  std::vector<FeedMember*> members;
  std::uint64_t seen = 0; // by which change it has been found already
};

// Scheduler thread.
class FeedIndex {
public:
  FeedIndex();
  ~FeedIndex();

  // The feed that such subscriptions share; one of its own for a subscription with rivals. Not indexed before it has a member.
  [[nodiscard]] std::shared_ptr<Feed> feedIs(Selector const& selector, Frame const& frame, LeafMode mode);
  void memberIs(std::shared_ptr<Feed> const& feed, FeedMember& member);
  void memberDel(std::shared_ptr<Feed> const& feed, FeedMember& member);

  // Tells every feed that the notification concerns.
  void changed(std::shared_ptr<Ondra::ArenaRespMsg> const& response);
  [[nodiscard]] bool empty() const noexcept { return count_ == 0; }

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
};

} // namespace Agent
