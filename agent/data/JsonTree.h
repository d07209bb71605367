// Leaves put together to one JSON value. Filled on the scheduler thread, in any order of leaves; written out
// on any one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>

#include "agent/encoding/SliceWriter.h"
#include "agent/paths/TypeTree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

// The container, list entry or root at one path, and what lies below. Members come in the order of
// declaration, entries of lists by key, each with its key.
class JsonTree {
public:
  class Node;

  // `key`: of a list entry.
  JsonTree(TypeNode const& top, std::string_view key, bool isIetf);
  ~JsonTree();
  JsonTree(JsonTree const&) = delete;
  JsonTree& operator=(JsonTree const&) = delete;

  [[nodiscard]] Node& top() { return *top_; }
  // The container or, with its key, list entry below a node; made if missing. Valid for the life of the tree.
  [[nodiscard]] Node& childIs(Node& node, TypeNode const& child, std::string_view key = {});
  [[nodiscard]] static TypeNode const& typeOf(Node const& node);
  // Enters a leaf; again, with its latest value.
  void leafIs(Node& node, TypeNode const& leaf, gnmi::TypedValue const& value);

  // About as many bytes as the text will have, and as the tree takes in memory.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }
  [[nodiscard]] std::size_t memoryBytes() const { return memoryBytes_; }
  void write(SliceWriter& to) const { append(to, *top_, ""); }

private:
  void append(SliceWriter& to, Node const& node, std::string_view parentModule) const;

  bool const isIetf_;
  std::size_t bytes_ = 2;
  std::size_t memoryBytes_ = 0;
  std::string values_; // of all leaves, one after the other
  std::unique_ptr<Node> top_;
};

} // namespace Agent
