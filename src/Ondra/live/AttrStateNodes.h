// The nodes of an object's attribute states that are found by hash.
//
// Few of them lie in one table. Those of a collection with many members are spread over many tables, which
// grow one by one: a large one would hold the scheduler thread for milliseconds when it does. The address of
// a node stays.
#pragma once

#include <absl/container/node_hash_set.h>
#include <absl/hash/hash.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "Kel/Allocator.h"
#include "Ondra/AttrStateMap.h"

namespace Ondra {

// Owned by one AttrStateMap. Scheduler thread only.
class AttrStateNodes {
public:
  using Key = Kel::Ptr<Kel::GenericIf const>;
  struct Probe { // stands for a node in look-ups
    Kel::AttributeId id;
    Key const& key;
  };

  // Null when there is none.
  [[nodiscard]] AttrStateNode const* find(Probe const& probe) const {
    std::size_t const hash = Hash()(probe);
    AttrStateMapType const& table = tables_[indexOf(hash)];
    auto const found = table.find(probe, hash);
    return found == table.end() ? nullptr : &*found;
  }
  // The one that there is, or is made; and whether it was made.
  std::pair<AttrStateNode const*, bool> emplace(Kel::AttributeId id, Key const& key) {
    if (tables_.size() == 1 && tables_.front().size() == kMostInOne) spread();
    Probe const probe{id, key};
    bool made = false;
    auto const at = tables_[indexOf(Hash()(probe))].lazy_emplace(probe, [&](auto const& construct) {
      construct(id, key);
      made = true;
    });
    return {&*at, made};
  }
  // Whether there was one.
  bool erase(Probe const& probe) { return tables_[indexOf(Hash()(probe))].erase(probe) > 0; }
  template <class Visit>
  void forEach(Visit const& visit) const {
    for (AttrStateMapType const& table : tables_)
      std::for_each(table.begin(), table.end(), visit);
  }

private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(AttrStateNode const& node) const { return (*this)(Probe{node.id(), node.key()}); }
    std::size_t operator()(Probe const& probe) const {
      return absl::HashOf(probe.id, probe.key ? probe.key->hash() : 0);
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(AttrStateNode const& a, AttrStateNode const& b) const { return a == b; }
    bool operator()(AttrStateNode const& a, Probe const& b) const {
      return a.id() == b.id && (a.key() == b.key || (a.key() && b.key && a.key()->equals(*b.key)));
    }
    bool operator()(Probe const& a, AttrStateNode const& b) const { return (*this)(b, a); }
  };
  // One table: its nodes stay where they are while it grows.
  using AttrStateMapType =
      absl::node_hash_set<AttrStateNode, Hash, Equal, Kel::MemAllocator<AttrStateNode, AttrStateMap>>;

  static constexpr std::size_t kMostInOne = 1024;
  static constexpr std::size_t kTables = 256;

  // By bits that a table itself looks at last.
  [[nodiscard]] std::size_t indexOf(std::size_t hash) const {
    return tables_.size() == 1 ? 0 : (hash >> 40) % kTables;
  }
  void spread() {
    std::vector<AttrStateMapType> before(kTables);
    before.swap(tables_);
    AttrStateMapType& all = before.front();
    for (auto at = all.begin(); at != all.end();) {
      auto node = all.extract(at++);
      tables_[indexOf(Hash()(node.value()))].insert(std::move(node));
    }
  }

  std::vector<AttrStateMapType> tables_ = std::vector<AttrStateMapType>(1);
};

} // namespace Ondra
