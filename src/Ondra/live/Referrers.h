// Who shows which object's path: the way back from a referenced object to the leaves and keys that are made
// of its path.
//
// Invariants
// 1. An entry stands for an attribute, or a member of a collection, that was last rendered with a reference
//    to that object, whether as its path or as "nullptr". Objects are known by their serial number: an entry
//    neither keeps its object alive nor is ever taken for another's.
// 2. Entries go with their notifiee, and with their object once what shows it has been told: what has been
//    removed is never shown again.
#pragma once

#include <absl/container/btree_set.h>

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Kstd/Export.h"

namespace Ondra {

class GifGnmiNotifiee;

// There is one. Scheduler thread only.
class KTD_EXPORT Referrers {
public:
  struct Source {
    GifGnmiNotifiee* notifiee = nullptr;
    Kel::AttributeId id = 0;
    Kel::Ptr<Kel::GenericIf const> key; // detached; null for a singular attribute
  };
  using Serial = std::uint64_t;
  using Serials = boost::container::small_vector<Serial, 4>;

  static Referrers& instance();

  void add(Source const& source, Serial target);
  // Drops the source's entries for other targets than these.
  void keepOnly(Source const& source, Serials const& targets);
  void forget(GifGnmiNotifiee* notifiee);
  // The object's path has begun or ended: what shows it is walked anew, once the walks that are running have
  // unwound.
  void pathChanged(Serial target) const;
  // The same of an object that has been removed from its parent, and forgets who shows it.
  void objectEnded(Serial target);
  void clear();
  [[nodiscard]] std::size_t size() const noexcept { return bySource_.size(); }

private:
  struct Entry {
    Source source;
    Serial target = 0;
  };
  [[nodiscard]] std::vector<Entry> showing(Serial target) const;
  static void walkAnew(std::vector<Entry> const& stale);
  struct SourceFirst {
    bool operator()(Entry const& a, Entry const& b) const;
  };
  struct TargetFirst {
    bool operator()(Entry const& a, Entry const& b) const;
  };
  template <class Order>
  using Entries = absl::btree_set<Entry, Order, Kel::MemAllocator<Entry, Referrers>>;

  Entries<SourceFirst> bySource_;
  Entries<TargetFirst> byTarget_;
};

// While one lives, references are rendered for that attribute or member. An inactive one leaves in force what
// was before; without a notifiee nobody is noted.
class RenderScope {
public:
  enum class Mode : bool {
    Add,     // a part of the attribute may be rendered
    Replace, // all of it is: references that are not rendered any more are forgotten
  };
  RenderScope(bool active, GifGnmiNotifiee* notifiee, Kel::AttributeId id,
              Kel::Ptr<Kel::GenericIf const> const& key, Mode mode = Mode::Add);
  ~RenderScope();
  RenderScope(RenderScope const&) = delete;
  RenderScope& operator=(RenderScope const&) = delete;

  // A reference to that object has been rendered.
  static void rendered(Referrers::Serial target);

private:
  [[nodiscard]] Referrers::Source source() const;

  static RenderScope* current_;

  bool const active_;
  Mode const mode_;
  RenderScope* outer_ = nullptr;
  GifGnmiNotifiee* notifiee_;
  Kel::AttributeId id_;
  Kel::Ptr<Kel::GenericIf const> const key_; // callers hand in temporaries
  Referrers::Serials targets_;
};

} // namespace Ondra
