// Places of which something waits, as a sorted set of path bytes; settling, from the last change to the
// first; telling.
#include "agent/router/Staging.h"

#include <algorithm>
#include <utility>

#include "Ondra/ArenaRespMsg.h"
#include "Tovak/Task.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

gnmi::Notification& notificationOf(Staging::Response const& response) {
  return *response->response->mutable_update();
}

} // namespace

bool Staging::take(Response const& response, Whose whose) {
  gnmi::Notification const& notification = response->response->update();
  bool const isOwn = whose != Whose::Other;
  if (!isOwn && !concernsWhatWaits(notification)) return false;
  // A removal goes first, but for what it has to do with of what others have done.
  bool const goesFirst = whose == Whose::OwnRemoval && (!hasOthers_ || !concernsWhatWaits(notification));
  (goesFirst ? removals_ : others_).push_back({response, isOwn});
  hasOthers_ = hasOthers_ || !isOwn;
  enter(notification);
  share_.bytesAre(share_.bytes() + response->spaceAllocated());
  return true;
}

std::vector<Staging::Response> Staging::drop(std::span<std::string const> kept) {
  std::vector<Response> forgotten;
  std::size_t left = 0;
  for (std::deque<Waiting>* const all : {&removals_, &others_}) {
    std::deque<Waiting> stay;
    for (Waiting& one : *all) {
      std::string const bytes =
          kept.empty() ? std::string() : pathBytes(PathView(notificationOf(one.response).prefix(), 0));
      bool const isKept = !one.isOwn || std::ranges::any_of(kept, [&bytes](std::string const& path) {
        return bytesAtOrBelow(path, bytes);
      });
      if (isKept) {
        left += one.response->spaceAllocated();
        stay.push_back(std::move(one));
      } else {
        forgotten.push_back(std::move(one.response));
      }
    }
    all->swap(stay);
  }
  share_.bytesAre(left);
  return forgotten;
}

// --- places -----------------------------------------------------------------------------------------------

void Staging::enter(gnmi::Notification const& notification) {
  for (gnmi::Path const& path : notification.delete_())
    enter(pathBytes(PathView(notification.prefix(), path, 0)));
  if (notification.update_size() > 0) enter(pathBytes(PathView(notification.prefix(), 0)));
}

void Staging::enter(std::string bytes) {
  if (!waitsAbove(bytes)) places_.insert(std::move(bytes));
}

bool Staging::waitsAbove(std::string_view bytes) const {
  for (std::string_view at = bytes; !at.empty(); at = bytesAbove(at)) {
    if (places_.contains(at)) return true;
    std::string_view const last = at.substr(bytesAbove(at).size());
    if (std::size_t const keys = last.find(kKeyStart); keys != last.npos) { // all entries of the list
      if (places_.contains(std::string(at.substr(0, bytesAbove(at).size() + keys)) + kElemEnd)) return true;
    }
  }
  return false;
}

bool Staging::waitsBelow(std::string_view bytes) const {
  std::string_view const stem = bytes.substr(0, bytes.empty() ? 0 : bytes.size() - 1);
  for (auto at = places_.lower_bound(stem); at != places_.end() && at->starts_with(stem); ++at)
    if (bytesAtOrBelow(bytes, *at)) return true;
  return false;
}

bool Staging::concernsWhatWaits(gnmi::Notification const& notification) const {
  if (places_.empty()) return false;
  for (gnmi::Path const& path : notification.delete_()) {
    std::string const bytes = pathBytes(PathView(notification.prefix(), path, 0));
    if (waitsAbove(bytes) || waitsBelow(bytes)) return true;
  }
  return std::ranges::any_of(notification.update(), [&](gnmi::Update const& update) {
    return waitsAbove(pathBytes(PathView(notification.prefix(), update.path(), 0)));
  });
}

// --- telling ----------------------------------------------------------------------------------------------

bool Staging::settleSome(Tovak::Task const& task) {
  if (!std::exchange(isSettling_, true)) unsettled_ = others_.size();
  if (others_.size() < 2) unsettled_ = 0;
  while (unsettled_ > 0) {
    gnmi::Notification& notification = notificationOf(others_[--unsettled_].response);
    auto& updates = *notification.mutable_update();
    for (int i = updates.size() - 1; i >= 0; --i)
      if (!later_.insert(pathBytes(PathView(notification.prefix(), updates[i].path(), 0))).second)
        updates.DeleteSubrange(i, 1);
    if (unsettled_ > 0 && task.taskShouldYield()) return false;
  }
  return true;
}

Staging::Response Staging::next() {
  std::deque<Waiting>& from = removals_.empty() ? others_ : removals_;
  if (from.empty()) return nullptr;
  Response response = std::move(from.front().response);
  from.pop_front();
  share_.bytesAre(share_.bytes() - std::min(share_.bytes(), response->spaceAllocated()));
  return response;
}

} // namespace Agent
