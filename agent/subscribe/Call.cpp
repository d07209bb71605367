// Which subscription a leaf belongs to; then what runs (walks, sync), what comes of it, and what the
// subscriber is not ready for.
#include "agent/subscribe/Call.h"

#include <algorithm>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "Tovak/Task.h"
#include "Tovak/TaskScheduler.h"
#include "agent/context/Context.h"
#include "agent/paths/OutPath.h"
#include "agent/router/Router.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using Patterns = std::vector<std::shared_ptr<Pattern const>>;

std::size_t wildcards(Pattern const& pattern) {
  return static_cast<std::size_t>(std::ranges::count_if(
      pattern.elems(), [](Pattern::Elem const& elem) { return elem.kind != Pattern::Elem::Kind::Name; }));
}

// Whether what both cover belongs to `a`: the longer one, then the one with fewer wildcards, then the earlier
// one.
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
  for (std::size_t other = 0; other < patterns.size(); ++other)
    if (other != index && isNearer(patterns, other, index) && patterns[other]->mayOverlap(*patterns[index]))
      found.push_back(other);
  std::ranges::sort(found, [&patterns](std::size_t a, std::size_t b) { return isNearer(patterns, a, b); });
  Patterns rivals;
  for (std::size_t const other : found)
    rivals.push_back(patterns[other]);
  return rivals;
}

constexpr std::size_t kPathsAtATime = 8;      // compiled in one turn: one may take a millisecond
constexpr std::size_t kOverlapsMax = 1024;    // pairs of subscriptions: each costs something for each leaf
constexpr std::size_t kLeavesPerRefill = 50;  // each may be of another time, and a message of its own
constexpr std::size_t kLeavesOfStalled = 256; // that wait for one who has taken nothing for
constexpr std::int64_t kStalledNs = 1'000'000'000;
constexpr std::int64_t kPatienceMinNs = 1'000'000'000;
constexpr std::int64_t kPatienceMaxNs = 30'000'000'000;

std::string anchorOf(Subscription const& subscription) {
  return pathBytes(PathView(subscription.selector().anchor(), 0));
}

// The part of a pattern that lies at and below an internal path.
std::shared_ptr<Pattern const> narrowed(std::shared_ptr<Pattern const> const& pattern,
                                        std::string_view region) {
  gnmi::Path const path = pathOfBytes(region);
  RequestPath made;
  auto const depth = static_cast<std::size_t>(path.elem_size()) - 1; // without the data root
  for (std::size_t i = 1; i <= depth; ++i) {
    gnmi::PathElem const& elem = path.elem(static_cast<int>(i));
    made.elems.push_back({elem.name(), {elem.key().begin(), elem.key().end()}});
    std::ranges::sort(made.elems.back().keys);
  }
  std::vector<Pattern::Elem> const& elems = pattern->elems();
  auto const isAnyDepth = [](Pattern::Elem const& elem) {
    return elem.kind == Pattern::Elem::Kind::AnyDepth;
  };
  if (std::none_of(elems.begin(), elems.begin() + static_cast<std::ptrdiff_t>(std::min(depth, elems.size())),
                   isAnyDepth)) { // else all that lies there is walked
    for (std::size_t i = depth; i < elems.size(); ++i)
      made.elems.push_back({elems[i].kind == Pattern::Elem::Kind::AnyDepth  ? "..."
                            : elems[i].kind == Pattern::Elem::Kind::AnyName ? "*"
                                                                            : elems[i].name,
                            elems[i].keys});
  }
  Pattern::OrError found = Pattern::of(made);
  return found.ok() ? std::make_shared<Pattern const>(std::move(found).value()) : pattern;
}

} // namespace

// Gives a subscriber what waits for it when it is its peer's turn: a thousand calls of one that drain at once
// hold up nobody else.
class Call::Refill final : public Tovak::Task {
public:
  Refill(std::shared_ptr<Tovak::TaskScheduler> scheduler, Call& call, std::shared_ptr<Turns::Turn> turn)
      : Tovak::Task(std::move(scheduler), "RefillQueue", Tovak::TaskPriority::normal)
      , call_(call)
      , turn_(std::move(turn)) {}

