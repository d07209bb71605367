#include "agent/subscribe/Feed.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Ondra/ArenaRespMsg.h"
#include "agent/paths/OutPath.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

void Feed::changed(std::shared_ptr<Ondra::ArenaRespMsg> const& response) {
  gnmi::Notification const& notification = response->response->update();
  auto const tell = [this](Message::Ptr const& message) {
    for (std::size_t i = 0; i < members.size(); ++i)
      members[i]->changed(message);
  };
  if (notification.delete__size() > 0) {
    std::vector<gnmi::Path> ends;
    for (gnmi::Path const& path : notification.delete_())
      selector.appendEnds(notification.prefix(), path, ends);
    if (!ends.empty()) {
      auto made = std::make_unique<gnmi::Notification>();
      made->set_timestamp(notification.timestamp());
      for (gnmi::Path& path : ends)
        made->add_delete_()->Swap(&path);
      tell(Message::of(std::move(made), frame));
    }
  }
  if (mode == LeafMode::Sample) return;
  Selector::Selected selected =
      selector.updates(notification, mode == LeafMode::OnChange ? LeafKind::All : LeafKind::Event);
  if (selected.any) tell(Message::of(response, frame, std::move(selected.updates), 0));
}

// --- the index --------------------------------------------------------------------------------------------

struct FeedIndex::Node {
  absl::flat_hash_map<std::string, std::unique_ptr<Node>> below;
  std::vector<std::shared_ptr<Feed>> feeds;
};

FeedIndex::FeedIndex() : root_(std::make_unique<Node>()) {}
FeedIndex::~FeedIndex() = default;

namespace {

void appendBytes(std::string& to, Pattern::Elem const& from) {
  gnmi::PathElem elem;
  elem.set_name(from.name);
  for (auto const& [name, value] : from.keys)
    (*elem.mutable_key())[name] = value;
  appendElemBytes(to, elem);
}

std::string commonBytes(Selector const& selector, Frame const& frame, LeafMode mode) {
  std::string bytes = fmt::format("{} {} {} {} {}{}", static_cast<int>(mode), frame.encoding,
                                  frame.origin.size(), frame.target.size(), frame.origin, frame.target);
  for (Pattern::Elem const& elem : selector.pattern()->elems())
    appendBytes(bytes, elem);
  return bytes;
}

std::vector<std::string> anchorBytes(Pattern const& pattern) {
  std::vector<std::string> all(pattern.anchorDepth());
  for (std::size_t i = 0; i < all.size(); ++i)
    appendBytes(all[i], pattern.elems()[i]);
  return all;
}

} // namespace

std::shared_ptr<Feed> FeedIndex::feedIs(Selector const& selector, Frame const& frame, LeafMode mode) {
  if (selector.hasRivals()) return std::make_shared<Feed>(selector, std::make_shared<Frame>(frame), mode);
  std::weak_ptr<Feed>& shared = shared_[commonBytes(selector, frame, mode)];
  std::shared_ptr<Feed> feed = shared.lock();
  if (!feed) shared = feed = std::make_shared<Feed>(selector, std::make_shared<Frame>(frame), mode);
  return feed;
}

void FeedIndex::memberIs(std::shared_ptr<Feed> const& feed, FeedMember& member) {
  feed->members.push_back(&member);
  if (feed->members.size() > 1) return;
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
  auto const found = std::ranges::find(feed->members, &member);
  if (found == feed->members.end()) return;
  std::swap(*found, feed->members.back());
  feed->members.pop_back();
  if (!feed->members.empty()) return;
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
  if (!feed->selector.hasRivals()) shared_.erase(commonBytes(feed->selector, *feed->frame, feed->mode));
}

void FeedIndex::changed(std::shared_ptr<Ondra::ArenaRespMsg> const& response) {
  if (count_ == 0) return;
  find(response->response->update());
  std::vector<std::shared_ptr<Feed>> const found = std::exchange(found_, {});
  for (std::shared_ptr<Feed> const& feed : found)
    feed->changed(response);
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
  for (std::shared_ptr<Feed> const& feed : node.feeds) {
    if (std::exchange(feed->seen, change_) != change_) found_.push_back(feed);
  }
}

void FeedIndex::takeBelow(Node const& node) {
  for (auto const& [bytes, below] : node.below) {
    take(*below);
    takeBelow(*below);
  }
}

} // namespace Agent
