// Compiling follows all types that the path may mean; matching with "..." keeps all positions at once;
// whether two patterns overlap.
#include "agent/paths/Pattern.h"

#include <absl/container/flat_hash_set.h>
#include <fmt/format.h>

#include <algorithm>
#include <bitset>
#include <string_view>
#include <utility>

#include "Kel/GenericIf.h"
#include "agent/paths/EntryKey.h"
#include "agent/paths/TypeTree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

// --- views ------------------------------------------------------------------------------------------------

PathView::PathView(gnmi::Path const& prefix, gnmi::Path const& path, std::size_t skip)
    : prefix_(&prefix)
    , path_(&path)
    , skip_(skip)
    , prefixSize_(static_cast<std::size_t>(prefix.elem_size()))
    , size_(prefixSize_ + static_cast<std::size_t>(path.elem_size())) {
  size_ = size_ > skip_ ? size_ - skip_ : 0;
}

PathView::PathView(gnmi::Path const& path, std::size_t skip)
    : PathView(path, gnmi::Path::default_instance(), skip) {}

gnmi::PathElem const& PathView::operator[](std::size_t index) const {
  std::size_t const at = index + skip_;
  return at < prefixSize_ ? prefix_->elem(static_cast<int>(at))
                          : path_->elem(static_cast<int>(at - prefixSize_));
}

// --- compiling --------------------------------------------------------------------------------------------

namespace {

using Elem = Pattern::Elem;
using Kind = Pattern::Elem::Kind;
using Nodes = std::vector<TypeNode>;

// The members of these lists can be looked up and enumerated by the text of their key.
bool hasPlainKey(TypeNode const& list) {
  for (std::size_t i = 0; i < list.keyCount(); ++i) {
    Kel::KelAttr const leaf = list.key(i);
    if (!leaf) return false;
    Kel::KelType const key = leaf.memberType();
    if (!key.isBuiltin() && !key.isEnum() && !key.hasGnmiStrRep() && !key.valAttr()) return false;
  }
  return true;
}

// The key leaf of a name; an invalid one when there is none.
Kel::KelAttr keyOfName(TypeNode const& list, std::string_view name) {
  for (std::size_t i = 0; i < list.keyCount(); ++i)
    if (Kel::KelAttr const key = list.key(i); key && key.name().view() == name) return key;
  return {};
}

// Nodes without doubles: two branches of a pattern may meet again.
class NodeSet {
public:
  // Whether it is new.
  bool add(TypeNode const& node) {
    if (!known_.insert(node.isRoot() ? nullptr : &node.attr.desc()).second) return false;
    nodes_.push_back(node);
    return true;
  }
  void addWithDescendants(TypeNode const& node) {
    if (!add(node)) return;
    for (TypeNode const& child : node.children())
      addWithDescendants(child);
  }
  [[nodiscard]] Nodes take() { return std::move(nodes_); }

private:
  absl::flat_hash_set<Kel::AttrDesc const*> known_;
  Nodes nodes_;
};

// What an element leads to from any of the nodes, before its keys are looked at.
Nodes step(Nodes const& from, RequestElem const& elem) {
  NodeSet to;
  for (TypeNode const& node : from) {
    if (elem.name == "...")
      to.addWithDescendants(node);
    else if (elem.name == "*")
      for (TypeNode const& child : node.children())
        to.add(child);
    else if (std::optional<TypeNode> const child = node.child(elem.name))
      to.add(*child);
  }
  return to.take();
}

// Nothing below the nodes has the name of the element.
grpc::Status unknown(Nodes const& nodes, RequestElem const& elem, RequestPath const& path) {
  if (std::ranges::any_of(nodes, [&elem](TypeNode const& node) { return node.isPublished(elem.name); })) {
    return {grpc::StatusCode::UNIMPLEMENTED,
            fmt::format("{} of {} is not offered here", statusText(elem.name, 64), path.text())};
  }
  return {grpc::StatusCode::NOT_FOUND,
          fmt::format("{} of {} is not in the schema", statusText(elem.name, 64), path.text())};
}

grpc::Status badKey(RequestElem const& elem, RequestPath const& path, std::string const& what) {
  return {grpc::StatusCode::INVALID_ARGUMENT,
          fmt::format("{} of {}: {}", statusText(elem.name, 64), path.text(), statusText(what))};
}

// Keeps the nodes that have the element's keys, and gives the values their form. The error text of the last
// node that does not.
std::string takeKeys(Nodes& nodes, RequestElem const& elem, Elem& into) {
  std::string fault;
  std::vector<std::pair<std::string, std::string>> keys;
  std::erase_if(nodes, [&](TypeNode const& node) {
    keys.clear();
    for (auto const& [name, value] : elem.keys) {
      Kel::KelAttr const leaf = node.isList() ? keyOfName(node, name) : Kel::KelAttr();
      if (!leaf) {
        fault = fmt::format("there is no key {}", name);
        return true;
      }
      if (value == "*") continue;
      Kstd::Result<std::string, std::string> const text =
          canonicalKeyText(leaf.memberType(), leafInfo(leaf), value);
      if (!text.ok()) {
        fault = fmt::format("the key {} has a bad value: {}", name, text.error());
        return true;
      }
      keys.emplace_back(name, text.value());
    }
    into.keys = keys;
    return false;
  });
  return fault;
}

bool isEnumerable(TypeNode const& node) { return node.isObject() && (!node.isList() || hasPlainKey(node)); }

} // namespace

