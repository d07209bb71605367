// Three parts: making messages of changes, delivering them in slices, and the index, a tree over the anchors
// of patterns.
#include "agent/subscribe/Feed.h"

#include <absl/hash/hash.h>
#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>

#include "Ondra/ArenaRespMsg.h"
#include "Tovak/Task.h"
#include "Tovak/TaskScheduler.h"
#include "agent/paths/OutPath.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr std::size_t kLeavesAtATime = 64; // told to one member before the clock is looked at

} // namespace

// --- making messages --------------------------------------------------------------------------------------

// Makes messages of all that has been taken: of each change the ends of paths first, then updates.
void Feed::settle() { static_cast<void>(settleSome(nullptr)); }

bool Feed::settleSome(Tovak::Task const* task) {
  while (nextTaken_ < taken_.size()) {
    joinedBefore(nextTaken_);
    select(taken_[nextTaken_++]);
    if (task != nullptr && nextTaken_ < taken_.size() && task->taskShouldYield()) return false;
  }
  joinedBefore(taken_.size());
  taken_.clear();
  nextTaken_ = 0;
  close();
  return true;
}

// Those have joined to whom nothing belongs that was taken before.
void Feed::joinedBefore(std::size_t taken) {
  for (; !joining_.empty() && joining_.front().from <= taken; joining_.pop_front()) {
    close();
    joining_.front().member->position_ = end();
    members_.push_back(joining_.front().member);
  }
}

void Feed::select(std::shared_ptr<Ondra::ArenaRespMsg> const& response) {
  gnmi::Notification const& notification = response->response->update();
  if (notification.delete__size() > 0) {
    std::vector<gnmi::Path> ends;
    for (gnmi::Path const& path : notification.delete_())
      selector.appendEnds(notification.prefix(), path, ends);
    if (!ends.empty()) {
      auto made = std::make_unique<gnmi::Notification>();
      made->set_timestamp(notification.timestamp());
      for (gnmi::Path& path : ends)
        made->add_delete_()->Swap(&path);
      close();
      log_.push_back(Message::of(std::move(made), frame));
    }
  }
  if (mode == LeafMode::Sample) return;
  Selector::Selected selected =
      selector.updates(notification, mode == LeafMode::OnChange ? LeafKind::All : LeafKind::Event);
  if (selected.any) bundle(response, std::move(selected.updates));
}

void Feed::bundle(std::shared_ptr<Ondra::ArenaRespMsg> const& response, Selection updates) {
  gnmi::Notification const& notification = response->response->update();
  if (notification.timestamp() != openTime_ || openLeaves_ >= kLeavesPerMessage) close();
  hashPaths(notification, updates);
  if (repeatsPath()) close();
  openPaths_.insert(paths_.begin(), paths_.end());
  openTime_ = notification.timestamp();
  openLeaves_ += updates ? updates->size() : static_cast<std::size_t>(notification.update_size());
  open_.push_back({response, std::move(updates)});
}

void Feed::hashPaths(gnmi::Notification const& notification, Selection const& updates) {
  paths_.clear();
  auto const enter = [&](gnmi::Update const& update) {
    paths_.push_back(absl::HashOf(pathBytes(PathView(notification.prefix(), update.path(), 0))));
  };
  if (updates)
    for (std::uint32_t const at : *updates)
      enter(notification.update(static_cast<int>(at)));
  else
    for (gnmi::Update const& update : notification.update())
      enter(update);
}

// One of the paths is in the open message already.
bool Feed::repeatsPath() const {
  return std::ranges::any_of(paths_, [this](std::size_t path) { return openPaths_.contains(path); });
}

void Feed::close() {
  openPaths_.clear();
  openLeaves_ = 0;
  if (!open_.empty()) log_.push_back(Message::of(std::exchange(open_, {}), frame, openTime_));
}

// --- delivering -------------------------------------------------------------------------------------------

void Feed::catchUp(FeedMember& member) {
  settle();
  static_cast<void>(give(member, end(), nullptr));
}

bool Feed::catchUpSome(FeedMember& member, Tovak::Task const& task) {
  return settleSome(&task) && give(member, end(), &task);
}

// Gives a member what was made before message `until`, a few messages after the other: what it does with them
// may take as long as their leaves are many.
bool Feed::give(FeedMember& member, std::uint64_t until, Tovak::Task const* task) {
  while (member.position_ < until) {
    std::uint64_t const from = member.position_;
    std::size_t leaves = 0;
    while (member.position_ < until && leaves < kLeavesAtATime)
      leaves += log_[member.position_++ - first_]->leaves() + 1;
    member.changed(std::span(log_).subspan(from - first_, member.position_ - from));
    if (task != nullptr && task->taskShouldYield()) return member.position_ >= until;
  }
  return true;
}

