// The children of a node of the attribute tree.
#include <functional>
#include <utility>

#include <absl/container/flat_hash_map.h>
#include <absl/container/inlined_vector.h>

#include "Kel/Allocator.h"
#include "Ondra/GnmiPath.h"
#include "Ondra/set/AttrNode.h"

namespace Ondra::KelGnmiSet {

using gnmi::PathElem;
using Kel::KelAttr;

namespace {

// Up to so many children a look at each is faster than an index: at the hashes of their elements, which lie
// side by side, or at places.
constexpr std::size_t kUnindexed = 32;
constexpr std::size_t kUnindexedPlaces = 8;

std::size_t hashOf(PathElem const& elem) { return std::hash<PathElem>{}(elem); }

// An element with its hash: tables grow, and tell elements apart, without reading them again.
struct HashedElem {
  std::size_t hash;
  PathElem const* elem;

  friend bool operator==(HashedElem const& a, HashedElem const& b) {
    return a.hash == b.hash && *a.elem == *b.elem;
  }
};
struct KeptHash {
  std::size_t operator()(HashedElem const& hashed) const { return hashed.hash; }
};

// Where a child stands: a singular attribute, or a member of a collection.
struct Spot {
  KelAttr attr;
  AttrTree::ConstHandle key;

  friend bool operator==(Spot const& a, Spot const& b) {
    return a.attr == b.attr && (a.key && b.key ? a.key->equals(*b.key) : a.key == b.key);
  }
};
struct SpotHash {
  std::size_t operator()(Spot const& place) const {
    return absl::HashOf(&place.attr.desc(), place.key ? place.key->hash() : 0);
  }
};

} // namespace

struct AttrTree::AttrNode::AttrQueue::Rep {
  using ByElem = absl::flat_hash_map<HashedElem, AttrNode*, KeptHash, std::equal_to<HashedElem>,
                                     Kel::EndingAllocator<std::pair<HashedElem const, AttrNode*>>>;
  using ByPlace = absl::flat_hash_map<Spot, AttrNode*, SpotHash, std::equal_to<Spot>,
                                      Kel::EndingAllocator<std::pair<Spot const, AttrNode*>>>;

  // Of so many attributes it is known at once whether a child is of them.
  static constexpr std::size_t kKnown = 64;

  [[nodiscard]] std::span<Child const> current() const { return std::span(children).subspan(pruned); }
  void indexElems();
  void indexPlaces();
  void addPlace(AttrNode& node) {
    if (!node.object().hasFilter()) byPlace->emplace(Spot{node.object().attr, node.object().key()}, &node);
  }

  static void* operator new(std::size_t size) { return Kel::kelMemAlloc(size); }
  static void operator delete(void* block, std::size_t size) noexcept { Kel::kelMemFree(block, size); }

