// Ondra::NotifieeMaps: the registry of the notifiees, by path and by object.
//
// Invariants
// 1. The two views hold the same notifiees; a notifiee in them knows so (`isRegistered`).
// 2. An object that is in no view has no entry; the notifiees of an object stand in the order in which they
//    were registered.
// 3. By path they stand in an order in which those at or below a path are neighbours.
// 4. Containers for which another's notifiee stands in (live/StandIns.h) count, and are given the notifiee
//    that is looked for.
#pragma once

#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>
#include <absl/hash/hash.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
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
  using NotifieePtr = Kel::Ptr<GifGnmiNotifiee>;
  bool operator()(NotifieePtr const& a, NotifieePtr const& b) const;
  bool operator()(NotifieePtr const& a, Path const& b) const;
  bool operator()(Path const& a, NotifieePtr const& b) const;
};

// A set of notifiees in many small tables, which grow one by one: one large table would hold the scheduler
// thread for milliseconds when it does. Entries are pointers; what they are found by lies in the notifiee.
template <class Entry, class Hash, class Equal>
class NotifieeTable {
public:
  using Table = absl::flat_hash_set<Entry, Hash, Equal, Kel::MemAllocator<Entry, NotifieeTable>>;

  // The entry of that notifiee, or that key.
  template <class Key>
  [[nodiscard]] Entry const* find(Key const& key) const {
    Table const& table = tables_[indexOf(key)];
    auto const found = table.find(key);
    return found == table.end() ? nullptr : &*found;
  }
  // Whether there was none that is equal.
  bool insert(Entry const& entry) {
    bool const isNew = tables_[indexOf(entry)].insert(entry).second;
    size_ += isNew ? 1 : 0;
    return isNew;
  }
  template <class Key>
  void erase(Key const& key) {
    size_ -= tables_[indexOf(key)].erase(key);
  }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  template <class Visit>
  void forEach(Visit const& visit) const {
    for (Table const& table : tables_)
      std::for_each(table.begin(), table.end(), visit);
  }

private:
  static constexpr std::size_t kTables = 256;
  // Of bits that the table itself looks at last.
  template <class Key>
  [[nodiscard]] static std::size_t indexOf(Key const& key) {
    return (Hash{}(key) >> 40) % kTables;
  }

  std::array<Table, kTables> tables_;
  std::size_t size_ = 0;
};

// There is one, `notifieeMaps`, which lives for the process. Holds the notifiees. Scheduler thread only.
class KTD_EXPORT NotifieeMaps {
public:
  using PathPtr = Kel::Ptr<Path const>;
  using NotifieePtr = Kel::Ptr<GifGnmiNotifiee>;

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
  // As `find`, of those that there are: without stand-ins.
  [[nodiscard]] GifGnmiNotifiee* registeredAt(Path const& path) const;
  // Likewise, parents before children.
  [[nodiscard]] std::vector<NotifieePtr> atOrBelow(Path const& path) const;
  // It was the last to come, and there is none below its path: quick to say.
  [[nodiscard]] bool isLatestAndAlone(GifGnmiNotifiee const& notifiee) const;
  // The last in the order of the paths, which is quick to find and to erase; null when there is none.
  [[nodiscard]] NotifieePtr last() const;

  [[nodiscard]] std::size_t size() const noexcept; // notifiees
  // Of objects that are watched.
  [[nodiscard]] std::size_t objects() const noexcept;
  // Each notifiee, parents before children. REQUIRES that nothing changes meanwhile.
  template <class Visit>
  void forEach(Visit const& visit) const {
    makeAll();
    for (NotifieePtr const& notifiee : byPath_)
      visit(*notifiee);
  }

private:
  using Object = Kel::PtrInterface const*;
  struct ByAge {
    bool operator()(GifGnmiNotifiee const* a, GifGnmiNotifiee const* b) const {
      return a->serial() < b->serial();
    }
  };
  struct ObjectHash {
    using is_transparent = void;
    std::size_t operator()(GifGnmiNotifiee const* notifiee) const {
      return (*this)(notifiee->objectIdentity_);
    }
    std::size_t operator()(Object object) const { return absl::HashOf(object); }
  };
  struct SameObject {
    using is_transparent = void;
    bool operator()(GifGnmiNotifiee const* a, GifGnmiNotifiee const* b) const {
      return a->objectIdentity_ == b->objectIdentity_;
    }
    bool operator()(GifGnmiNotifiee const* a, Object object) const { return a->objectIdentity_ == object; }
  };
  using Several = absl::btree_set<GifGnmiNotifiee*, ByAge, Kel::MemAllocator<GifGnmiNotifiee*, NotifieeMaps>>;

  using GnmiNotifieeMapType =
      absl::btree_set<NotifieePtr, PathOrder, Kel::MemAllocator<NotifieePtr, NotifieeMaps>>;
  using NotifieePathMapType = NotifieeTable<GifGnmiNotifiee*, ObjectHash, SameObject>;

  [[nodiscard]] GnmiNotifieeMapType::const_iterator placeOf(Path const& path) const;
  [[nodiscard]] GifGnmiNotifiee* const* oldestOf(Object object) const; // null when it is not watched
  [[nodiscard]] bool isAt(GnmiNotifieeMapType::const_iterator place, Path const& path) const;
  void makeAll() const; // of those that are stood in for
  void insertByPath(NotifieePtr const& notifiee);
  void insertByObject(GifGnmiNotifiee* notifiee);
  void eraseByObject(GifGnmiNotifiee* notifiee);

  GnmiNotifieeMapType byPath_;
  NotifieePathMapType byObject_; // the oldest of each object
  absl::flat_hash_map<Object, Several, absl::Hash<Object>, std::equal_to<Object>,
                      Kel::MemAllocator<std::pair<Object const, Several>, NotifieeMaps>>
      several_; // of objects that have more than one: all
  std::optional<GnmiNotifieeMapType::const_iterator>
      latest_; // that was put in by path, while nothing has been taken out since
};

extern KTD_EXPORT std::shared_ptr<NotifieeMaps> const notifieeMaps;

} // namespace Ondra