bool Feed::deliver(Tovak::Task const& task) {
  for (;;) {
    if (deliveryEnd_ == first_) { // a round begins
      if (!settleSome(&task)) return false;
      if (log_.empty()) return true;
      deliveryEnd_ = end();
    }
    for (; nextMember_ < members_.size(); ++nextMember_) {
      if (!give(*members_[nextMember_], deliveryEnd_, &task)) return false;
      if (task.taskShouldYield()) {
        ++nextMember_;
        return false;
      }
    }
    nextMember_ = 0;
    log_.erase(log_.begin(), log_.begin() + static_cast<std::ptrdiff_t>(deliveryEnd_ - first_));
    first_ = deliveryEnd_;
    if (task.taskShouldYield()) return false;
  }
}

void Feed::memberDel(FeedMember& member) {
  std::erase_if(joining_, [&member](Joining const& one) { return one.member == &member; });
  auto const found = std::ranges::find(members_, &member);
  if (found == members_.end()) return;
  // The last one takes its place, among those that the delivery has still to come to.
  auto at = static_cast<std::size_t>(found - members_.begin());
  if (at < nextMember_) {
    members_[at] = members_[--nextMember_];
    at = nextMember_;
  }
  members_[at] = members_.back();
  members_.pop_back();
}

// --- the index --------------------------------------------------------------------------------------------

struct FeedIndex::Node {
  absl::flat_hash_map<std::string, std::unique_ptr<Node>> below;
  std::vector<std::shared_ptr<Feed>> feeds;
};

class Feed::Delivery final : public Tovak::Task {
public:
  // `turn`: null for shared feeds, which are everybody's.
  Delivery(std::shared_ptr<Tovak::TaskScheduler> scheduler, std::shared_ptr<Turns::Turn> turn)
      : Tovak::Task(std::move(scheduler), "DeliverChanges",
                    turn ? Tovak::TaskPriority::normal : Tovak::TaskPriority::high)
      , turn_(std::move(turn)) {}

  void feedIs(std::shared_ptr<Feed> const& feed) {
    if (std::exchange(feed->isDue, true)) return;
    due_.push_back(feed);
    schedule();
  }
  void taskExecute() override {
    std::optional<Turns::Turn::Run> run;
    if (turn_) run.emplace(turn_);
    while (!due_.empty()) {
      std::shared_ptr<Feed> const feed = due_.front();
      bool const done = feed->deliver(*this);
      due_.pop_front();
      feed->isDue = !done;
      if (!done) due_.push_back(feed); // the others have their turn first
      if (!done || taskShouldYield()) break;
    }
    if (!due_.empty()) schedule();
  }

private:
  void schedule() {
    if (turn_)
      turn_->askFor(shared_from_this());
    else
      scheduleTask();
  }

  std::shared_ptr<Turns::Turn> const turn_;
  std::deque<std::shared_ptr<Feed>> due_;
};

FeedIndex::FeedIndex(std::shared_ptr<Tovak::TaskScheduler> scheduler)
    : root_(std::make_unique<Node>())
    , scheduler_(std::move(scheduler))
    , delivery_(std::make_shared<Delivery>(scheduler_, nullptr)) {}
FeedIndex::~FeedIndex() = default;

std::shared_ptr<Feed::Delivery> FeedIndex::deliveryIs(std::shared_ptr<Turns::Turn> turn) const {
  return std::make_shared<Delivery>(scheduler_, std::move(turn));
}

namespace {

void appendBytes(std::string& to, Pattern::Elem const& from) {
  gnmi::PathElem elem;
  elem.set_name(from.name);
  for (auto const& [name, value] : from.keys)
    (*elem.mutable_key())[name] = value;
  appendElemBytes(to, elem);
}

std::string feedBytes(Selector const& selector, Frame const& frame, LeafMode mode) {
  std::string bytes =
      fmt::format("{} {} {} {} {} {}{}", static_cast<int>(mode), frame.encoding, selector.depth(),
                  frame.origin.size(), frame.target.size(), frame.origin, frame.target);
  for (Pattern::Elem const& elem : selector.pattern()->elems())
    appendBytes(bytes, elem);
  if (selector.access()) bytes += fmt::format(" {}", fmt::ptr(selector.access().get()));
  if (selector.modules()) bytes += fmt::format(" {}", fmt::join(*selector.modules(), " "));
  return bytes;
}

std::vector<std::string> anchorBytes(Pattern const& pattern) {
  std::vector<std::string> all(pattern.anchorDepth());
  for (std::size_t i = 0; i < all.size(); ++i)
    appendBytes(all[i], pattern.elems()[i]);
  return all;
}

} // namespace

