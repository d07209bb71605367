// Agent::PlanNode: what a Set does at one place, and below it. Pure: any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>

#include "agent/paths/TypeTree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

// A place that the request touches, or one on the way to it: a container, a list entry or a leaf.
class PlanNode {
public:
  explicit PlanNode(TypeNode const& place, std::string entryKey = {}, PlanNode* parent = nullptr)
      : type(place)
      , key(std::move(entryKey))
      , writer(parent == nullptr ? Writer::Client : parent->writer)
      , parent_(parent) {}

  // The child of that name (and, for an entry of a list, key), made if missing.
  PlanNode& childIs(TypeNode const& child, std::string_view key = {});
  // REQUIRES that it is missing.
  PlanNode& childNew(TypeNode const& child, std::string_view key = {});
  // Null when the plan says nothing of it.
  [[nodiscard]] PlanNode* child(std::string_view name, std::string_view key = {}) const;
  [[nodiscard]] std::vector<std::unique_ptr<PlanNode>> const& children() const { return children_; }
  void childrenDelAll();

  // Of it and all below.
  [[nodiscard]] std::size_t size() const;

  // "/interfaces/interface[name=lo]"; "/" for the root.
  [[nodiscard]] std::string path() const;
  void appendTo(gnmi::Path& path) const;
  // Marks this place and those above it as named.
  void isNamedIs();
  // The text of the key that a leaf below repeats: that of a name (empty: the only one) of the nearest entry.
  // Empty when there is none.
  [[nodiscard]] std::string nearestKey(std::string_view name) const;

  TypeNode const type;
  std::string const key;   // of a list entry (agent/paths/EntryKey.h), in the model's own spelling
  Writer writer;           // of the request
  bool isCleared = false;  // what can be written at and below goes, but for what the plan writes there
  bool isNamed = false;    // it is written, or on the way to what is: it is to be there
  bool holdsCases = false; // of choices, at some place below
  std::optional<gnmi::TypedValue> value; // of a leaf

private:
  static constexpr std::size_t kFewChildren = 8; // which are looked through

  PlanNode* parent_;
  std::vector<std::unique_ptr<PlanNode>> children_; // in the order of the request
  absl::flat_hash_map<std::pair<std::string_view, std::string_view>, PlanNode*> index_; // of more than a few
};

} // namespace Agent