Pattern::OrError Pattern::of(RequestPath const& path) {
  Pattern made;
  Nodes nodes{TypeNode::root()};
  bool enumerable = true;
  bool concrete = true;
  std::size_t anyDepths = 0;
  for (RequestElem const& from : path.elems) {
    if (from.name == "...") {
      if (!made.elems_.empty() && made.elems_.back().kind == Kind::AnyDepth) continue; // says nothing more
      if (++anyDepths > kMaxAnyDepths) {
        return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                            fmt::format("{} has more than {} elements ...", path.text(), kMaxAnyDepths));
      }
    }
    Elem elem{from.name == "*"     ? Kind::AnyName
              : from.name == "..." ? Kind::AnyDepth
                                   : Kind::Name,
              from.name,
              {}};
    Nodes const above = std::exchange(nodes, step(nodes, from));
    if (nodes.empty()) return unknown(above, from, path);
    if (elem.kind == Kind::Name) elem.name = nodes.front().name; // its module may stand before it
    if (!from.keys.empty()) {
      std::string const fault = takeKeys(nodes, from, elem);
      if (nodes.empty()) return badKey(from, path, fault);
    }
    made.hasAnyDepth_ = made.hasAnyDepth_ || elem.kind == Kind::AnyDepth;
    enumerable = enumerable && elem.kind != Kind::AnyDepth && std::ranges::all_of(nodes, isEnumerable);
    concrete =
        concrete && elem.kind == Kind::Name && std::ranges::all_of(nodes, [&elem](TypeNode const& node) {
          return !node.isList() || elem.keys.size() == node.keyCount();
        });
    made.elems_.push_back(std::move(elem));
    if (enumerable) made.objectDepth_ = made.elems_.size();
    if (concrete) made.anchorDepth_ = made.elems_.size();
  }
  return made;
}

// --- matching ---------------------------------------------------------------------------------------------

namespace {

bool elemMatches(Elem const& pattern, gnmi::PathElem const& elem) {
  if (pattern.kind == Kind::Name && pattern.name != elem.name()) return false;
  for (auto const& [name, value] : pattern.keys) {
    auto const found = elem.key().find(name);
    if (found == elem.key().end() || found->second != value) return false;
  }
  return true;
}

} // namespace

Pattern::Cover Pattern::cover(PathView const& path) const {
  if (hasAnyDepth_) return coverByStates(path);
  std::size_t const both = std::min(elems_.size(), path.size());
  for (std::size_t i = 0; i < both; ++i)
    if (!elemMatches(elems_[i], path[i])) return Cover::None;
  return elems_.size() <= path.size() ? Cover::All : Cover::Partial;
}

// All ways to match at once: a state for each number of pattern elements that have been used up.
Pattern::Cover Pattern::coverByStates(PathView const& path) const {
  std::bitset<kMaxPathElems + 1> now;
  now.set(0);
  auto const passDepths = [this](auto& states) {
    for (std::size_t i = 0; i < elems_.size(); ++i)
      if (states[i] && elems_[i].kind == Kind::AnyDepth) states.set(i + 1);
  };
  passDepths(now);
  for (std::size_t at = 0; at < path.size(); ++at) {
    if (now[elems_.size()]) return Cover::All;
    std::bitset<kMaxPathElems + 1> next;
    for (std::size_t i = 0; i < elems_.size(); ++i) {
      if (!now[i]) continue;
      if (elems_[i].kind == Kind::AnyDepth)
        next.set(i);
      else if (elemMatches(elems_[i], path[at]))
        next.set(i + 1);
    }
    if (next.none()) return Cover::None;
    passDepths(next);
    now = next;
  }
  return now[elems_.size()] ? Cover::All : Cover::Partial;
}

bool Pattern::mayOverlap(Pattern const& other) const {
  std::size_t const both = std::min(elems_.size(), other.elems_.size());
  for (std::size_t i = 0; i < both; ++i) {
    Elem const& a = elems_[i];
    Elem const& b = other.elems_[i];
    if (a.kind == Kind::AnyDepth || b.kind == Kind::AnyDepth) return true;
    if (a.kind == Kind::Name && b.kind == Kind::Name && a.name != b.name) return false;
    for (auto const& [name, value] : a.keys) {
      for (auto const& [otherName, otherValue] : b.keys)
        if (name == otherName && value != otherValue) return false;
    }
  }
  return true;
}

std::string Pattern::text() const {
  std::string out;
  for (Elem const& elem : elems_) {
    out += '/';
    out += elem.name;
    for (auto const& [name, value] : elem.keys)
      out += fmt::format("[{}={}]", name, value);
  }
  return out.empty() ? "/" : out;
}

} // namespace Agent