  absl::InlinedVector<Child, 6, Kel::MemAllocator<Child>> children;
  std::size_t pruned = 0; // of them, at the front
  std::uint64_t held = 0; // bit n: some are of the attribute of that index
  std::vector<AttrNode*> wildcards;
  // Only above a few children; that of the places only once it is asked for, as it is for members of
  // collections.
  std::unique_ptr<ByElem> byElem;
  std::unique_ptr<ByPlace> byPlace;
};

void AttrTree::AttrNode::AttrQueue::Rep::indexElems() {
  byElem = std::make_unique<ByElem>();
  byElem->reserve(2 * current().size());
  for (Child const& child : current())
    byElem->emplace(HashedElem{child.elemHash(), &child->elem()}, child.node.get());
}

void AttrTree::AttrNode::AttrQueue::Rep::indexPlaces() {
  byPlace = std::make_unique<ByPlace>();
  for (Child const& child : current())
    addPlace(*child.node);
}

AttrTree::AttrNode::AttrQueue::AttrQueue() = default;
AttrTree::AttrNode::AttrQueue::~AttrQueue() = default;

std::size_t AttrTree::AttrNode::AttrQueue::Child::elemHash() const {
  if (hash == 0) hash = hashOf(node->elem());
  return hash;
}

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(PathElem const& elem) const {
  Gap gap;
  return get(elem, gap);
}

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(Element const& element, Gap& gap) const {
  gap = {}; // not that of another element
  gap.isOfPlace = element.place() != nullptr;
  if (gap.isOfPlace) return get(element.place()->attr(), element.place()->key());
  if (!rep_) return nullptr;
  PathElem const& elem = element.elem();
  HashedElem const wanted{hashOf(elem), &elem};
  if (rep_->byElem) {
    if (auto const at = rep_->byElem->find(wanted); at != rep_->byElem->end()) return at->second;
  } else {
    for (Child const& child : *this)
      if (child.elemHash() == wanted.hash && child->elem() == elem) return child.node.get();
  }
  gap.hash = wanted.hash;
  return nullptr;
}

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(KelAttr attr) const { return get(attr, nullptr); }

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(KelAttr attr, ConstHandle const& key) const {
  Spot const wanted{attr, key};
  if (size() > kUnindexedPlaces) {
    if (!rep_->byPlace) rep_->indexPlaces();
    auto const at = rep_->byPlace->find(wanted);
    return at == rep_->byPlace->end() ? nullptr : at->second;
  }
  for (Child const& child : *this)
    if (!child->object().hasFilter() && Spot{child->object().attr, child->object().key()} == wanted)
      return child.node.get();
  return nullptr;
}

bool AttrTree::AttrNode::AttrQueue::mayHold(KelAttr attr) const {
  std::size_t const index = attr.desc().index;
  return rep_ && (index >= Rep::kKnown || ((rep_->held >> index) & 1U) != 0);
}

void AttrTree::AttrNode::AttrQueue::insert(std::unique_ptr<AttrNode> node, Gap const& gap) {
  if (!rep_) rep_ = std::make_unique<Rep>();
  AttrNode& added = *node;
  rep_->children.push_back({std::move(node), gap.hash});
  if (KelAttr const attr = added.object().attr; attr && attr.desc().index < Rep::kKnown)
    rep_->held |= std::uint64_t{1} << attr.desc().index;
  if (added.object().hasFilter()) rep_->wildcards.push_back(&added);
  if (rep_->byPlace) rep_->addPlace(added);
  if (gap.isOfPlace) return;
  if (rep_->byElem)
    rep_->byElem->emplace(HashedElem{rep_->children.back().elemHash(), &added.elem()}, &added);
  else if (size() > kUnindexed)
    rep_->indexElems();
}

void AttrTree::AttrNode::AttrQueue::prune() {
  if (!rep_) return;
  rep_->byElem.reset();
  rep_->byPlace.reset();
  rep_->wildcards.clear();
  rep_->held = 0;
  rep_->pruned = rep_->children.size();
}

void AttrTree::AttrNode::AttrQueue::dropPruned() {
  if (!rep_) return;
  rep_->children.erase(rep_->children.begin(),
                       rep_->children.begin() + static_cast<std::ptrdiff_t>(rep_->pruned));
  rep_->pruned = 0;
}

std::span<AttrTree::AttrNode* const> AttrTree::AttrNode::AttrQueue::wildcards() const {
  return rep_ ? std::span<AttrNode* const>(rep_->wildcards) : std::span<AttrNode* const>();
}

AttrTree::AttrNode::AttrQueue::Child const* AttrTree::AttrNode::AttrQueue::begin() const {
  return rep_ ? rep_->current().data() : nullptr;
}

AttrTree::AttrNode::AttrQueue::Child const* AttrTree::AttrNode::AttrQueue::end() const {
  return rep_ ? rep_->children.data() + rep_->children.size() : nullptr;
}

std::span<AttrTree::AttrNode::AttrQueue::Child const> AttrTree::AttrNode::AttrQueue::withPruned() const {
  return rep_ ? std::span<Child const>(rep_->children) : std::span<Child const>();
}

} // namespace Ondra::KelGnmiSet
