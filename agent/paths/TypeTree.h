// The tree of the model's types as paths name it. Pure: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "agent/model/Schema.h"

namespace gnmi {
class Path;
} // namespace gnmi

namespace Agent {

// A place in the tree of types: the root (no attribute), or what an attribute holds.
struct TypeNode {
  std::string_view name; // lives for the process
  std::string_view module;
  Kel::KelAttr attr;
  Kel::KelType type; // of the container or entry; of a leaf its value's
  LeafInfo const* info = nullptr;
  bool isState = false; // of a list
  ChoiceCase const* inCase = nullptr;

  [[nodiscard]] static TypeNode root();
  [[nodiscard]] bool isRoot() const { return !attr; }
  [[nodiscard]] LeafInfo const* leaf() const { return info; } // null for containers and lists
  [[nodiscard]] bool isList() const { return attr && attr.isKeyed(); }
  // What stands there are objects of their own: containers or entries, rather than values or parts of one.
  [[nodiscard]] bool isObject() const { return info == nullptr && (!attr || attr.isInstantiating()); }
  // The key leaves of a list, in their order.
  [[nodiscard]] std::size_t keyCount() const;
  [[nodiscard]] Kel::KelAttr key(std::size_t at = 0) const;
  [[nodiscard]] std::string_view keyName(std::size_t at = 0) const; // without looking the leaf up
  // A leaf that such a one may write.
  [[nodiscard]] bool isWritableLeaf(Writer writer = Writer::Client) const;
  // A list whose entries he may make and remove.
  [[nodiscard]] bool isWritableList(Writer writer = Writer::Client) const {
    return isList() && attr.isRemovable() && (!isState || writer == Writer::Provider);
  }
  // A container that means something by being there, and that clients make and remove.
  [[nodiscard]] bool isPresence() const;

  // The child that a name means, with its module in front ("openconfig-interfaces:mtu") or without; none when
  // there is none.
  [[nodiscard]] std::optional<TypeNode> child(std::string_view name) const;
  // Whether the published models have a child of that name here (with its module in front or without) that
  // this agent does not serve.
  [[nodiscard]] bool isPublished(std::string_view name) const;
  // What the elements of a concrete path mean from here, from element `skip` on.
  [[nodiscard]] std::optional<TypeNode> descendant(gnmi::Path const& path, int skip) const;
  // In the order of declaration. Valid on this thread, for its life.
  [[nodiscard]] std::vector<TypeNode> const& children() const;
};

// Whether such a one can write anything at or below the place.
[[nodiscard]] bool hasWritable(TypeNode const& node, Writer writer = Writer::Client);

} // namespace Agent
