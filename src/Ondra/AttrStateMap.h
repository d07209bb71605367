// Ondra::AttrStateMap: when each attribute and each collection member of a watched object last changed.
//
// Invariants
// 1. At most one node for an (attribute id, key); ids are never negative. Keys are detached: values by copy,
//    entities by weak identity.
// 2. A node's address is valid until the node is deleted.
// 3. A node's timestamp never goes back, and a change is never stamped with the time that the node holds
//    already.
// 4. The state of a singular attribute is a time and nothing else until somebody asks for its node. Times
//    take no storage of their own while all that an object has are the same, as a first walk leaves them, or
//    all but one, as they are where one leaf changes and the others do not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/Scalars.h"
#include "Kstd/Export.h"

namespace Ondra {

class AttrStateNodes;
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

  mutable long timestamp_;
  Kel::AttributeId id_;
  Kel::Ptr<Kel::GenericIf const> key_;
};

// Owned by one notifiee; lives and dies with it. Scheduler thread only. Walks read and move the times of
// singular attributes without nodes: a bit, or an index into an array.
class KTD_EXPORT AttrStateMap {
  using Key = Kel::Ptr<Kel::GenericIf const>;

public:
  // Without an owner (for tests of the map alone) all nodes are found by hash.
  explicit AttrStateMap(GifGnmiNotifiee const* owner) noexcept : owner_(owner) {}
  ~AttrStateMap();
  AttrStateMap(AttrStateMap const&) = delete;
  AttrStateMap& operator=(AttrStateMap const&) = delete;

  // The time of the entry, which is made when there is none.
  long timestampOf(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);
  // The time of a change: the entry's, moved on (`AttrStateNode::updatedTimestamp`), or that of one which is
  // made.
  long changedTimestamp(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);
  // The same for a singular attribute by its position in the owner's type. Not traced.
  long changedSingular(std::size_t position);
  // There is an entry.
  [[nodiscard]] bool has(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key) const;
  // The time of a singular attribute by its position in the owner's type; 0: it has no entry.
  [[nodiscard]] long singularTimestamp(std::size_t position) const noexcept {
    long const time = timeAt(position);
    return time == kInNode ? nodeTime(position) : time;
  }
  // The one time that all these singular attributes have (bits by position); those without an entry get one.
  // 0, and nothing is made, when their times are not the same. REQUIRES at least one. Not traced.
  [[nodiscard]] long commonTimestamp(std::uint64_t positions) {
    return (seen_ & positions) == positions ? common_ : makeCommon(positions);
  }
  // Masks tell of positions below this one.
  static constexpr std::size_t kInMask = 57;
  // A walk has been over these singular attributes at that time. REQUIRES that none has an entry.
  void walkedIs(std::uint64_t positions, long time) noexcept {
    seen_ = positions;
    common_ = time;
  }
  // Keeps this time for good beside those of attributes, which it does not disturb. False when it is another
  // than theirs, or than that which is kept.
  [[nodiscard]] bool keep(long time);
  [[nodiscard]] bool keepsTime() const noexcept { return (seen_ & kKept) != 0; } // it has been kept
  [[nodiscard]] long keptTime() const noexcept { return common_; }               // REQUIRES `keepsTime`
  // Has the times of the singular attributes on their way into the cache.
  void prefetch() const noexcept {
    if (hasBlock()) __builtin_prefetch(rest_.block);
  }
  // The node, made when there is none.
  AttrStateNode const& getAttrState(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);
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
  [[nodiscard]] std::size_t size() const;
  // "\n <state>" for each node.
  [[nodiscard]] std::string dumpState() const;

private:
  static constexpr long kInNode = -1; // where a time would be: it is its node's

  // What is in `seen_` beside bits of positions:
  static constexpr int kOther = kInMask;         // 6 bits: 1 + the position of the one with `rest_.other`,
  static constexpr std::uint64_t kNone = 0;      // or that there is none,
  static constexpr std::uint64_t kHasBlock = 63; // or that all times are in `rest_.block`
  static constexpr std::uint64_t kOtherMask = std::uint64_t{63} << kOther;
  static constexpr std::uint64_t kKept = std::uint64_t{1} << 63; // of no attribute: holds `common_` as it is
  static_assert(kInMask + 6 == 63 && kInMask < kHasBlock);

  // What some maps have and most have not, with the times of all singular attributes behind it.
  struct Block {
    std::size_t count; // of the times
    std::unique_ptr<AttrStateNodes> nodes;
    [[nodiscard]] long* times() noexcept { return reinterpret_cast<long*>(this + 1); }
  };

  // As it is stored, 0: none.
  [[nodiscard]] long timeAt(std::size_t position) const noexcept {
    if (hasBlock()) return rest_.block->times()[position];
    if (position >= kInMask) return 0;
    if (((seen_ >> position) & 1) != 0) return common_;
    return other() == position + 1 ? rest_.other : 0;
  }
  [[nodiscard]] std::uint64_t other() const noexcept { return (seen_ & kOtherMask) >> kOther; }
  void otherIs(std::uint64_t other) const noexcept { seen_ = (seen_ & ~kOtherMask) | (other << kOther); }
  [[nodiscard]] bool hasBlock() const noexcept { return other() == kHasBlock; }
  void timeIs(std::size_t position, long time) const;
  long makeCommon(std::uint64_t positions);
  [[nodiscard]] long nodeTime(std::size_t position) const noexcept;
  // The position of a singular attribute of the owner; `kNowhere` for what is found by hash. (An optional is
  // returned through memory, written in two parts and read as one, which costs more than what is asked.)
  static constexpr std::size_t kNowhere = ~std::size_t{0};
  [[nodiscard]] std::size_t positionOf(Kel::AttributeId id, Key const& key) const noexcept;
  // Likewise, when its time may be handled without its node: reading one is traced.
  [[nodiscard]] std::size_t untraced(Kel::AttributeId id, Key const& key) const;
  // The node of a singular attribute that has a time.
  AttrStateNode const& nodeOf(Kel::AttributeId id, std::size_t position) const;
  Block& block() const;
  AttrStateNodes& nodes() const;
  [[nodiscard]] AttrStateNodes* nodesSoFar() const noexcept {
    return hasBlock() ? rest_.block->nodes.get() : nullptr;
  }
  template <typename Visit>
  void forEach(Visit const& visit) const;

  // Asking for a node changes where a time is, and nothing else.
  GifGnmiNotifiee const* owner_;
  mutable long common_ = 0;        // the time of most singular attributes that have one
  mutable std::uint64_t seen_ = 0; // by position, those that have it; and what `rest_` is
  mutable union {
    long other;
    Block* block;
  } rest_{0};
};

} // namespace Ondra
