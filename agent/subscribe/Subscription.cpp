// Timers, the place in a feed, and the hashes of what was sent, by which suppress_redundant leaves out what
// is the same.
#include "agent/subscribe/Subscription.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "Tovak/Clock.h"
#include "agent/context/Context.h"
#include "agent/paths/OutPath.h"
#include "agent/subscribe/Call.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

// Of memory, for one leaf that is remembered: the node, and the path where it is not short.
std::size_t sentCost(std::string const& path) { return 112 + path.capacity(); }

} // namespace

Subscription::Subscription(Call& call, SubscriptionPlan const& plan, int encoding, Selector selector)
    : call_(call)
    , mode_(plan.mode)
    , sampleNs_(plan.sampleNs)
    , heartbeatNs_(plan.heartbeatNs)
    , suppresses_(plan.suppressRedundant)
    , selector_(std::make_unique<Selector const>(std::move(selector)))
    , frame_(std::make_shared<Frame>(Frame{.origin = plan.path.origin,
                                           .target = plan.path.target,
                                           .encoding = encoding,
                                           .prefixDepth = selector_->pattern()->objectDepth()}))
    , sentShare_(call.context().memory().sent) {}

Subscription::~Subscription() {
  if (feed_) call_.feeds().memberDel(feed_, *this);
  Tovak::TaskScheduler& scheduler = *call_.context().scheduler();
  scheduler.timerDel(sampleTimer_);
  scheduler.timerDel(heartbeatTimer_);
}

void Subscription::goLive() {
  FeedIndex& feeds = call_.feeds();
  feed_ = feeds.feedIs(*selector_, *frame_, mode_, call_.delivery());
  feeds.memberIs(feed_, *this);
  frame_ = feed_->frame;
  selector_.reset();
}

void Subscription::timersStart() {
  Tovak::TaskScheduler& scheduler = *call_.context().scheduler();
  if (mode_ != LeafMode::OnChange)
    sampleTimer_ = scheduler.timerEvery(sampleNs_, [this] { call_.walkIs(*this, Call::Purpose::Sample); });
  // A sample resends by itself, with suppression too when its ticks are no rarer than the heartbeats.
  bool const bySamples = mode_ == LeafMode::Sample && (!suppresses_ || sampleNs_ <= heartbeatNs_);
  if (heartbeatNs_ > 0 && !bySamples) {
    heartbeatTimer_ =
        scheduler.timerEvery(heartbeatNs_, [this] { call_.walkIs(*this, Call::Purpose::Heartbeat); });
  }
}

void Subscription::catchUp() {
  if (feed_) feed_->catchUp(*this);
}

bool Subscription::catchUpSome(Tovak::Task const& task) { return !feed_ || feed_->catchUpSome(*this, task); }

// --- samples ----------------------------------------------------------------------------------------------

LeafKind Subscription::sampledKind() const noexcept {
  return mode_ == LeafMode::TargetDefined ? LeafKind::Sampled : LeafKind::All;
}

Selector::Selected Subscription::all(gnmi::Notification const& notification) {
  if (suppresses_) {
    static_cast<void>(selector().updates(notification, sampledKind(), [&](gnmi::Update const& update) {
      return remember(notification, update, false);
    }));
  }
  return selector().updates(notification, LeafKind::All);
}

Selector::Selected Subscription::sampled(gnmi::Notification const& notification) {
  if (!suppresses_) return selector().updates(notification, sampledKind());
  return selector().updates(notification, sampledKind(),
                            [&](gnmi::Update const& update) { return remember(notification, update, true); });
}

bool Subscription::remember(gnmi::Notification const& notification, gnmi::Update const& update, bool orNot) {
  std::int64_t const now = call_.context().clock().monotonicNs();
  std::uint64_t const hash = std::hash<std::string>()(update.val().SerializeAsString());
  auto const [at, isNew] =
      sent_.try_emplace(pathBytes(PathView(notification.prefix(), update.path(), 0)), Sent{hash, now});
  if (isNew) {
    sentBytes_ += sentCost(at->first);
    if (!sentShare_.growTo(sentBytes_)) call_.exhausted();
    return true;
  }
  // The heartbeat is kept by the last tick before it; ticks do not come to the nanosecond.
  bool const isDue = heartbeatNs_ > 0 && now - at->second.atNs > heartbeatNs_ - sampleNs_ / 4 * 3;
  if (orNot && at->second.hash == hash && !isDue) return false;
  at->second = {hash, now};
  return true;
}

// --- changes ----------------------------------------------------------------------------------------------

void Subscription::changed(std::span<Message::Ptr const> messages) {
  for (Message::Ptr const& message : messages)
    if (suppresses_ && message->own() != nullptr) forget(*message->own());
  call_.changed(*this, messages);
}

void Subscription::forget(gnmi::Notification const& notification) {
  for (gnmi::Path const& path : notification.delete_()) {
    std::string const bytes = pathBytes(PathView(notification.prefix(), path, 0));
    std::string_view const stem = std::string_view(bytes).substr(0, bytes.empty() ? 0 : bytes.size() - 1);
    for (auto at = sent_.lower_bound(stem); at != sent_.end() && at->first.starts_with(stem);)
      at = bytesAtOrBelow(bytes, at->first) ? erase(at) : std::next(at);
  }
  sentShare_.bytesAre(std::min(sentBytes_, sentShare_.bytes()));
}

Subscription::Sents::iterator Subscription::erase(Sents::iterator one) {
  sentBytes_ -= sentCost(one->first);
  return sent_.erase(one);
}

} // namespace Agent
