// Ondra::AttrStateMap: when each attribute and each collection member of a watched object last changed.
//
// Invariants
// 1. At most one node for an (attribute id, key); ids are never negative. Keys are detached: values by copy,
//    entities by weak identity.
// 2. A node's address is valid until the node is deleted.
// 3. A node's timestamp never goes back, and a change is never stamped with the time that the node holds
//    already.
#pragma once

#include <absl/container/node_hash_set.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Kstd/Export.h"

namespace Ondra {

class GifGnmiNotifiee;

// Notifications may carry an attribute's id negative.
[[nodiscard]] constexpr Kel::AttributeId absoluteId(Kel::AttributeId id) noexcept {
  using Limits = std::numeric_limits<Kel::AttributeId>;
  return id >= 0 ? id : id == Limits::min() ? Limits::max() : -id;
}

// The state of one attribute (null key) or of one member of a collection attribute.
class KTD_EXPORT AttrStateNode {
public:
  // Stamped with the activity loop's time. The key is stored as `resolveGifKeyPtr` gives it, detached.
  AttrStateNode(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);

  // Moves the stamp to the loop's time, which is advanced by a nanosecond first when the node has that time
  // already, and returns it.
  long updatedTimestamp() const;
  // The same, without a trace.
  long advanceTimestamp() const;
  // The stamp as it is.
  long effectiveTimestamp() const;

  [[nodiscard]] Kel::AttributeId id() const noexcept { return id_; }
  [[nodiscard]] Kel::Ptr<Kel::GenericIf const> const& key() const noexcept { return key_; }

  // For traces. The notifiee, when there is one, knows the attribute's name.
  [[nodiscard]] std::string keyString(GifGnmiNotifiee const* notifiee) const;
  [[nodiscard]] std::string stateString(GifGnmiNotifiee const* notifiee) const;

  friend KTD_EXPORT bool operator==(AttrStateNode const& a, AttrStateNode const& b);
  // By id, then by key; a null key is not less than any. No strict weak order when null and other keys meet:
  // not for sorting.
  friend KTD_EXPORT bool operator<(AttrStateNode const& a, AttrStateNode const& b);
  template <typename H>
  friend H AbslHashValue(H h, AttrStateNode const& node) {
    return H::combine(std::move(h), node.id_, node.key_ ? node.key_->hash() : 0);
  }

private:
  friend class AttrStateMap;
  AttrStateNode() noexcept = default; // the place of a node that is not there

  mutable long timestamp_ = 0; // 0: not there; no clock shows it
  Kel::AttributeId id_ = 0;
  Kel::Ptr<Kel::GenericIf const> key_;
};

// Owned by one notifiee; lives and dies with it. Scheduler thread only. Reading the state of a singular
// attribute, which every walk does for every leaf, is an index into an array: the nodes of an object's
// singular attributes are made together, on first use, in one block.
class KTD_EXPORT AttrStateMap {
  using Key = Kel::Ptr<Kel::GenericIf const>;
  struct Probe { // stands for a node in look-ups
    Kel::AttributeId id;
    Key const& key;
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(AttrStateNode const& node) const { return (*this)(Probe{node.id_, node.key_}); }
    std::size_t operator()(Probe const& probe) const;
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(AttrStateNode const& a, AttrStateNode const& b) const { return a == b; }
    bool operator()(AttrStateNode const& a, Probe const& b) const;
    bool operator()(Probe const& a, AttrStateNode const& b) const { return (*this)(b, a); }
  };

public:
  // The set of those nodes that are found by hash; their addresses stay while it grows.
  using AttrStateMapType =
      absl::node_hash_set<AttrStateNode, Hash, Equal, Kel::MemAllocator<AttrStateNode, AttrStateMap>>;

  // Without an owner (for tests of the map alone) all nodes are found by hash.
  explicit AttrStateMap(GifGnmiNotifiee const* owner) noexcept : owner_(owner) {}
  ~AttrStateMap();
  AttrStateMap(AttrStateMap const&) = delete;
  AttrStateMap& operator=(AttrStateMap const&) = delete;

  // The node, made when there is none.
  AttrStateNode const& getAttrState(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);
  // The stamp of a singular attribute by its position in the owner's type; 0 while it has no node.
  [[nodiscard]] long singularTimestamp(std::size_t position) const noexcept {
    return position < places_ ? singular_[position].timestamp_ : 0;
  }
  // Has the nodes of the singular attributes on their way into the cache.
  void prefetch() const noexcept {
    auto const* const from = reinterpret_cast<char const*>(singular_);
    for (std::size_t at = 0; at < places_ * sizeof(AttrStateNode); at += 64) {
      __builtin_prefetch(from + at);
    }
  }
  // The node, or null.
  [[nodiscard]] AttrStateNode const* queryAttrState(Kel::AttributeId id,
                                                    Kel::Ptr<Kel::GenericIf const> const& key) const;
  // Removes the node and returns the time of the deletion, later than every stamp of the node; nothing when
  // there was none.
  std::optional<long> delAttrState(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);

  // The levels of traces that reading and making nodes emits.
  [[nodiscard]] static std::uint32_t traceMask();
  // The keys of one attribute's nodes, in no order; null for the node of the attribute as such.
  [[nodiscard]] std::vector<Kel::Ptr<Kel::GenericIf const>> keysOf(Kel::AttributeId id) const;
  [[nodiscard]] std::size_t size() const noexcept;
  // "\n <state>" for each node.
  [[nodiscard]] std::string dumpState() const;

private:
  // The place of a singular attribute's node; null when it is to be found by hash.
  [[nodiscard]] AttrStateNode* singularPlace(Kel::AttributeId id) const noexcept;
  AttrStateNode* makeSingularPlace(Kel::AttributeId id);
  template <typename Visit>
  void forEach(Visit const& visit) const;

  GifGnmiNotifiee const* owner_;
  AttrStateNode* singular_ = nullptr; // by position of the attribute in the owner's type
  std::uint32_t places_ = 0;
  std::uint32_t singularCount_ = 0;
  std::unique_ptr<AttrStateMapType> keyed_;
};

} // namespace Ondra
