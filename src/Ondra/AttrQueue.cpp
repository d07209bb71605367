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

struct AttrTree::AttrNode::AttrQueue::Index {
  absl::flat_hash_map<PathElem const*, AttrNode*, ElemHash, ElemEqual> byElem;
  absl::flat_hash_map<Place, AttrNode*, PlaceHash> byPlace;
};

AttrTree::AttrNode::AttrQueue::AttrQueue() = default;
AttrTree::AttrNode::AttrQueue::~AttrQueue() = default;

AttrTree::AttrNode* AttrTree::AttrNode::AttrQueue::get(PathElem const& elem) const {
  // Requests are mostly sorted: the next path shares its elements with the one before.
  if (last_ != nullptr && last_->elem() == elem) {
    return last_;
  }
  AttrNode* found = nullptr;
  if (index_) {
    auto const at = index_->byElem.find(&elem);
    found = at == index_->byElem.end() ? nullptr : at->second;
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
  if (index_) {
    auto const at = index_->byPlace.find(wanted);
    return at == index_->byPlace.end() ? nullptr : at->second;
  }
  for (auto const& node : nodes_) {
    if (!node->object().hasFilter() && Place{node->object().attr, node->object().key()} == wanted) {
      return node.get();
    }
  }
  return nullptr;
}

bool AttrTree::AttrNode::AttrQueue::insert(std::unique_ptr<AttrNode> node) {
  if (index_ ? !index_->byElem.emplace(&node->elem(), node.get()).second : get(node->elem()) != nullptr) {
    return false;
  }
  last_ = node.get();
  if (node->object().hasFilter()) {
    wildcards_.push_back(node.get());
  }
  nodes_.push_back(std::move(node));
  if (index_) {
    addPlace(*nodes_.back());
  } else if (nodes_.size() > kUnindexed) {
    index_ = std::make_unique<Index>();
    for (auto const& one : nodes_) {
      index_->byElem.emplace(&one->elem(), one.get());
      addPlace(*one);
    }
  }
  return true;
}

void AttrTree::AttrNode::AttrQueue::addPlace(AttrNode& node) {
  if (!node.object().hasFilter()) {
    index_->byPlace.emplace(Place{node.object().attr, node.object().key()}, &node);
  }
}

void AttrTree::AttrNode::AttrQueue::clear() {
  last_ = nullptr;
  index_.reset();
  wildcards_.clear();
  nodes_.clear();
}

} // namespace Ondra::KelGnmiSet
