// Putting in and taking out keep three views alike, also when memory or an observer interrupts. Their order
// by paths, too.
#include "Ondra/NotifieeMaps.h"

#include <utility>

#include "Ondra/PathTypes.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/paths/PathOrder.h"
#include "Ondra/rules/WalkRules.h"
#include "Tovak/Allocator.h"

namespace Ondra {

// Never destroyed: notifiees may be dropped by whatever ends later.
std::shared_ptr<NotifieeMaps> const notifieeMaps(new NotifieeMaps(), [](NotifieeMaps*) {});

// --- PathOrder -------------------------------------------------------------------------------------------

bool PathOrder::operator()(GifGnmiNotifiee const* a, GifGnmiNotifiee const* b) const {
  return comparePaths(*a->prefixPath(), *b->prefixPath()) < 0;
}
bool PathOrder::operator()(GifGnmiNotifiee const* a, Path const& b) const {
  return comparePaths(*a->prefixPath(), b) < 0;
}
bool PathOrder::operator()(Path const& a, GifGnmiNotifiee const* b) const {
  return comparePaths(a, *b->prefixPath()) < 0;
}

// --- NotifieesOfObject -----------------------------------------------------------------------------------

void NotifieesOfObject::insert(GifGnmiNotifiee* notifiee) {
  if (several_) {
    several_->insert(notifiee);
  } else if (one_ == nullptr) {
    one_ = notifiee;
  } else {
    several_ = std::make_unique<Several>();
    several_->insert(std::exchange(one_, nullptr));
    several_->insert(notifiee);
  }
}

void NotifieesOfObject::erase(GifGnmiNotifiee* notifiee) {
  if (several_) {
    several_->erase(notifiee);
  } else if (one_ == notifiee) {
    one_ = nullptr;
  }
}

// --- NotifieeMaps ----------------------------------------------------------------------------------------

void NotifieeMaps::notifieeMapsInsert(NotifieePtr const& notifiee, Kel::PtrInterface const* object) {
  PathPtr const& path = notifiee->prefixPath();
  if (auto const found = byPath_.find(path); found != byPath_.end()) {
    NotifieePtr const before(found->second);
    notifiee->recordedType_ = std::exchange(before->recordedType_, false);
    erase(before);
  }
  notifiee->inRegistry_ =
      true; // what follows can fail for want of memory: `erase` undoes as much of it as is done
  byPath_.emplace(path, notifiee);
  notifiee->objectIdentity_ = object;
  // Grown before it is full, or both maps would grow at the same insertion and hold the scheduler twice as
  // long.
  if (byObject_.size() > byObject_.capacity() / 8 * 5) {
    byObject_.reserve(byObject_.capacity());
  }
  byObject_[object].insert(notifiee.get());
  inOrder_.insert(notifiee.get());
}

void NotifieeMaps::erase(NotifieePtr const& taken) {
  NotifieePtr const notifiee = taken; // `taken` may lie in a view
  PathPtr const& path = notifiee->prefixPath();
  if (notifiee->inRegistry_ && std::exchange(notifiee->recordedType_, false)) {
    if (Kel::Ptr<PathToType> const types = pathTypesMap) {
      types->pathTypesDel(Kel::String(path->toString()));
    }
  }
  if (!notifiee->inRegistry_) { // or not any more: whoever observes the types may have reacted
    return;
  }
  notifiee->inRegistry_ = false;
  inOrder_.erase(notifiee.get());
  if (auto const object = byObject_.find(notifiee->objectIdentity_); object != byObject_.end()) {
    object->second.erase(notifiee.get());
    if (object->second.empty()) {
      byObject_.erase(object);
    }
  }
  byPath_.erase(path);
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
  GifGnmiNotifiee* const only = found->second.only();
  GifGnmiNotifiee* const notifiee = only != nullptr ? only : find(path);
  bool const isIt = notifiee != nullptr && notifiee->notifier() == object &&
                    (only == nullptr || only->prefixPath()->isEqual(path.get()));
  return isIt ? notifiee : nullptr;
}

NotifieeMaps::PathPtr NotifieeMaps::pathOf(Kel::PtrInterface const* object) const {
  auto const found = byObject_.find(object);
  if (found == byObject_.end()) {
    return nullptr;
  }
  // Else the address was that of an object that has gone unnoticed.
  GifGnmiNotifiee const* const oldest = found->second.first(
      [object](GifGnmiNotifiee const& notifiee) { return notifiee.notifier() == object; });
  return oldest == nullptr ? nullptr : oldest->prefixPath();
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
