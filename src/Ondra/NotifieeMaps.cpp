#include "Ondra/NotifieeMaps.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <string_view>
#include <utility>

#include "Ondra/PathTypes.h"
#include "Ondra/Referrers.h"
#include "Ondra/WalkRules.h"
#include "Tovak/Allocator.h"

namespace Ondra {
namespace {

using Fields = boost::container::small_vector<std::pair<std::string_view, std::string_view>, 4>;

Fields fieldsOf(PathElem const& elem) {
  Fields fields;
  for (auto const& [key, value] : elem.key()) {
    fields.emplace_back(key.view(), value.view());
  }
  std::sort(fields.begin(), fields.end());
  return fields;
}

// By their texts: a walk goes through the members of a collection in nearly that order, so that what it enters one after the other comes
// to lie side by side.
int compareElems(PathElem const& a, PathElem const& b) {
  if (&a == &b) {
    return 0;
  }
  if (!(a.name() == b.name())) {
    return a.name().view() < b.name().view() ? -1 : 1;
  }
  if (a.key().size() == 1 && b.key().size() == 1) [[likely]] {
    auto const& left = *a.key().begin();
    auto const& right = *b.key().begin();
    if (left.key == right.key) {
      return left.value.view().compare(right.value.view());
    }
  }
  Fields const left = fieldsOf(a);
  Fields const right = fieldsOf(b);
  return left < right ? -1 : right < left ? 1 : 0;
}

} // namespace

// Never destroyed: notifiees may be dropped by whatever ends later.
std::shared_ptr<NotifieeMaps> const notifieeMaps(new NotifieeMaps(), [](NotifieeMaps*) {});

int PathOrder::compare(Path const& a, Path const& b) {
  auto const left = a.elems();
  auto const right = b.elems();
  std::size_t const common = std::min(left.size(), right.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (int const order = compareElems(*left[i], *right[i]); order != 0) {
      return order;
    }
  }
  return left.size() < right.size() ? -1 : left.size() > right.size() ? 1 : 0;
}

void NotifieeMaps::notifieeMapsInsert(NotifieePtr const& notifiee, Kel::PtrInterface const* object) {
  PathPtr const& path = notifiee->prefixPath();
  if (auto const found = byPath_.find(path); found != byPath_.end()) {
    erase(NotifieePtr(found->second));
  }
  byPath_.emplace(path, notifiee);
  notifiee->objectIdentity_ = object;
  // Grown before it is full, or both maps would grow at the same insertion and hold the scheduler twice as long.
  if (byObject_.size() > byObject_.capacity() / 8 * 5) {
    byObject_.reserve(byObject_.capacity());
  }
  byObject_[object].push_back(notifiee.get());
  inOrder_.insert(notifiee.get());
  notifiee->inRegistry_ = true;
}

void NotifieeMaps::erase(NotifieePtr const& taken) {
  NotifieePtr const notifiee = taken; // `taken` may lie in a view
  if (!notifiee->inRegistry_) {
    return;
  }
  notifiee->inRegistry_ = false;
  PathPtr const& path = notifiee->prefixPath();
  inOrder_.erase(notifiee.get());
  if (auto const object = byObject_.find(notifiee->objectIdentity_); object != byObject_.end()) {
    NotifieeSetType& notifiees = object->second;
    notifiees.erase(std::remove(notifiees.begin(), notifiees.end(), notifiee.get()), notifiees.end());
    if (notifiees.empty()) {
      byObject_.erase(object);
    }
  }
  byPath_.erase(path);
  if (notifiee->recordedType_ && pathTypesMap) {
    pathTypesMap->pathTypesDel(Kel::String(path->toString()));
  }
  Referrers::instance().forget(notifiee.get());
  notifiee->isRegisteredNotifieeIs(false);
  notifiee->notifierIs(nullptr);
}

GifGnmiNotifiee* NotifieeMaps::find(PathPtr const& path) const {
  auto const found = byPath_.find(path);
  return found == byPath_.end() ? nullptr : found->second.get();
}

GifGnmiNotifiee* NotifieeMaps::find(Kel::PtrInterface const* object, PathPtr const& path) const {
  auto const found = byObject_.find(object);
  if (found == byObject_.end()) {
    return nullptr;
  }
  for (GifGnmiNotifiee* const notifiee : found->second) {
    if (notifiee->notifier() == object && notifiee->prefixPath()->isEqual(path.get())) {
      return notifiee;
    }
  }
  return nullptr;
}

NotifieeMaps::PathPtr NotifieeMaps::pathOf(Kel::PtrInterface const* object) const {
  auto const found = byObject_.find(object);
  if (found == byObject_.end()) {
    return nullptr;
  }
  for (GifGnmiNotifiee const* const notifiee : found->second) {
    if (notifiee->notifier() == object) { // else the address was that of an object that has gone unnoticed
      return notifiee->prefixPath();
    }
  }
  return nullptr;
}

std::vector<NotifieeMaps::NotifieePtr> NotifieeMaps::atOrBelow(Path const& path) const {
  std::vector<NotifieePtr> out;
  for (auto at = inOrder_.lower_bound(path);
       at != inOrder_.end() && WalkRules::isAtOrBelow(path, *(*at)->prefixPath()); ++at) {
    out.emplace_back(NotifieePtr(*at));
  }
  return out;
}

NotifieeMaps::NotifieePtr NotifieeMaps::last() const {
  return inOrder_.empty() ? nullptr : NotifieePtr(*inOrder_.rbegin());
}

} // namespace Ondra
