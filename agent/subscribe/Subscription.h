// Agent::Subscription: one entry of a call's list.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>

#include "Tovak/TaskScheduler.h"
#include "agent/context/ByteBudget.h"
#include "agent/router/Selector.h"
#include "agent/subscribe/Feed.h"
#include "agent/subscribe/SubscribePlan.h"

namespace Agent {

class Call;

// Owned by its call. Scheduler thread.
class Subscription final : private FeedMember {
public:
  Subscription(Call& call, SubscriptionPlan const& plan, int encoding, Selector selector);
  ~Subscription() override;
  Subscription(Subscription const&) = delete;
  Subscription& operator=(Subscription const&) = delete;

  [[nodiscard]] Selector const& selector() const noexcept { return feed_ ? feed_->selector : *selector_; }
  [[nodiscard]] std::shared_ptr<Frame const> const& frame() const noexcept { return frame_; }

  // From now on it is told of changes.
  void goLive();
  // Starts the timers of samples and heartbeats.
  void timersStart();

  // Is told of the changes that wait for it, if it is live.
  void catchUp();
  // The same, but false when the task's slice is over before.
  [[nodiscard]] bool catchUpSome(Tovak::Task const& task);

  // Whether it remembers what it sends, leaf by leaf: `all` must see everything that is sent.
  [[nodiscard]] bool suppresses() const noexcept { return suppresses_; }
  // What is its own of a walk's notification.
  [[nodiscard]] Selector::Selected all(gnmi::Notification const& notification);
  // What is sampled of it, without what is to be suppressed.
  [[nodiscard]] Selector::Selected sampled(gnmi::Notification const& notification);

private:
  struct Sent {
    std::uint64_t hash = 0; // of the value
    std::int64_t atNs = 0;  // monotonic
  };

  using Sents = std::map<std::string, Sent, std::less<>>;

  void changed(std::span<Message::Ptr const> messages) override;
  Sents::iterator erase(Sents::iterator one);
  void forget(gnmi::Notification const& notification);
  [[nodiscard]] LeafKind sampledKind() const noexcept;
  // Remembers a leaf as sent now. `orNot`: unless it is to be suppressed; says whether it is sent.
  bool remember(gnmi::Notification const& notification, gnmi::Update const& update, bool orNot);

  Call& call_;
  LeafMode const mode_;
  std::int64_t const sampleNs_;
  std::int64_t const heartbeatNs_;
  bool const suppresses_;
  std::unique_ptr<Selector const> selector_; // until it is live: then the feed's
  std::shared_ptr<Frame const> frame_;
  std::shared_ptr<Feed> feed_;
  Sents sent_; // by canonical bytes of the path; of leaves that may be suppressed
  std::size_t sentBytes_ = 0;
  ByteBudget::Share sentShare_;
  Tovak::TimerId sampleTimer_;
  Tovak::TimerId heartbeatTimer_;
};

} // namespace Agent
