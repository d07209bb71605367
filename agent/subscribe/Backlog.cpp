// Leaves and ends are sorted by path bytes; what comes in, what goes out, and how runs of ends are lifted to
// the path above them.
#include "agent/subscribe/Backlog.h"

#include <algorithm>
#include <utility>

#include "agent/paths/OutPath.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr std::size_t kEndsPerMessage = 500;
constexpr std::size_t kNodeBytes = 48;    // what a map's node has beside its value, with the heap's own
constexpr std::size_t kInPlaceBytes = 15; // a string keeps so many within itself

std::size_t textBytes(std::string const& text) { return text.size() > kInPlaceBytes ? text.size() + 16 : 0; }

} // namespace

Backlog::~Backlog() { order_.clear(); }

// --- what comes in ----------------------------------------------------------------------------------------

void Backlog::leafIs(FramePtr const& owner, std::string path, gnmi::TypedValue const& value,
                     std::uint32_t duplicates, std::int64_t timestamp) {
  auto const [at, isNew] = leaves_.try_emplace(std::move(path));
  Leaf& leaf = at->second;
  if (isNew) {
    leaf.path = &at->first;
    order_.push_back(leaf);
    bytes_ += sizeof(Leaves::value_type) + kNodeBytes + textBytes(at->first);
  } else {
    leaf.duplicates += 1;
    ++coalesced_;
    bytes_ -= textBytes(leaf.value);
  }
  leaf.owner = owner;
  value.SerializeToString(&leaf.value);
  leaf.timestamp = timestamp;
  leaf.duplicates += duplicates;
  bytes_ += textBytes(leaf.value);
}

void Backlog::endIs(FramePtr const& owner, std::string path, std::int64_t timestamp) {
  std::string_view const stem = std::string_view(path).substr(0, path.empty() ? 0 : path.size() - 1);
  for (auto at = leaves_.lower_bound(stem); at != leaves_.end() && at->first.starts_with(stem);)
    at = bytesAtOrBelow(path, at->first) ? erase(at) : std::next(at);
  auto const isStem = [&](auto const& end) { return end->first.first.starts_with(stem); };
  for (auto at = ends_.lower_bound({std::string(stem), nullptr}); at != ends_.end() && isStem(at);) {
    bool const isHere = at->first.second == owner && bytesAtOrBelow(path, at->first.first);
    at = isHere ? erase(at) : std::next(at);
  }
  bytes_ += sizeof(Ends::value_type) + kNodeBytes + textBytes(path);
  ends_.insert_or_assign({std::move(path), owner}, timestamp);
}

Backlog::Leaves::iterator Backlog::erase(Leaves::iterator leaf) {
  bytes_ -= sizeof(Leaves::value_type) + kNodeBytes + textBytes(leaf->first) + textBytes(leaf->second.value);
  order_.erase(order_.iterator_to(leaf->second));
  return leaves_.erase(leaf);
}

Backlog::Ends::iterator Backlog::erase(Ends::iterator end) {
  bytes_ -= sizeof(Ends::value_type) + kNodeBytes + textBytes(end->first.first);
  return ends_.erase(end);
}

void Backlog::leavesDel(FramePtr const& owner, std::string_view region) {
  std::string_view const stem = region.substr(0, region.empty() ? 0 : region.size() - 1);
  for (auto at = leaves_.lower_bound(stem); at != leaves_.end() && at->first.starts_with(stem);) {
    bool const isMeant = at->second.owner == owner && bytesAtOrBelow(region, at->first);
    at = isMeant ? erase(at) : std::next(at);
  }
}

// --- what goes out ----------------------------------------------------------------------------------------

std::vector<Message::Ptr> Backlog::takeEnds() {
  std::vector<Message::Ptr> messages;
  while (!ends_.empty()) {
    FramePtr const owner = ends_.begin()->first.second;
    std::int64_t const timestamp = ends_.begin()->second;
    auto made = std::make_unique<gnmi::Notification>();
    made->set_timestamp(timestamp);
    while (!ends_.empty() && static_cast<std::size_t>(made->delete__size()) < kEndsPerMessage) {
      auto const first = ends_.begin();
      if (first->first.second != owner || first->second != timestamp) break;
      *made->add_delete_() = pathOfBytes(first->first.first);
      erase(first);
    }
    messages.push_back(Message::of(std::move(made), owner));
  }
  return messages;
}

std::vector<Message::Ptr> Backlog::takeLeaves(std::size_t count, std::size_t limit) {
  std::vector<Leaf const*> taken;
  for (Leaf const& leaf : order_) {
    if (taken.size() == count) break;
    taken.push_back(&leaf);
  }
  std::ranges::stable_sort(taken, {},
                           [](Leaf const* leaf) { return std::pair(leaf->timestamp, leaf->owner.get()); });
  std::vector<Message::Ptr> messages;
  for (auto at = taken.begin(); at != taken.end();) {
    FramePtr const owner = (*at)->owner;
    auto made = std::make_unique<gnmi::Notification>();
    made->set_timestamp((*at)->timestamp);
    for (; at != taken.end() && (*at)->owner == owner && (*at)->timestamp == made->timestamp(); ++at) {
      gnmi::Update& update = *made->add_update();
      *update.mutable_path() = pathOfBytes(*(*at)->path);
      update.mutable_val()->ParseFromString((*at)->value);
      update.set_duplicates((*at)->duplicates);
      erase(leaves_.find(*(*at)->path));
    }
    messages.push_back(owner->encoding == gnmi::PROTO ? Message::encodedOf(std::move(made), owner, limit)
                                                      : Message::of(std::move(made), owner));
  }
  return messages;
}

// --- what is given up -------------------------------------------------------------------------------------

std::vector<Backlog::Lost> Backlog::cut(std::size_t bytes, std::int64_t now, AnchorOf anchorOf) {
  std::vector<Lost> lost;
  std::map<FramePtr, std::string> regions;
  for (auto const& [path, leaf] : leaves_) {
    auto const [at, isNew] = regions.try_emplace(leaf.owner, bytesAbove(path));
    if (!isNew) at->second.resize(commonBytes(at->second, path).size());
  }
  for (auto& [owner, region] : regions) {
    std::string anchor = anchorOf(*owner);
    lost.push_back({owner, region.size() < anchor.size() ? std::move(anchor) : std::move(region), false});
  }
  while (!leaves_.empty())
    erase(leaves_.begin());
  for (std::size_t before = ends_.size() + 1; bytes_ > bytes && ends_.size() < before;) {
    before = ends_.size();
    liftRun(now, anchorOf, lost);
  }
  return lost;
}

// Of the longest run of ends below one path: the end of that path.
void Backlog::liftRun(std::int64_t now, AnchorOf anchorOf, std::vector<Lost>& lost) {
  std::map<std::pair<std::string_view, FramePtr>, std::size_t> counts;
  for (auto const& [key, timestamp] : ends_)
    ++counts[{bytesAbove(key.first), key.second}];
  auto const most = std::ranges::max_element(counts, {}, [](auto const& one) { return one.second; });
  if (most == counts.end()) return;
  FramePtr const owner = most->first.second;
  std::string path(most->first.first);
  if (most->second == 1) path = anchorOf(*owner); // no run anywhere
  if (std::string anchor = anchorOf(*owner); path.size() < anchor.size()) path = std::move(anchor);
  std::erase_if(lost,
                [&](Lost const& one) { return one.owner == owner && bytesAtOrBelow(path, one.region); });
  endIs(owner, path, now);
  lost.push_back({owner, std::move(path), true});
}

} // namespace Agent