  void askFor() { turn_->askFor(shared_from_this()); }
  void cancel() { turn_->cancel(); } // before the call goes
  void taskExecute() override {
    Turns::Turn::Run const run(turn_);
    call_.refill(this);
    call_.goOn();
  }

private:
  Call& call_;
  std::shared_ptr<Turns::Turn> const turn_;
};

Call::Call(Router& router, FeedIndex& feeds, std::shared_ptr<Subscriber> subscriber, CallPlan plan)
    : router_(router)
    , context_(router.context())
    , feeds_(feeds)
    , subscriber_(std::move(subscriber))
    , mode_(plan.mode)
    , updatesOnly_(plan.updatesOnly)
    , plan_(std::move(plan))
    , modules_(plan_.modules.empty() ? nullptr
                                     : std::make_shared<std::vector<std::string> const>(plan_.modules))
    , deliveryTurn_(router.turns().turnIs(subscriber_->address(), Turns::Kind::Delivery))
    , delivery_(feeds.deliveryIs(deliveryTurn_))
    , refill_(std::make_shared<Refill>(context_.scheduler(), *this,
                                       router.turns().turnIs(subscriber_->address(), Turns::Kind::Delivery)))
    , backlogShare_(context_.memory().queues) {
  if (plan_.access) access_.emplace(*plan_.access);
}

Call::~Call() {
  router_.waitDel(this);
  context_.scheduler()->timerDel(jobTimer_);
  deliveryTurn_->cancel();
  refill_->cancel();
  if (walk_) router_.walkDel(*walk_);
  walk_.reset();
  subscriptions_.clear(); // they refer to this
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
    Patterns rivals = rivalsOf(patterns_, i);
    overlaps_ += rivals.size();
    if (overlaps_ > kOverlapsMax)
      return {grpc::StatusCode::RESOURCE_EXHAUSTED, "too many subscriptions of the list overlap each other"};
    subscriptions_.push_back(std::make_unique<Subscription>(
        *this, plans[i], plan_.encoding,
        Selector(patterns_[i], std::move(rivals), modules_, plan_.depth, plan_.access)));
  }
  return grpc::Status::OK;
}

// --- what runs --------------------------------------------------------------------------------------------

void Call::begin() {
  TOVAK_ASSERT(isPrepared(), Tovak::Platform::getDebugHandler("OndraAgent", false),
               "a call begins before all its paths are compiled");
  patterns_.clear();
  if (mode_ == CallMode::Stream)
    router_.whenWatched(this, [this] { start(); });
  else
    start();
}

void Call::start() {
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
  if (mode_ == CallMode::Poll && !syncOwed_) subscriber_->end(grpc::Status::OK);
}

void Call::snapshot(Purpose purpose) {
  syncOwed_ = true;
  if (!updatesOnly_)
    for (auto const& subscription : subscriptions_)
      jobs_.push_back({subscription.get(), purpose});
  nextJob();
}

void Call::walkIs(Subscription& subscription, Purpose purpose) {
  auto const isSame = [&](Job const& job) {
    return job.subscription == &subscription && job.purpose == purpose;
  };
  if (std::ranges::any_of(jobs_, isSame)) return;
  jobs_.push_back({&subscription, purpose});
  nextJob();
}

void Call::nextJob() {
  if (walk_) return;
  bool const isSnapshotDone =
      std::ranges::none_of(jobs_, [](Job const& job) { return job.purpose == Purpose::Initial; });
  if (isSnapshotDone && syncOwed_) sync();
  if (!takeDueJob()) return;
  Job const& job = jobs_.front();
  if (job.purpose != Purpose::Sample) backlog_.leavesDel(job.subscription->frame(), job.region);
  std::shared_ptr<Pattern const> const& pattern = job.subscription->selector().pattern();
  Ondra::WalkerFlags flags = Ondra::flagSnapshot;
  if (mode_ != CallMode::Once) flags |= Ondra::flagStream;
  walk_ = router_.walkIs(job.region.empty() ? pattern : narrowed(pattern, job.region), flags, *this,
                         subscriber_->address());
}

