// Ondra::NotifieeMaps: the registry of the notifiees, by path, by object and in the order of the paths.
//
// Invariants
// 1. The three views hold the same notifiees; a notifiee in them knows so (`isRegistered`).
// 2. An object that is in no view has no entry; the notifiees of an object stand in the order in which they
//    were registered.
// 3. The notifiees at or below a path are neighbours in the order of the paths.
#pragma once

#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
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
  bool operator()(GifGnmiNotifiee const* a, GifGnmiNotifiee const* b) const;
  bool operator()(GifGnmiNotifiee const* a, Path const& b) const;
  bool operator()(Path const& a, GifGnmiNotifiee const* b) const;
};

// The notifiees of one object, one a path, the oldest first. The first takes no storage of its own, and
// joining and leaving the same time however many there are.
class KTD_EXPORT NotifieesOfObject {
public:
  void insert(GifGnmiNotifiee* notifiee);
  void erase(GifGnmiNotifiee* notifiee);
  [[nodiscard]] bool empty() const noexcept { return one_ == nullptr && (!several_ || several_->empty()); }
  // Null when there may be others.
  [[nodiscard]] GifGnmiNotifiee* only() const noexcept { return one_; }
  // The first for which `is` is true; null when there is none.
  template <class Is>
  [[nodiscard]] GifGnmiNotifiee* first(Is const& is) const {
    if (!several_) {
      return one_ != nullptr && is(*one_) ? one_ : nullptr;
    }
    auto const found = std::find_if(several_->begin(), several_->end(),
                                    [&is](GifGnmiNotifiee const* notifiee) { return is(*notifiee); });
    return found == several_->end() ? nullptr : *found;
  }

private:
  struct ByAge {
    bool operator()(GifGnmiNotifiee const* a, GifGnmiNotifiee const* b) const {
      return a->serial() < b->serial();
    }
  };
  using Several =
      absl::btree_set<GifGnmiNotifiee*, ByAge, Kel::MemAllocator<GifGnmiNotifiee*, NotifieesOfObject>>;

  GifGnmiNotifiee* one_ = nullptr; // null with several
  std::unique_ptr<Several> several_;
};

// A path with its hash beside it: a map that grows does not have to read every path again, which would hold
// the scheduler thread for milliseconds.
struct KTD_EXPORT HashedPath {
  using PathPtr = Kel::Ptr<Path const>;
  HashedPath(PathPtr thePath) : path(std::move(thePath)), hash(std::hash<PathPtr>{}(path)) {}
  operator PathPtr const&() const noexcept { return path; }
  Path const* operator->() const noexcept { return path.get(); }
  friend bool operator==(HashedPath const& a, HashedPath const& b) {
    return a.hash == b.hash && a.path->isEqual(b.path.get());
  }

  struct Hash {
    std::size_t operator()(HashedPath const& hashed) const noexcept { return hashed.hash; }
  };

  PathPtr path;
  std::size_t hash;
};

// There is one, `notifieeMaps`, which lives for the process. Holds the notifiees. Scheduler thread only.
class KTD_EXPORT NotifieeMaps {
public:
  using PathPtr = Kel::Ptr<Path const>;
  using NotifieePtr = Kel::Ptr<GifGnmiNotifiee>;
  using GnmiNotifieeMapType =
      absl::flat_hash_map<HashedPath, NotifieePtr, HashedPath::Hash, std::equal_to<HashedPath>,
                          Kel::MemAllocator<std::pair<HashedPath const, NotifieePtr>, NotifieeMaps>>;
  using NotifieePathMapType = absl::flat_hash_map<
      Kel::PtrInterface const*, NotifieesOfObject, absl::Hash<Kel::PtrInterface const*>,
      std::equal_to<Kel::PtrInterface const*>,
      Kel::MemAllocator<std::pair<Kel::PtrInterface const* const, NotifieesOfObject>, NotifieeMaps>>;

  // Registers a notifiee of that object. One that has the path already is taken out first and leaves its
  // entry in `pathTypesMap` to this one.
  void notifieeMapsInsert(NotifieePtr const& notifiee, Kel::PtrInterface const* object);
  // Takes a notifiee out of `pathTypesMap`, then out of all views, off its object and out of the referrers.
  // It may be dropped by that. Those who observe the types may register another at the path.
  void erase(NotifieePtr const& notifiee);

  // Null when there is none. Valid until the next change.
  [[nodiscard]] GifGnmiNotifiee* find(PathPtr const& path) const;
  // The object's notifiee at that path; null when there is none. Valid until the next change.
  [[nodiscard]] GifGnmiNotifiee* find(Kel::PtrInterface const* object, PathPtr const& path) const;
  // The oldest path of the object; null when it is not watched.
  [[nodiscard]] PathPtr pathOf(Kel::PtrInterface const* object) const;
  // Parents before children.
  [[nodiscard]] std::vector<NotifieePtr> atOrBelow(Path const& path) const;
  // The last in the order of the paths, which is quick to find and to erase; null when there is none.
  [[nodiscard]] NotifieePtr last() const;

  [[nodiscard]] GnmiNotifieeMapType const& byPath() const noexcept { return byPath_; }
  [[nodiscard]] NotifieePathMapType const& byObject() const noexcept { return byObject_; }

private:
  GnmiNotifieeMapType byPath_;
  NotifieePathMapType byObject_;
  absl::btree_set<GifGnmiNotifiee*, PathOrder, Kel::MemAllocator<GifGnmiNotifiee*, NotifieeMaps>> inOrder_;
};

extern KTD_EXPORT std::shared_ptr<NotifieeMaps> const notifieeMaps;

} // namespace Ondra
