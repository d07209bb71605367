// Children by name, remembered for each thread; names that are published but not served; whether there is
// anything to write below.
#include "agent/paths/TypeTree.h"

#include <algorithm>
#include <string>

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>
#include <absl/container/node_hash_map.h>
#include <fmt/format.h>

#include "agent/model/PublishedNames.h"
#include "agent/model/Tree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

// Nothing for what has not been published.
std::optional<TypeNode> attrNode(Kel::KelAttr attr) {
  Impl::NodeRecord const* const record = attr ? Impl::nodeRecord(attr) : nullptr;
  if (record == nullptr || record->module.empty()) return std::nullopt;
  return TypeNode{.name = attr.name().view(),
                  .module = record->module,
                  .attr = attr,
                  .type = attr.memberType(),
                  .info = record->isLeaf ? &record->leaf : nullptr,
                  .isState = record->isState,
                  .inCase = record->inCase};
}

// What follows from a type. Asked for at every place of the model, so each thread remembers it.
struct Facts {
  std::vector<TypeNode> children;
  bool hasWritable[2] = {false, false}; // below, for each writer
};

std::vector<TypeNode> childrenOf(TypeNode const& place) {
  std::vector<TypeNode> all;
  for (Kel::KelTypeBase::AttributeQIterator it(place.type); it; ++it)
    if (auto const node = attrNode(*it)) all.push_back(*node);
  return all;
}

Facts const& factsOf(TypeNode const& node) {
  static Facts const none;
  static thread_local absl::node_hash_map<Kel::TypeDesc const*, Facts> known;
  if (node.leaf() != nullptr) return none;
  auto const [at, isNew] = known.try_emplace(&node.type.desc());
  Facts& facts = at->second;
  if (isNew) {
    facts.children = childrenOf(node);
    for (Writer const writer : {Writer::Client, Writer::Provider}) {
      facts.hasWritable[static_cast<int>(writer)] = std::ranges::any_of(
          facts.children, [writer](TypeNode const& child) { return hasWritable(child, writer); });
    }
  }
  return facts;
}

// The parts of a text between separators, but for empty ones.
std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    std::size_t const end = std::min(text.find(separator), text.size());
    if (end > 0) parts.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

// The names that are published and not served, by what they stand below; null: the root. With and without
// their modules.
using Names = absl::flat_hash_map<Kel::TypeDesc const*, absl::flat_hash_set<std::string>>;

Names const& unservedNames() {
  static Names const* const all = [] {
    auto* const made = new Names();
    for (PublishedNames const& row : publishedNames()) {
      std::optional<TypeNode> node = TypeNode::root();
      for (std::string_view const name : split(row.path, '/'))
        node = node ? node->child(name) : node;
      if (!node) continue;
      auto& names = (*made)[node->isRoot() ? nullptr : &node->type.desc()];
      for (std::string_view const name : split(row.names, ' ')) {
        names.emplace(name);
        names.insert(fmt::format("{}:{}", row.module, name));
      }
    }
    return made;
  }();
  return *all;
}

} // namespace

TypeNode TypeNode::root() {
  TypeNode node;
  node.type = rootType();
  return node;
}

bool TypeNode::isPublished(std::string_view wanted) const {
  if (leaf() != nullptr) return false;
  if (isLeftOut(isRoot() ? Kel::KelType() : type, wanted)) return true;
  auto const found = unservedNames().find(isRoot() ? nullptr : &type.desc());
  return found != unservedNames().end() && found->second.contains(std::string(wanted));
}

std::size_t TypeNode::keyCount() const {
  return attr.desc().indexName.empty() ? attr.keyType().attrCount() : 1;
}

std::string_view TypeNode::keyName(std::size_t at) const {
  Kel::String const& index = attr.desc().indexName;
  return index.empty() ? attr.keyType().attrAt(at).name().view() : index.view();
}

Kel::KelAttr TypeNode::key(std::size_t at) const {
  Kel::KelAttr const index = attr.indexAttr();
  return index ? index : type.attr(attr.keyType().attrAt(at).name().view());
}

bool TypeNode::isWritableLeaf(Writer writer) const {
  LeafInfo const* const published = leaf();
  return published != nullptr && (published->isConfig || writer == Writer::Provider) && attr.isSettable();
}

bool TypeNode::isPresence() const {
  return attr && type.isRuntime() && info == nullptr && !attr.isKeyed() && attr.isRemovable() &&
         std::ranges::none_of(children(), [](TypeNode const& child) {
           return child.leaf() != nullptr && child.leaf()->isKeyCopy;
         });
}

std::optional<TypeNode> TypeNode::child(std::string_view wanted) const {
  std::size_t const colon = wanted.find(':');
  std::string_view const bare = colon == wanted.npos ? wanted : wanted.substr(colon + 1);
  std::optional<TypeNode> const found = leaf() == nullptr ? attrNode(type.attr(bare)) : std::nullopt;
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

bool hasWritable(TypeNode const& node, Writer writer) {
  if (node.leaf() != nullptr) return node.isWritableLeaf(writer);
  return node.isWritableList(writer) || factsOf(node).hasWritable[static_cast<int>(writer)];
}

} // namespace Agent