// Puts the first one that may begin in front.
bool Call::takeDueJob() {
  if (jobs_.empty()) return false;
  Tovak::TaskScheduler& scheduler = *context_.scheduler();
  std::int64_t const now = context_.clock().monotonicNs();
  auto const due = std::ranges::find_if(jobs_, [now](Job const& job) { return job.notBeforeNs <= now; });
  scheduler.timerDel(jobTimer_);
  if (due != jobs_.end()) {
    std::rotate(jobs_.begin(), due, due + 1);
    return true;
  }
  auto const next = std::ranges::min_element(jobs_, {}, &Job::notBeforeNs);
  jobTimer_ = scheduler.timerAt(next->notBeforeNs, [this] { nextJob(); });
  return false;
}

void Call::walkEnded() {
  pushBundles();
  router_.walkDel(*walk_);
  walk_.reset();
  jobs_.pop_front();
  nextJob();
  refill();
}

void Call::sync() {
  for (auto const& subscription : subscriptions_)
    subscription->catchUp();
  pushEnds();
  syncOwed_ = false;
  Message::Ptr const mark = Message::sync();
  subscriber_->push({&mark, 1});
  if (mode_ == CallMode::Once || (mode_ == CallMode::Poll && halfClosed_))
    subscriber_->end(grpc::Status::OK);
  else if (std::exchange(timersOwed_, false)) // the first of a STREAM
    for (auto const& subscription : subscriptions_)
      subscription->timersStart();
}

// --- what comes of it -------------------------------------------------------------------------------------

