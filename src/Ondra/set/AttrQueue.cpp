// The children of a node of the attribute tree.
#include <functional>
#include <utility>

#include <absl/container/flat_hash_map.h>

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

struct AttrTree::AttrNode::AttrQueue::ByElem {
  absl::flat_hash_map<HashedElem, AttrNode*, KeptHash, std::equal_to<HashedElem>,
                      Kel::EndingAllocator<std::pair<HashedElem const, AttrNode*>>>
      map;
};
struct AttrTree::AttrNode::AttrQueue::ByPlace {
  absl::flat_hash_map<Spot, AttrNode*, SpotHash, std::equal_to<Spot>,
                      Kel::EndingAllocator<std::pair<Spot const, AttrNode*>>>
      map;
};

AttrTree::AttrNode::AttrQueue::AttrQueue() = default;
AttrTree::AttrNode::AttrQueue::~AttrQueue() = default;

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(PathElem const& elem) const {
  Gap gap;
  return get(elem, gap);
}

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(Element const& element, Gap& gap) const {
  gap.isOfPlace = element.place() != nullptr;
  if (gap.isOfPlace) return get(element.place()->attr(), element.place()->key());
  PathElem const& elem = element.elem();
  HashedElem const wanted{std::hash<PathElem>{}(elem), &elem};
  if (byElem_) {
    if (auto const at = byElem_->map.find(wanted); at != byElem_->map.end()) return at->second;
  } else {
    for (Child const& child : *this)
      if (child.hash == wanted.hash && child->elem() == elem) return child.node.get();
  }
  gap.hash = wanted.hash;
  return nullptr;
}

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(KelAttr attr) const { return get(attr, nullptr); }

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(KelAttr attr, ConstHandle const& key) const {
  Spot const wanted{attr, key};
  if (size() > kUnindexedPlaces) {
    if (!byPlace_) {
      byPlace_ = std::make_unique<ByPlace>();
      for (Child const& child : *this)
        addPlace(*byPlace_, *child.node);
    }
    auto const at = byPlace_->map.find(wanted);
    return at == byPlace_->map.end() ? nullptr : at->second;
  }
  for (Child const& child : *this)
    if (!child->object().hasFilter() && Spot{child->object().attr, child->object().key()} == wanted)
      return child.node.get();
  return nullptr;
}

bool AttrTree::AttrNode::AttrQueue::insert(std::unique_ptr<AttrNode> node) {
  Gap gap;
  bool const isNew = get(node->element_, gap) == nullptr;
  if (isNew) insert(std::move(node), gap);
  return isNew;
}

void AttrTree::AttrNode::AttrQueue::insert(std::unique_ptr<AttrNode> node, Gap const& gap) {
  AttrNode& added = *node;
  children_.push_back({std::move(node), gap.hash});
  if (added.object().hasFilter()) wildcards_.push_back(&added);
  if (byPlace_) addPlace(*byPlace_, added);
  if (gap.isOfPlace) return;
  if (byElem_) {
    byElem_->map.emplace(HashedElem{gap.hash, &added.elem()}, &added);
  } else if (size() > kUnindexed) {
    byElem_ = std::make_unique<ByElem>();
    byElem_->map.reserve(2 * size());
    for (Child const& child : *this)
      byElem_->map.emplace(HashedElem{child.hash, &child->elem()}, child.node.get());
  }
}

void AttrTree::AttrNode::AttrQueue::addPlace(ByPlace& places, AttrNode& node) {
  if (!node.object().hasFilter()) places.map.emplace(Spot{node.object().attr, node.object().key()}, &node);
}

void AttrTree::AttrNode::AttrQueue::prune() {
  byElem_.reset();
  byPlace_.reset();
  wildcards_.clear();
  pruned_ = children_.size();
}

void AttrTree::AttrNode::AttrQueue::dropPruned() {
  children_.erase(children_.begin(), begin());
  pruned_ = 0;
}

} // namespace Ondra::KelGnmiSet
