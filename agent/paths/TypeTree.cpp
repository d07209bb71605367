#include "agent/paths/TypeTree.h"

#include <algorithm>

#include <absl/container/node_hash_map.h>

#include "agent/model/Tree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

TypeNode topNode(TopLevel const& top) {
  return {.name = top.name, .module = top.module, .attr = {}, .type = top.type, .info = nullptr};
}
// Nothing for what has not been published.
std::optional<TypeNode> attrNode(Kel::KelAttr attr) {
  Impl::NodeRecord const* const record = attr ? Impl::nodeRecord(attr) : nullptr;
  if (record == nullptr || record->module.empty()) return std::nullopt;
  return TypeNode{.name = attr.name().view(),
                  .module = record->module,
                  .attr = attr,
                  .type = attr.memberType(),
                  .info = record->isLeaf ? &record->leaf : nullptr};
}

// What follows from a type. Asked for at every place of the model, so each thread remembers it.
struct Facts {
  std::vector<TypeNode> children;
  bool hasWritable = false; // below
};

std::vector<TypeNode> childrenOf(TypeNode const& place) {
  std::vector<TypeNode> all;
  if (place.isRoot()) {
    for (TopLevel const& top : topLevels())
      all.push_back(topNode(top));
    return all;
  }
  for (Kel::KelTypeBase::AttributeQIterator it(place.type); it; ++it) {
    if (auto const node = attrNode(*it)) all.push_back(*node);
  }
  return all;
}

Facts const& factsOf(TypeNode const& node) {
  static Facts const none;
  static thread_local absl::node_hash_map<Kel::TypeDesc const*, Facts> known; // null: of the root
  if (node.leaf() != nullptr) return none;
  auto const [at, isNew] = known.try_emplace(node.isRoot() ? nullptr : &node.type.desc());
  Facts& facts = at->second;
  bool const hasGrown = node.isRoot() && facts.children.size() != topLevels().size();
  if (isNew || hasGrown) {
    facts.children = childrenOf(node);
    facts.hasWritable = std::any_of(facts.children.begin(), facts.children.end(), &hasWritable);
  }
  return facts;
}

} // namespace

bool TypeNode::isWritableLeaf() const {
  LeafInfo const* const published = leaf();
  return published != nullptr && published->isConfig && attr.isSettable();
}

std::optional<TypeNode> TypeNode::child(std::string_view wanted) const {
  std::size_t const colon = wanted.find(':');
  std::string_view const bare = colon == wanted.npos ? wanted : wanted.substr(colon + 1);
  std::optional<TypeNode> found;
  if (isRoot()) {
    auto const& all = topLevels();
    auto const top =
        std::find_if(all.begin(), all.end(), [&](TopLevel const& each) { return each.name == bare; });
    if (top != all.end()) found = topNode(*top);
  } else if (leaf() == nullptr) {
    found = attrNode(type.attr(bare));
  }
  if (found && colon != wanted.npos && found->module != wanted.substr(0, colon)) return std::nullopt;
  return found;
}

std::optional<TypeNode> TypeNode::descendant(gnmi::Path const& path, int skip) const {
  std::optional<TypeNode> node = *this;
  for (int i = skip; i < path.elem_size() && node; ++i)
    node = node->child(path.elem(i).name());
  return node;
}

std::vector<TypeNode> const& TypeNode::children() const { return factsOf(*this).children; }

bool hasWritable(TypeNode const& node) {
  if (node.leaf() != nullptr) return node.isWritableLeaf();
  return node.isWritableList() || factsOf(node).hasWritable;
}

} // namespace Agent