bool Call::take(std::shared_ptr<Ondra::ArenaRespMsg>& response) {
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

// Nobody may want to know of single leaves.
bool Call::wantsBytes() const {
  Job const& job = jobs_.front();
  Selector const& selector = job.subscription->selector();
  return job.purpose != Purpose::Sample && !job.subscription->suppresses() && !selector.hasRivals() &&
         modules_ == nullptr && selector.depth() == 0 && selector.pattern()->coversObjects();
}

bool Call::takeBytes(Ondra::WireResponse const& response) {
  if (response.updates == 0) return true;
  RuleTrail::Spot* const access = access_ ? &access_->at(*response.prefix) : nullptr;
  if (access != nullptr && access->cover() == Pattern::Cover::None) return !isFull();
  std::int64_t const time = stampOf(response.timestamp);
  if (!wireJson_ && plan_.encoding != gnmi::PROTO)
    wireJson_ = std::make_unique<WireJson>(plan_.encoding == gnmi::JSON_IETF);
  auto const bundle = byteBundles_
                          .try_emplace(time, jobs_.front().subscription->frame(), time,
                                       context_.limits().responseBytes, wireJson_.get())
                          .first;
  bool const isInPart = access != nullptr && access->cover() == Pattern::Cover::Partial;
  if (isInPart) access->leaves.responseBegins();
  bundle->second.add(response, isInPart ? &access->leaves : nullptr);
  bundledLeaves_ += response.updates;
  bool const isTight = context_.memory().queues->isTight();
  if (bundledLeaves_ < (isTight ? kLeavesPerMessage : kLeavesPerBundle)) return true;
  pushBundles();
  return !isFull(); // asked when something has been queued: it takes a lock
}

// What is not told for the first time is told with the present time, or collectors take it for what they
// hold. What has changed while the machine's clock was ahead of itself is told with the present time as well.
std::int64_t Call::stampOf(std::int64_t walked) const {
  std::int64_t const now = Kel::activityManagerStatus()->activityLoopExecNsTime();
  return jobs_.front().purpose == Purpose::Initial ? std::min(walked, now) : now;
}

void Call::pushBundles() {
  if (bundles_.empty() && byteBundles_.empty()) return;
  for (auto const& subscription : subscriptions_)
    subscription->catchUp();
  pushEnds();
  if (std::exchange(isUrgent_, false))
    subscriber_->push(backlog_.takeLeaves(backlog_.leafCount(), context_.limits().responseBytes));
  std::shared_ptr<Frame const> const& frame = jobs_.front().subscription->frame();
  std::size_t const limit = context_.limits().responseBytes;
  std::vector<Message::Ptr> messages;
  messages.reserve(bundles_.size() + byteBundles_.size());
  for (auto& [time, parts] : bundles_) {
    // JSON takes its time, and is left to the threads that write.
    messages.push_back(frame->encoding == gnmi::PROTO
                           ? Message::encodedOf(std::move(parts), frame, time, limit)
                           : Message::of(std::move(parts), frame, time));
  }
  for (auto& [time, bundle] : byteBundles_)
    messages.push_back(Message::of(bundle.take(), bundle.leaves(), frame, time));
  bundles_.clear();
  byteBundles_.clear();
  bundledLeaves_ = 0;
  std::erase_if(messages, [](Message::Ptr const& message) { return message->isEmpty(); });
  subscriber_->push(messages);
}

// What has been told of changes goes first, and in slices: nothing changes during one.
bool Call::sliceBegins(Tovak::Task const& task) {
  return std::ranges::all_of(subscriptions_,
                             [&task](auto const& subscription) { return subscription->catchUpSome(task); });
}

void Call::sliceEnded() { pushBundles(); }

bool Call::isFull() const { return subscriber_->isFull(); }

void Call::drained() {
  if (backlog_.empty())
    goOn();
  else
    refill_->askFor();
}

void Call::goOn() {
  if (walk_)
    walk_->resume();
  else
    nextJob();
}

// --- what it is not ready for -----------------------------------------------------------------------------

void Call::changed(Subscription const& subscription, std::span<Message::Ptr const> messages) {
  bool const isAhead = std::ranges::any_of(jobs_, &Job::hasEnded); // perhaps, and then not told twice
  // Whoever takes it again need not wait for a turn of his own.
  if (!isAhead && !walk_ && !isFull()) refill();
  if (backlog_.empty() && !isAhead) messages = messages.subspan(subscriber_->pushSome(messages));
  if (messages.empty()) return;
  bool const isAllAhead = isAllToBeTold(subscription);
  for (Message::Ptr const& message : messages)
    if (!isAllAhead || message->own() != nullptr) putAside(subscription, *message);
  if (backlog_.bytes() > context_.limits().queueBytes) giveUp();
  if (backlog_.leafCount() > kLeavesOfStalled && isStalled()) giveUpAll();
  backlogShare_.bytesAre(backlog_.bytes());
  if (!walk_ && !isFull()) refill_->askFor();
}

void Call::putAside(Subscription const& subscription, Message const& message) {
  using Reach = Ondra::WalkReach;
  if (message.own() != nullptr) {
    for (gnmi::Path const& path : message.own()->delete_()) {
      std::string bytes = pathBytes(PathView(path, 0));
      if (!isToBeTold(subscription, bytes, true))
        backlog_.endIs(subscription.frame(), std::move(bytes), message.timestamp());
    }
  }
  message.forEachUpdate([&](gnmi::Path const& prefix, gnmi::Update const& update) {
    PathView const path(prefix, update.path(), 0);
    std::string bytes = pathBytes(path);
    Reach const reach = reachOf(subscription, path, bytes);
    if (reach == Reach::Ahead) return;
    isUrgent_ = isUrgent_ || reach == Reach::Unknown;
    backlog_.leafIs(subscription.frame(), std::move(bytes), update.val(), update.duplicates(),
                    message.timestamp());
  });
}

Ondra::WalkReach Call::reachOf(Subscription const& subscription, PathView const& path,
                               std::string_view bytes) const {
  using Reach = Ondra::WalkReach;
  if (isToBeTold(subscription, bytes, false)) return Reach::Ahead;
  bool const isWalked =
      walk_ && jobs_.front().subscription == &subscription && jobs_.front().purpose != Purpose::Sample;
  return isWalked ? walk_->reach(path) : Reach::Passed;
}

// A walk that waits will tell it. `onlyEnded`: and the subscriber holds nothing of it until then.
bool Call::isToBeTold(Subscription const& subscription, std::string_view bytes, bool onlyEnded) const {
  auto const tells = [&](Job const& job) {
    return job.subscription == &subscription && job.purpose != Purpose::Sample &&
           (job.hasEnded || !onlyEnded) && bytesAtOrBelow(job.region, bytes);
  };
  return std::any_of(jobs_.begin() + (walk_ ? 1 : 0), jobs_.end(), tells);
}

bool Call::isAllToBeTold(Subscription const& subscription) const {
  auto const tellsAll = [&](Job const& job) {
    return job.subscription == &subscription && job.purpose != Purpose::Sample && job.region.empty();
  };
  return std::any_of(jobs_.begin() + (walk_ ? 1 : 0), jobs_.end(), tellsAll);
}

bool Call::isStalled() const { return subscriber_->isStuck(context_.clock().monotonicNs(), kStalledNs); }

// To keep changes for one who takes none of them costs time at each change: he is told all of it anew once he
// reads on.
void Call::giveUpAll() {
  for (auto const& subscription : subscriptions_) {
    backlog_.leavesDel(subscription->frame(), "");
    if (!isAllToBeTold(*subscription)) refreshIs(*subscription, "", false);
  }
}

// More has changed than is kept. What that concerned is told anew, some of it after its end.
void Call::giveUp() {
  Kel::ActivityManagerStatus& clock = *Kel::activityManagerStatus();
  clock.activityLoopExecNsTimeInc(1); // later than all that has been sent
  auto const anchorOfFrame = [this](Frame const& frame) {
    auto const owner = std::ranges::find_if(
        subscriptions_, [&frame](auto const& subscription) { return subscription->frame().get() == &frame; });
    return anchorOf(**owner);
  };
  std::vector<Backlog::Lost> const all =
      backlog_.cut(context_.limits().queueBytes / 2, clock.activityLoopExecNsTime(), anchorOfFrame);
  clock.activityLoopExecNsTimeInc(1);
  if (std::ranges::any_of(all, &Backlog::Lost::hasEnded)) {
    std::int64_t const now = context_.clock().monotonicNs();
    bool const isRare = now - lastEndedNs_ > kPatienceMaxNs + patienceNs_;
    patienceNs_ = isRare ? 0 : std::clamp(2 * patienceNs_, kPatienceMinNs, kPatienceMaxNs);
    lastEndedNs_ = now;
  }
  for (Backlog::Lost const& lost : all)
    refreshIs(lost);
  refill_->askFor();
}

void Call::refreshIs(Backlog::Lost const& lost) {
  for (auto const& subscription : subscriptions_) {
    if (!lost.hasEnded) {
      if (subscription->frame() == lost.owner) refreshIs(*subscription, lost.region, false);
      continue;
    }
    std::string const anchor = anchorOf(*subscription); // an end takes away what others have told, too
    if (bytesAtOrBelow(lost.region, anchor))
      refreshIs(*subscription, anchor, true);
    else if (bytesAtOrBelow(anchor, lost.region))
      refreshIs(*subscription, lost.region, true);
  }
}

void Call::refreshIs(Subscription& subscription, std::string_view region, bool hasEnded) {
  auto const isSame = [&](Job const& job) {
    return job.subscription == &subscription && job.purpose == Purpose::Refresh && job.hasEnded == hasEnded;
  };
  auto const waiting = std::find_if(jobs_.begin() + (walk_ ? 1 : 0), jobs_.end(), isSame);
  if (waiting == jobs_.end()) {
    ++restarts_;
    std::int64_t const notBefore = hasEnded ? lastEndedNs_ + patienceNs_ : 0;
    jobs_.push_back({&subscription, Purpose::Refresh, std::string(region), hasEnded, notBefore});
  } else {
    waiting->region.resize(commonBytes(waiting->region, region).size()); // the root's bytes are none: all
  }
}

void Call::pushEnds() {
  if (backlog_.hasEnds()) subscriber_->push(backlog_.takeEnds());
}

// Gives the subscriber what waits: ends, then leaves, some or for as long as the task's slice lasts; a walk
// that runs is left its half.
void Call::refill(Tovak::Task const* task) {
  if (backlog_.empty()) return;
  pushEnds();
  Limits const& limits = context_.limits();
  std::size_t const bound = walk_ ? limits.queueBytes / 4 * 3 : limits.queueBytes;
  while (backlog_.leafCount() > 0 && !isFull() && subscriber_->held().bytes < bound) {
    subscriber_->push(backlog_.takeLeaves(kLeavesPerRefill, limits.responseBytes));
    if (task == nullptr || task->taskShouldYield()) break;
  }
  backlogShare_.bytesAre(backlog_.bytes());
  if (!walk_ && backlog_.leafCount() > 0 && !isFull()) refill_->askFor();
}

void Call::exhausted() {
  context_.scheduler()->post([subscriber = subscriber_] {
    subscriber->end(
        {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory left for what suppress_redundant keeps"});
  });
}

} // namespace Agent
