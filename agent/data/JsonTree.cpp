// Values lie as text in one buffer, nodes point into it. Members are written in the order of declaration,
// entries in that of their keys.
#include "agent/data/JsonTree.h"

#include <algorithm>
#include <utility>

#include "agent/encoding/LeafEncoding.h"
#include "agent/paths/EntryKey.h"

namespace Agent {

class JsonTree::Node {
public:
  Node(TypeNode const& place, std::string_view entryKey) : type(place), key(entryKey) {}

  struct Leaf {
    Kel::KelAttr attr;
    std::size_t begin; // in `values_`
    std::size_t size;
  };

  TypeNode const type;
  std::string const key;
  std::vector<Leaf> leaves;
  std::vector<std::unique_ptr<Node>> children;
  absl::flat_hash_map<std::pair<std::string_view, std::string_view>, Node*> index;
};

namespace {

constexpr std::size_t kPunctuation = 6; // of a member: quotes, colon, comma, braces
constexpr std::size_t kIndexBytes = 64; // of a child: where its parent finds it

// Numbers by their value, other texts as such.
bool isKeyLess(std::string_view a, std::string_view b) {
  auto const isNumber = [](std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
  };
  if (isNumber(a) && isNumber(b) && a.size() != b.size()) return a.size() < b.size();
  return a < b;
}

// The position of a member in its container's declaration.
std::size_t positionOf(TypeNode const& type) { return type.attr.desc().index; }

} // namespace

JsonTree::JsonTree(TypeNode const& top, std::string_view key, bool isIetf)
    : isIetf_(isIetf)
    , top_(std::make_unique<Node>(top, key)) {}
JsonTree::~JsonTree() = default;

TypeNode const& JsonTree::typeOf(Node const& node) { return node.type; }

JsonTree::Node& JsonTree::childIs(Node& node, TypeNode const& child, std::string_view key) {
  auto const found = node.index.find(std::pair(child.name, key));
  if (found != node.index.end()) return *found->second;
  node.children.push_back(std::make_unique<Node>(child, key));
  Node& made = *node.children.back();
  node.index.emplace(std::pair<std::string_view, std::string_view>(made.type.name, made.key), &made);
  bytes_ += child.name.size() + kPunctuation + 2 * key.size();
  memoryBytes_ += sizeof(Node) + kIndexBytes + key.size();
  return made;
}

void JsonTree::leafIs(Node& node, TypeNode const& leaf, gnmi::TypedValue const& value) {
  std::size_t const begin = values_.size();
  appendLeafJson(values_, value, *leaf.leaf(), isIetf_);
  node.leaves.push_back({leaf.attr, begin, values_.size() - begin});
  bytes_ += leaf.name.size() + kPunctuation + (values_.size() - begin);
  memoryBytes_ += 2 * (sizeof(Node::Leaf) + values_.size() - begin); // both grow by doubling
}

// --- writing -----------------------------------------------------------------------------------------------

namespace {

// Members of one object: the name, with the module where that is another one than the parent's.
class Object {
public:
  Object(SliceWriter& to, bool isIetf, std::string_view parentModule)
      : to_(to)
      , isIetf_(isIetf)
      , parentModule_(parentModule) {
    to_ += '{';
  }
  void member(std::string_view name, std::string_view module) {
    to_ += std::exchange(isFirst_, false) ? "\"" : ",\"";
    if (isIetf_ && module != parentModule_) {
      to_ += module;
      to_ += ':';
    }
    to_ += name;
    to_ += "\":";
  }
  void member(Kel::KelAttr attr) {
    member(attr.name().view(), isIetf_ ? nodeModule(attr) : std::string_view());
  }
  void end() { to_ += '}'; }

private:
  SliceWriter& to_;
  bool const isIetf_;
  std::string_view const parentModule_;
  bool isFirst_ = true;
};

} // namespace

void JsonTree::append(SliceWriter& to, Node const& node, std::string_view parentModule) const {
  Object object(to, isIetf_, parentModule);
  if (node.type.isList()) {
    std::vector<std::string> const values = keyValues(node.key, node.type.keyCount());
    for (std::size_t i = 0; i < values.size(); ++i) {
      object.member(node.type.key(i));
      std::string key;
      appendKeyJson(key, values[i], *leafInfo(node.type.key(i)), isIetf_);
      to += key;
    }
  }
  auto const isBefore = [](Node::Leaf const& a, Node::Leaf const& b) {
    return a.attr.desc().index < b.attr.desc().index;
  };
  std::vector<Node::Leaf> sorted;
  if (!std::is_sorted(node.leaves.begin(), node.leaves.end(), isBefore)) {
    sorted = node.leaves;
    std::stable_sort(sorted.begin(), sorted.end(), isBefore);
  }
  std::vector<Node::Leaf> const& leaves = sorted.empty() ? node.leaves : sorted;
  for (std::size_t i = 0; i < leaves.size(); ++i) {
    bool const isOutdated = i + 1 < leaves.size() && leaves[i + 1].attr == leaves[i].attr;
    if (isOutdated || leaves[i].attr.isKeyField()) continue;
    object.member(leaves[i].attr);
    to += std::string_view(values_).substr(leaves[i].begin, leaves[i].size);
  }
  std::vector<Node const*> children;
  for (auto const& child : node.children)
    children.push_back(child.get());
  std::stable_sort(children.begin(), children.end(), [](Node const* a, Node const* b) {
    auto const positionA = positionOf(a->type), positionB = positionOf(b->type);
    if (positionA != positionB) return positionA < positionB;
    std::size_t const count = a->type.isList() ? a->type.keyCount() : 1;
    return count == 1 ? isKeyLess(a->key, b->key)
                      : std::ranges::lexicographical_compare(keyValues(a->key, count),
                                                             keyValues(b->key, count), isKeyLess);
  });
  for (std::size_t i = 0; i < children.size(); ++i) {
    Node const& child = *children[i];
    bool const isEntry = child.type.isList();
    bool const isFirst = !isEntry || i == 0 || !(children[i - 1]->type.attr == child.type.attr);
    bool const isLast =
        !isEntry || i + 1 == children.size() || !(children[i + 1]->type.attr == child.type.attr);
    if (isFirst) object.member(child.type.name, child.type.module);
    if (isEntry) to += isFirst ? '[' : ',';
    append(to, child, child.type.module);
    if (isEntry && isLast) to += ']';
  }
  object.end();
}

} // namespace Agent
