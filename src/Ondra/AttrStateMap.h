// Ondra::AttrStateMap: when each attribute and each collection member of a watched object last changed.
//
// Invariants
// 1. At most one node for an (attribute id, key); ids are never negative. Keys are detached: values by copy, entities by weak
//    identity.
// 2. A node's address is valid until the node is deleted.
// 3. A node's timestamp never goes back, and a change is never stamped with the time that the node holds already.
#pragma once

#include <absl/container/node_hash_set.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Kstd/Export.h"

namespace Ondra {

class GifGnmiNotifiee;

// The state of one attribute (null key) or of one member of a collection attribute.
class KTD_EXPORT AttrStateNode {
public:
  // Stamped with the activity loop's time. The key is stored as `resolveGifKeyPtr` gives it, detached.
  AttrStateNode(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);

  // Moves the stamp to the loop's time, which is advanced by a nanosecond first when the node has that time already, and
  // returns it.
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
  // By id, then by key; a null key is not less than any. No strict weak order when null and other keys meet: not for sorting.
  friend KTD_EXPORT bool operator<(AttrStateNode const& a, AttrStateNode const& b);
  template <typename H>
  friend H AbslHashValue(H h, AttrStateNode const& node) {
    return H::combine(std::move(h), node.id_, node.key_ ? node.key_->hash() : 0);
  }

private:
  mutable long timestamp_;
  Kel::AttributeId id_;
  Kel::Ptr<Kel::GenericIf const> key_;
};

// Owned by one notifiee; lives and dies with it. Scheduler thread only. Reading the state of a singular attribute, which every
// walk does for every leaf, is an index into an array.
class KTD_EXPORT AttrStateMap {
public:
  explicit AttrStateMap(GifGnmiNotifiee const* owner) noexcept : owner_(owner) {}

  // The node, made when there is none. Ids may come negative, as notifications carry them.
  AttrStateNode const& getAttrState(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);
  // The node, or null.
  [[nodiscard]] AttrStateNode const* queryAttrState(Kel::AttributeId id,
                                                    Kel::Ptr<Kel::GenericIf const> const& key) const;
  // Removes the node and returns the time of the deletion, later than every stamp of the node; nothing when there was none.
  std::optional<long> delAttrState(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] std::string dumpState() const;

private:
  GifGnmiNotifiee const* owner_;
  std::vector<std::unique_ptr<AttrStateNode>> singular_; // by attribute id
  absl::node_hash_set<AttrStateNode> keyed_;
};

} // namespace Ondra
