// The children of a node of the attribute tree.
#include <utility>

#include <absl/container/flat_hash_map.h>

#include "Ondra/AttrNode.h"
#include "Ondra/GnmiPath.h"

namespace Ondra::KelGnmiSet {

using gnmi::PathElem;
using Kel::KelAttr;

namespace {

constexpr std::size_t kUnindexed = 8;

struct ElemHash {
  std::size_t operator()(PathElem const* elem) const { return std::hash<PathElem>{}(*elem); }
};
struct ElemEqual {
  bool operator()(PathElem const* a, PathElem const* b) const { return *a == *b; }
};

// A place below a node: a singular attribute, or a member of a collection.
struct Place {
  KelAttr attr;
  AttrTree::ConstHandle key;

  friend bool operator==(Place const& a, Place const& b) {
    return a.attr == b.attr && (a.key && b.key ? a.key->equals(*b.key) : a.key == b.key);
  }
};
struct PlaceHash {
  std::size_t operator()(Place const& place) const {
    return absl::HashOf(&place.attr.desc(), place.key ? place.key->hash() : 0);
  }
};

} // namespace

struct AttrTree::AttrNode::AttrQueue::ByElem {
  absl::flat_hash_map<PathElem const*, AttrNode*, ElemHash, ElemEqual> map;
};
struct AttrTree::AttrNode::AttrQueue::ByPlace {
  absl::flat_hash_map<Place, AttrNode*, PlaceHash> map;
};

AttrTree::AttrNode::AttrQueue::AttrQueue() = default;
AttrTree::AttrNode::AttrQueue::~AttrQueue() = default;

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(PathElem const& elem) const {
  // Requests are mostly sorted: the next path shares its elements with the one before.
  if (last_ != nullptr && last_->elem() == elem) {
    return last_;
  }
  AttrNode* found = nullptr;
  if (byElem_) {
    auto const at = byElem_->map.find(&elem);
    found = at == byElem_->map.end() ? nullptr : at->second;
  } else {
    for (auto const& node : nodes_) {
      if (node->elem() == elem) {
        found = node.get();
        break;
      }
    }
  }
  if (found != nullptr) {
    last_ = found;
  }
  return found;
}

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(KelAttr attr) const { return get(attr, nullptr); }

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(KelAttr attr, ConstHandle const& key) const {
  Place const wanted{attr, key};
  if (nodes_.size() > kUnindexed) {
    if (!byPlace_) {
      byPlace_ = std::make_unique<ByPlace>();
      for (auto const& node : nodes_) {
        addPlace(*byPlace_, *node);
      }
    }
    auto const at = byPlace_->map.find(wanted);
    return at == byPlace_->map.end() ? nullptr : at->second;
  }
  for (auto const& node : nodes_) {
    if (!node->object().hasFilter() && Place{node->object().attr, node->object().key()} == wanted) {
      return node.get();
    }
  }
  return nullptr;
}

bool AttrTree::AttrNode::AttrQueue::insert(std::unique_ptr<AttrNode> node) {
  if (byElem_ ? !byElem_->map.emplace(&node->elem(), node.get()).second : get(node->elem()) != nullptr) {
    return false;
  }
  last_ = node.get();
  if (node->object().hasFilter()) {
    wildcards_.push_back(node.get());
  }
  nodes_.push_back(std::move(node));
  if (byPlace_) {
    addPlace(*byPlace_, *nodes_.back());
  }
  if (!byElem_ && nodes_.size() > kUnindexed) {
    byElem_ = std::make_unique<ByElem>();
    for (auto const& one : nodes_) {
      byElem_->map.emplace(&one->elem(), one.get());
    }
  }
  return true;
}

void AttrTree::AttrNode::AttrQueue::addPlace(ByPlace& places, AttrNode& node) {
  if (!node.object().hasFilter()) {
    places.map.emplace(Place{node.object().attr, node.object().key()}, &node);
  }
}

void AttrTree::AttrNode::AttrQueue::clear() {
  last_ = nullptr;
  byElem_.reset();
  byPlace_.reset();
  wildcards_.clear();
  nodes_.clear();
}

} // namespace Ondra::KelGnmiSet
