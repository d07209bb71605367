// Putting in and taking out, also when memory or an observer interrupts; and the order by paths.
#include "Ondra/NotifieeMaps.h"

#include <algorithm>
#include <utility>

#include "Ondra/PathTypes.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/live/StandIns.h"
#include "Ondra/paths/PathOrder.h"
#include "Ondra/rules/WalkRules.h"
#include "Tovak/Allocator.h"

namespace Ondra {

// Never destroyed: notifiees may be dropped by whatever ends later.
std::shared_ptr<NotifieeMaps> const notifieeMaps(new NotifieeMaps(), [](NotifieeMaps*) {});

// --- PathOrder -------------------------------------------------------------------------------------------

bool PathOrder::operator()(NotifieePtr const& a, NotifieePtr const& b) const {
  return comparePaths(*a->prefixPath(), *b->prefixPath()) < 0;
}
bool PathOrder::operator()(NotifieePtr const& a, Path const& b) const {
  return comparePaths(*a->prefixPath(), b) < 0;
}
bool PathOrder::operator()(Path const& a, NotifieePtr const& b) const {
  return comparePaths(a, *b->prefixPath()) < 0;
}

// --- NotifieeMaps ----------------------------------------------------------------------------------------

void NotifieeMaps::notifieeMapsInsert(NotifieePtr const& notifiee) {
  Path const& path = *notifiee->prefixPath();
  auto place = placeOf(path);
  if (NotifieePtr const before{isAt(place, path) ? place->get() : StandIns::madeAt(path)}) {
    StandIns::makeBelow(*before);
    notifiee->recordedType_ = before->recordedType_;
    before->recordedType_ = false;
    erase(before);
    place = placeOf(path);
  }
  latest_.reset(); // it is none any more
  latest_ = byPath_.insert(place, notifiee);
  notifiee->inRegistry_ = true;
}

// The first that does not stand before the path. Most walks go in about that order: what comes next is the
// last of all, or has its place near the one before; an object's children stand by name, and are walked as
// they are declared.
NotifieeMaps::GnmiNotifieeMapType::const_iterator NotifieeMaps::placeOf(Path const& path) const {
  constexpr int kNear = 8;
  PathOrder const isBefore;
  if (byPath_.empty() || isBefore(*byPath_.rbegin(), path)) return byPath_.end();
  if (!latest_) return byPath_.lower_bound(path);
  auto at = *latest_;
  if (isBefore(*at, path)) { // as the last one does not, there is one behind it
    for (int steps = 0; steps < kNear; ++steps)
      if (++at; !isBefore(*at, path)) return at;
  } else {
    for (int steps = 0; steps < kNear; ++steps, --at)
      if (at == byPath_.begin() || isBefore(*std::prev(at), path)) return at;
  }
  return byPath_.lower_bound(path);
}

bool NotifieeMaps::isAt(GnmiNotifieeMapType::const_iterator place, Path const& path) const {
  return place != byPath_.end() && (*place)->prefixPath()->isEqual(&path);
}

void NotifieeMaps::erase(NotifieePtr const& taken) {
  NotifieePtr const notifiee = taken; // `taken` may lie in a view
  PathPtr const& path = notifiee->prefixPath();
  if (notifiee->inRegistry_ && notifiee->recordedType_) {
    notifiee->recordedType_ = false;
    if (Kel::Ptr<PathToType> const types = pathTypesMap) types->pathTypesDel(Kel::String(path->toString()));
  }
  if (!notifiee->inRegistry_) // or not any more: whoever observes the types may have reacted
    return;
  StandIns::end(*notifiee);
  notifiee->inRegistry_ = false;
  latest_.reset();
  byPath_.erase(notifiee);
  Referrers::instance().forget(notifiee.get());
  notifiee->isRegisteredNotifieeIs(false);
  notifiee->notifierIs(nullptr);
}

std::size_t NotifieeMaps::size() const noexcept { return byPath_.size() + StandIns::count(); }

void NotifieeMaps::makeAll() const {
  if (StandIns::count() == 0) return;
  std::vector<NotifieePtr> const all(byPath_.begin(), byPath_.end());
  for (NotifieePtr const& notifiee : all)
    StandIns::makeBelow(*notifiee);
}

GifGnmiNotifiee* NotifieeMaps::registeredAt(Path const& path) const {
  auto const place = placeOf(path);
  return isAt(place, path) ? place->get() : nullptr;
}

bool NotifieeMaps::isLatestAndAlone(GifGnmiNotifiee const& notifiee) const {
  if (!latest_ || (*latest_)->get() != &notifiee) return false;
  auto const next = std::next(*latest_);
  return next == byPath_.end() || !WalkRules::isAtOrBelow(*notifiee.prefixPath(), *(*next)->prefixPath());
}

GifGnmiNotifiee* NotifieeMaps::find(PathPtr const& path) const {
  GifGnmiNotifiee* const registered = registeredAt(*path);
  return registered != nullptr ? registered : StandIns::madeAt(*path);
}

GifGnmiNotifiee* NotifieeMaps::oldestOf(Kel::PtrInterface const* object) {
  Kel::NotifieeList* const list = object->notifieeList();
  if (list == nullptr) return nullptr;
  list->haveMade(*object);
  for (Kel::PtrInterface::NotifieeConst* const member : list->members())
    if (GifGnmiNotifiee* const notifiee = GifGnmiNotifiee::registered(member)) return notifiee;
  return nullptr;
}

GifGnmiNotifiee* NotifieeMaps::find(Kel::PtrInterface const* object, PathPtr const& path) const {
  GifGnmiNotifiee* const oldest = oldestOf(object);
  if (oldest != nullptr && oldest->prefixPath()->isEqual(path.get())) return oldest;
  bool const mayHaveOthers =
      object->notifieeList() == nullptr || object->notifieeList()->members().size() > 1;
  GifGnmiNotifiee* const notifiee = mayHaveOthers ? find(path) : nullptr;
  return notifiee != nullptr && notifiee->notifier() == object ? notifiee : nullptr;
}

NotifieeMaps::PathPtr NotifieeMaps::pathOf(Kel::PtrInterface const* object) const {
  GifGnmiNotifiee const* const oldest = oldestOf(object);
  return oldest == nullptr ? nullptr : oldest->prefixPath();
}

std::vector<NotifieeMaps::NotifieePtr> NotifieeMaps::atOrBelow(Path const& path) const {
  std::vector<NotifieePtr> out;
  for (auto at = placeOf(path); at != byPath_.end() && WalkRules::isAtOrBelow(path, *(*at)->prefixPath());
       ++at)
    out.push_back(*at);
  return out;
}

NotifieeMaps::NotifieePtr NotifieeMaps::last() const { return byPath_.empty() ? nullptr : *byPath_.rbegin(); }

} // namespace Ondra
