#include "agent/subscribe/OutQueue.h"

#include <utility>

#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr std::size_t kItemCost = 256; // the list's node, the index's entry, short texts
constexpr std::size_t kLeavesAtATime = 500;

} // namespace

std::size_t OutQueue::Item::cost() const noexcept {
  return message ? message->bytes() : kItemCost + 2 * bytes.size() + path.size() + value.size();
}

OutQueue::Pushed OutQueue::push(Message::Ptr const& message, Kind kind) {
  bool const isOpen = !leaves_.empty() || !deletes_.empty();
  bool const coalesces = kind == Kind::Change && !message->isSync() &&
                         (isOpen ? bytes_ > bound_ / 2 : bytes_ + message->bytes() > bound_);
  if (coalesces) {
    takeApart(*message);
  } else {
    closeStretch();
    append(Item{.message = message});
  }
  if (bytes_ >= bound_) full_ = true;
  if (bytes_ <= 2 * bound_ || kind == Kind::Walk) return Pushed::Taken;
  clear();
  return Pushed::Overflow;
}

void OutQueue::append(Item item) {
  bytes_ += item.cost();
  items_.push_back(std::move(item));
}

void OutQueue::clear() {
  droppedSync_ = false;
  for (Item const& item : items_)
    droppedSync_ = droppedSync_ || (item.message && item.message->isSync());
  leaves_.clear();
  deletes_.clear();
  items_.clear();
  bytes_ = 0;
  full_ = true;
}

bool OutQueue::takeDrained() noexcept { return std::exchange(drained_, false); }

// --- coalescing -------------------------------------------------------------------------------------------

void OutQueue::takeApart(Message const& message) {
  if (message.own() != nullptr) {
    for (gnmi::Path const& path : message.own()->delete_())
      putDelete(message, path);
  }
  gnmi::Path path;
  message.forEachUpdate([&](gnmi::Path const& prefix, gnmi::Update const& update) {
    path = prefix;
    path.mutable_elem()->MergeFrom(update.path().elem());
    putUpdate(message, path, update.val(), update.duplicates());
  });
}

void OutQueue::putUpdate(Message const& message, gnmi::Path const& path, gnmi::TypedValue const& value,
                         std::uint32_t duplicates) {
  std::string bytes = pathBytes(PathView(path, 0));
  if (auto const found = leaves_.find(bytes); found != leaves_.end()) {
    Item& item = *found->second;
    bytes_ -= item.cost();
    value.SerializeToString(&item.value);
    item.timestamp = message.timestamp();
    item.duplicates += 1 + duplicates;
    bytes_ += item.cost();
    return;
  }
  append(Item{.message = nullptr,
              .frame = message.frame(),
              .bytes = std::move(bytes),
              .path = path.SerializeAsString(),
              .value = value.SerializeAsString(),
              .timestamp = message.timestamp(),
              .duplicates = duplicates,
              .isOpen = true});
  leaves_.emplace(items_.back().bytes, std::prev(items_.end()));
}

void OutQueue::putDelete(Message const& message, gnmi::Path const& path) {
  std::string bytes = pathBytes(PathView(path, 0));
  dropAtOrBelow(leaves_, bytes);
  dropAtOrBelow(deletes_, bytes);
  append(Item{.message = nullptr,
              .frame = message.frame(),
              .bytes = std::move(bytes),
              .path = path.SerializeAsString(),
              .timestamp = message.timestamp(),
              .isDelete = true,
              .isOpen = true});
  deletes_.emplace(items_.back().bytes, std::prev(items_.end()));
}

void OutQueue::dropAtOrBelow(Index& index, std::string_view bytes) {
  std::string_view const stem = bytes.substr(0, bytes.empty() ? 0 : bytes.size() - 1);
  auto at = index.lower_bound(stem);
  while (at != index.end() && at->first.starts_with(stem)) {
    if (!bytesAtOrBelow(bytes, at->first)) {
      ++at;
      continue;
    }
    Items::iterator const item = at->second;
    at = index.erase(at);
    bytes_ -= item->cost();
    items_.erase(item);
  }
}

void OutQueue::closeStretch() {
  for (Index* const index : {&leaves_, &deletes_}) {
    for (auto const& [bytes, item] : *index)
      item->isOpen = false;
    index->clear();
  }
}

// --- taking out -------------------------------------------------------------------------------------------

Message::Ptr OutQueue::pop() {
  Message::Ptr out;
  if (!items_.empty()) {
    if (items_.front().message) {
      out = items_.front().message;
      popFront();
    } else {
      out = popRun();
    }
  }
  if (full_ && bytes_ <= bound_ / 2) {
    full_ = false;
    drained_ = true;
  }
  return out;
}

// Neighbours of one time, leaves or ends, become one message. No path is among them twice.
Message::Ptr OutQueue::popRun() {
  Item const& first = items_.front();
  bool const isDelete = first.isDelete;
  std::shared_ptr<Frame const> const frame = first.frame;
  auto notification = std::make_unique<gnmi::Notification>();
  notification->set_timestamp(first.timestamp);
  for (std::size_t count = 0; count < kLeavesAtATime && !items_.empty(); ++count) {
    Item const& item = items_.front();
    if (item.message || item.isDelete != isDelete || item.timestamp != notification->timestamp() ||
        item.frame != frame) {
      break;
    }
    if (isDelete) {
      notification->add_delete_()->ParseFromString(item.path);
    } else {
      gnmi::Update& update = *notification->add_update();
      update.mutable_path()->ParseFromString(item.path);
      update.mutable_val()->ParseFromString(item.value);
      update.set_duplicates(item.duplicates);
    }
    popFront();
  }
  return Message::of(std::move(notification), frame);
}

void OutQueue::popFront() {
  Item const& item = items_.front();
  bytes_ -= item.cost();
  if (item.isOpen) (item.isDelete ? deletes_ : leaves_).erase(item.bytes);
  items_.pop_front();
}

} // namespace Agent