std::shared_ptr<Feed> FeedIndex::feedIs(Selector const& selector, Frame const& frame, LeafMode mode,
                                        Delivery& ofCall) {
  auto const made = [&](Delivery& delivery) {
    auto feed = std::make_shared<Feed>(selector, std::make_shared<Frame>(frame), mode);
    feed->delivery = &delivery;
    return feed;
  };
  if (selector.hasRivals()) return made(ofCall);
  std::weak_ptr<Feed>& shared = shared_[feedBytes(selector, frame, mode)];
  std::shared_ptr<Feed> feed = shared.lock();
  if (!feed) shared = feed = made(*delivery_);
  return feed;
}

void FeedIndex::memberIs(std::shared_ptr<Feed> const& feed, FeedMember& member) {
  bool const isFirst = feed->empty();
  feed->memberIs(member);
  if (!isFirst) return;
  Node* node = root_.get();
  for (std::string& bytes : anchorBytes(*feed->selector.pattern())) {
    std::unique_ptr<Node>& below = node->below[std::move(bytes)];
    if (!below) below = std::make_unique<Node>();
    node = below.get();
  }
  node->feeds.push_back(feed);
  ++count_;
}

void FeedIndex::memberDel(std::shared_ptr<Feed> const& feed, FeedMember& member) {
  feed->memberDel(member);
  if (!feed->empty()) return;
  std::vector<std::string> const anchor = anchorBytes(*feed->selector.pattern());
  std::vector<Node*> road{root_.get()};
  for (std::string const& bytes : anchor)
    road.push_back(road.back()->below.at(bytes).get());
  std::erase(road.back()->feeds, feed);
  for (std::size_t depth = anchor.size(); depth > 0; --depth) {
    if (!road[depth]->feeds.empty() || !road[depth]->below.empty()) break;
    road[depth - 1]->below.erase(anchor[depth - 1]);
  }
  --count_;
  if (!feed->selector.hasRivals()) shared_.erase(feedBytes(feed->selector, *feed->frame, feed->mode));
}

void FeedIndex::changed(std::shared_ptr<Ondra::ArenaRespMsg> const& response) {
  if (count_ == 0) return;
  find(response->response->update());
  for (std::shared_ptr<Feed> const& feed : found_) {
    feed->take(response);
    feed->delivery->feedIs(feed);
  }
  found_.clear();
}

bool FeedIndex::concerns(Ondra::ArenaRespMsg const& response) {
  if (count_ == 0) return false;
  find(response.response->update());
  bool const isFound = !found_.empty();
  found_.clear();
  return isFound;
}

void FeedIndex::find(gnmi::Notification const& notification) {
  ++change_;
  for (gnmi::Path const& path : notification.delete_())
    findBelow(*root_, PathView(notification.prefix(), path, 1), 0, true);
  if (notification.update_size() == 0) return;
  Node const* node = root_.get();
  take(*node);
  std::string bytes;
  PathView const prefix(notification.prefix(), 1);
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    bytes.clear();
    appendElemBytes(bytes, prefix[i]);
    auto const below = node->below.find(bytes);
    if (below == node->below.end()) return;
    node = below->second.get();
    take(*node);
  }
  if (node->below.empty()) return;
  for (gnmi::Update const& update : notification.update())
    findBelow(*node, PathView(update.path(), 0), 0, false);
}

void FeedIndex::findBelow(Node const& from, PathView const& path, std::size_t at, bool isEnd) {
  Node const* node = &from;
  take(*node);
  std::string bytes;
  for (; at < path.size(); ++at) {
    bytes.clear();
    appendElemBytes(bytes, path[at]);
    auto const below = node->below.find(bytes);
    if (below == node->below.end()) return;
    node = below->second.get();
    take(*node);
  }
  if (isEnd) takeBelow(*node);
}

void FeedIndex::take(Node const& node) {
  for (std::shared_ptr<Feed> const& feed : node.feeds)
    if (std::exchange(feed->seen, change_) != change_) found_.push_back(feed);
}

void FeedIndex::takeBelow(Node const& node) {
  for (auto const& [bytes, below] : node.below) {
    take(*below);
    takeBelow(*below);
  }
}

} // namespace Agent
