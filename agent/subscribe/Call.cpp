#include "agent/subscribe/Call.h"

#include <algorithm>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "agent/service/Runtime.h"
#include "agent/subscribe/Engine.h"
#include "agent/subscribe/SubscribeStream.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using Patterns = std::vector<std::shared_ptr<Pattern const>>;

std::size_t wildcards(Pattern const& pattern) {
  return static_cast<std::size_t>(std::ranges::count_if(
      pattern.elems(), [](Pattern::Elem const& elem) { return elem.kind != Pattern::Elem::Kind::Name; }));
}

// Whether what both cover belongs to `a`: the longer one, then the one with fewer wildcards, then the earlier one.
bool isNearer(Patterns const& patterns, std::size_t a, std::size_t b) {
  std::size_t const sizeA = patterns[a]->elems().size();
  std::size_t const sizeB = patterns[b]->elems().size();
  if (sizeA != sizeB) return sizeA > sizeB;
  std::size_t const wildA = wildcards(*patterns[a]);
  std::size_t const wildB = wildcards(*patterns[b]);
  return wildA != wildB ? wildA < wildB : a < b;
}

// The nearest first, which is the likeliest to own a leaf.
Patterns rivalsOf(Patterns const& patterns, std::size_t index) {
  std::vector<std::size_t> found;
  for (std::size_t other = 0; other < patterns.size(); ++other) {
    if (other != index && isNearer(patterns, other, index) && patterns[other]->mayOverlap(*patterns[index])) {
      found.push_back(other);
    }
  }
  std::ranges::sort(found, [&patterns](std::size_t a, std::size_t b) { return isNearer(patterns, a, b); });
  Patterns rivals;
  for (std::size_t const other : found)
    rivals.push_back(patterns[other]);
  return rivals;
}

constexpr std::size_t kPathsAtATime = 8; // compiled in one turn: one may take a millisecond

} // namespace

Call::Call(Engine& engine, std::shared_ptr<SubscribeStream> stream, CallPlan plan)
    : engine_(engine)
    , stream_(std::move(stream))
    , mode_(plan.mode)
    , updatesOnly_(plan.updatesOnly)
    , plan_(std::move(plan))
    , modules_(plan_.modules.empty() ? nullptr
                                     : std::make_shared<std::vector<std::string> const>(plan_.modules)) {}

Call::~Call() {
  if (walk_) engine_.walkDel(*walk_);
  walk_.reset();
  subscriptions_.clear(); // a feed may tell those that are left of what waits, which comes here
}

grpc::Status Call::prepareSome() {
  std::vector<SubscriptionPlan> const& plans = plan_.subscriptions;
  std::size_t left = kPathsAtATime;
  for (; patterns_.size() < plans.size() && left > 0; --left) {
    Pattern::OrError pattern = Pattern::of(plans[patterns_.size()].path);
    if (!pattern.ok()) return pattern.error();
    patterns_.push_back(std::make_shared<Pattern const>(std::move(pattern).value()));
  }
  for (; patterns_.size() == plans.size() && !isPrepared() && left > 0; --left) {
    std::size_t const i = subscriptions_.size();
    subscriptions_.push_back(std::make_unique<Subscription>(
        *this, plans[i], plan_.encoding, Selector(patterns_[i], rivalsOf(patterns_, i), modules_)));
  }
  return grpc::Status::OK;
}

// --- what runs --------------------------------------------------------------------------------------------

void Call::start() {
  patterns_.clear();
  if (mode_ == CallMode::Stream) {
    timersOwed_ = true;
    for (auto const& subscription : subscriptions_)
      subscription->goLive();
  }
  snapshot(Purpose::Initial);
}

void Call::poll() { snapshot(Purpose::Initial); }

void Call::halfClosed() {
  halfClosed_ = true;
  if (mode_ == CallMode::Poll && !syncOwed_) stream_->end(grpc::Status::OK);
}

void Call::snapshot(Purpose purpose) {
  syncOwed_ = true;
  if (!updatesOnly_ || purpose == Purpose::Restart) {
    for (auto const& subscription : subscriptions_)
      jobs_.push_back({subscription.get(), purpose});
  }
  nextJob();
}

void Call::walkIs(Subscription& subscription, Purpose purpose) {
  Job const job{&subscription, purpose};
  if (overflown_ || std::ranges::find(jobs_, job) != jobs_.end()) return;
  jobs_.push_back(job);
  nextJob();
}

void Call::nextJob() {
  if (walk_ || overflown_) return;
  bool const onlyRepeats = std::ranges::all_of(jobs_, [](Job const& job) {
    return job.purpose == Purpose::Sample || job.purpose == Purpose::Heartbeat;
  });
  if (onlyRepeats && syncOwed_) sync();
  if (jobs_.empty() || overflown_) return;
  Ondra::WalkerFlags flags = Ondra::flagSnapshot;
  if (mode_ != CallMode::Once) flags |= Ondra::flagStream;
  walk_ = engine_.walkIs(jobs_.front().subscription->selector().pattern(), flags, *this);
}

void Call::walkEnded() {
  pushBundles();
  engine_.walkDel(*walk_);
  walk_.reset();
  jobs_.pop_front();
  nextJob();
}

