// Ondra::NotifieeMaps: the registry of the notifiees, by path and by object.
//
// Invariants
// 1. A notifiee that is held here knows so (`isRegistered`).
// 2. By path they stand in an order in which those at or below a path are neighbours.
// 3. By object they are found in the list of its observers, in the order in which they began to observe it.
// 4. Containers for which another's notifiee stands in (live/StandIns.h) count, and are given the notifiee
//    that is looked for.
#pragma once

#include <absl/container/btree_set.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kstd/Export.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/Path.h"

namespace Ondra {

// By path, parents before children.
struct KTD_EXPORT PathOrder {
  using is_transparent = void;
  using NotifieePtr = Kel::Ptr<GifGnmiNotifiee>;
  bool operator()(NotifieePtr const& a, NotifieePtr const& b) const;
  bool operator()(NotifieePtr const& a, Path const& b) const;
  bool operator()(Path const& a, NotifieePtr const& b) const;
};

// There is one, `notifieeMaps`, which lives for the process. Holds the notifiees. Scheduler thread only.
class KTD_EXPORT NotifieeMaps {
public:
  using PathPtr = Kel::Ptr<Path const>;
  using NotifieePtr = Kel::Ptr<GifGnmiNotifiee>;

  // Registers a notifiee. One that has the path already is taken out first and leaves its entry in
  // `pathTypesMap` to this one.
  void notifieeMapsInsert(NotifieePtr const& notifiee);
  // Takes a notifiee out of `pathTypesMap`, then out of here, off its object and out of the referrers.
  // It may be dropped by that. Those who observe the types may register another at the path.
  void erase(NotifieePtr const& notifiee);

  // Null when there is none. Valid until the next change.
  [[nodiscard]] GifGnmiNotifiee* find(PathPtr const& path) const;
  // The object's notifiee at that path; null when there is none. Valid until the next change.
  [[nodiscard]] GifGnmiNotifiee* find(Kel::PtrInterface const* object, PathPtr const& path) const;
  // The path under which the object has been watched for longest; null when it is not watched.
  [[nodiscard]] PathPtr pathOf(Kel::PtrInterface const* object) const;
  // As `find`, of those that there are: without stand-ins.
  [[nodiscard]] GifGnmiNotifiee* registeredAt(Path const& path) const;
  // Likewise, parents before children.
  [[nodiscard]] std::vector<NotifieePtr> atOrBelow(Path const& path) const;
  // It was the last to come, and there is none below its path: quick to say.
  [[nodiscard]] bool isLatestAndAlone(GifGnmiNotifiee const& notifiee) const;
  // The last in the order of the paths, which is quick to find and to erase; null when there is none.
  [[nodiscard]] NotifieePtr last() const;

  [[nodiscard]] std::size_t size() const noexcept; // notifiees
  // Each notifiee, parents before children. REQUIRES that nothing changes meanwhile.
  template <class Visit>
  void forEach(Visit const& visit) const {
    makeAll();
    for (NotifieePtr const& notifiee : byPath_)
      visit(*notifiee);
  }

private:
  using GnmiNotifieeMapType =
      absl::btree_set<NotifieePtr, PathOrder, Kel::MemAllocator<NotifieePtr, NotifieeMaps>>;

  [[nodiscard]] GnmiNotifieeMapType::const_iterator placeOf(Path const& path) const;
  // Of the object: the first in the list of its observers, which has it by object; null when there is none.
  [[nodiscard]] static GifGnmiNotifiee* oldestOf(Kel::PtrInterface const* object);
  [[nodiscard]] bool isAt(GnmiNotifieeMapType::const_iterator place, Path const& path) const;
  void makeAll() const; // of those that are stood in for

  GnmiNotifieeMapType byPath_;
  std::optional<GnmiNotifieeMapType::const_iterator>
      latest_; // that was put in by path, while nothing has been taken out since
};

extern KTD_EXPORT std::shared_ptr<NotifieeMaps> const notifieeMaps;

} // namespace Ondra