void Call::sync() {
  for (auto const& subscription : subscriptions_)
    subscription->catchUp();
  if (overflown_) return; // it starts over, and still owes the sync
  syncOwed_ = false;
  Message::Ptr const mark = Message::sync();
  push({&mark, 1}, OutQueue::Kind::Walk);
  if (mode_ == CallMode::Once || (mode_ == CallMode::Poll && halfClosed_)) {
    stream_->end(grpc::Status::OK);
  } else if (std::exchange(timersOwed_, false)) { // the first of a STREAM
    for (auto const& subscription : subscriptions_)
      subscription->timersStart();
  }
}

// --- what comes of it -------------------------------------------------------------------------------------

bool Call::take(std::shared_ptr<Ondra::ArenaRespMsg>& response) {
  if (overflown_) return true;
  Job const& job = jobs_.front();
  gnmi::Notification const& notification = response->response->update();
  Selector::Selected selected = job.purpose == Purpose::Sample ? job.subscription->sampled(notification)
                                                               : job.subscription->all(notification);
  if (selected.any) {
    std::int64_t const time = stampOf(notification.timestamp());
    bundledLeaves_ +=
        selected.updates ? selected.updates->size() : static_cast<std::size_t>(notification.update_size());
    bundles_[time].push_back({response, std::move(selected.updates)});
    if (bundledLeaves_ >= kLeavesPerMessage) pushBundles();
  }
  return !isFull();
}

// Values as the library encodes them are what PROTO asks for. Nobody may want to know of single leaves.
bool Call::wantsBytes() const {
  Job const& job = jobs_.front();
  Selector const& selector = job.subscription->selector();
  return plan_.encoding == gnmi::PROTO && job.purpose != Purpose::Sample && !job.subscription->suppresses() &&
         !selector.hasRivals() && modules_ == nullptr && selector.pattern()->coversObjects();
}

bool Call::takeBytes(Ondra::WireResponse const& response) {
  if (overflown_ || response.updates == 0) return true;
  std::int64_t const time = stampOf(response.timestamp);
  auto const bundle = byteBundles_
                          .try_emplace(time, jobs_.front().subscription->frame(), time,
                                       engine_.runtime().limits().responseBytes)
                          .first;
  bundle->second.add(response);
  bundledLeaves_ += response.updates;
  if (bundledLeaves_ >= kLeavesPerMessage) pushBundles();
  return !isFull();
}

// What is not told for the first time is told with the present time, or collectors take it for what they hold.
std::int64_t Call::stampOf(std::int64_t walked) const {
  return jobs_.front().purpose == Purpose::Initial ? walked
                                                   : Kel::activityManagerStatus()->activityLoopExecNsTime();
}

void Call::dropBundles() {
  bundles_.clear();
  byteBundles_.clear();
  bundledLeaves_ = 0;
}

void Call::pushBundles() {
  if (bundles_.empty() && byteBundles_.empty()) return;
  for (auto const& subscription : subscriptions_)
    subscription->catchUp();
  std::shared_ptr<Frame const> const& frame = jobs_.front().subscription->frame();
  std::size_t const limit = engine_.runtime().limits().responseBytes;
  std::vector<Message::Ptr> messages;
  messages.reserve(bundles_.size() + byteBundles_.size());
  for (auto& [time, parts] : bundles_) {
    // JSON takes its time, and is left to the threads that write.
    messages.push_back(frame->encoding == gnmi::PROTO
                           ? Message::encodedOf(std::move(parts), frame, time, limit)
                           : Message::of(std::move(parts), frame, time));
  }
  for (auto& [time, bundle] : byteBundles_)
    messages.push_back(Message::of(bundle.take(), frame, time));
  dropBundles();
  std::erase_if(messages, [](Message::Ptr const& message) { return message->isEmpty(); });
  push(messages, OutQueue::Kind::Walk);
}

void Call::sliceEnded() { pushBundles(); }

bool Call::isFull() const { return stream_->isFull(); }

void Call::push(std::span<Message::Ptr const> messages, OutQueue::Kind kind) {
  if (overflown_) return;
  SubscribeStream::Pushed const pushed = stream_->push(messages, kind);
  if (pushed == SubscribeStream::Pushed::Taken) return;
  overflown_ = true;
  if (pushed == SubscribeStream::Pushed::SyncLost) syncOwed_ = true;
}

void Call::drained() {
  if (overflown_) {
    restart();
  } else if (walk_) {
    walk_->resume();
  }
}

// Too much has changed to be told one by one: everything ends and is told anew. Changes since are part of that.
void Call::restart() {
  for (auto const& subscription : subscriptions_)
    subscription->catchUp(); // which is dropped
  overflown_ = false;
  dropBundles();
  if (walk_) engine_.walkDel(*walk_);
  walk_.reset();
  jobs_.clear();
  Kel::ActivityManagerStatus& clock = *Kel::activityManagerStatus();
  clock.activityLoopExecNsTimeInc(1); // later than all that has been sent
  for (auto const& subscription : subscriptions_) {
    auto ends = std::make_unique<gnmi::Notification>();
    ends->set_timestamp(clock.activityLoopExecNsTime());
    *ends->add_delete_() = subscription->selector().anchor();
    Message::Ptr const message = Message::of(std::move(ends), subscription->frame());
    push({&message, 1}, OutQueue::Kind::Walk);
  }
  clock.activityLoopExecNsTimeInc(1);
  bool const syncWasOwed = syncOwed_;
  for (auto const& subscription : subscriptions_)
    jobs_.push_back({subscription.get(), Purpose::Restart});
  syncOwed_ = syncWasOwed;
  nextJob();
}

} // namespace Agent
