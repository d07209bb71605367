// What a SetRequest asks for, put together: checked whole against the types, JSON taken apart into leaves,
// the operations laid over each other in their order. Pure: any thread.
//
// Invariants
// 1. A plan is the outcome of the operations, not their list: what a later operation overwrites or removes is
//    not in it. Carrying it out in any order gives what the operations would have given one after the other.
// 2. Deletes come before everything else in a request. So a delete need not look at what is written: it only
//    marks places as cleared, and what is written below such a place stays.
// 3. What is to be there afterwards is marked `isNamed`, and so is everything above it.
// docs/decisions.md: "What is a Set?"
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>
#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "agent/paths/RequestPath.h"
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
  std::string const key;  // of a list entry (agent/paths/EntryKey.h), in the model's own spelling
  Writer writer;          // of the request
  bool isCleared = false; // what can be written at and below goes, but for what the plan writes there
  bool isNamed = false;   // it is written, or on the way to what is: it is to be there
  std::optional<gnmi::TypedValue> value; // of a leaf

private:
  static constexpr std::size_t kFewChildren = 8; // which are looked through

  PlanNode* parent_;
  std::vector<std::unique_ptr<PlanNode>> children_; // in the order of the request
  absl::flat_hash_map<std::pair<std::string_view, std::string_view>, PlanNode*> index_; // of more than a few
};

struct SetPlan {
  using OrError = Kstd::Result<std::unique_ptr<SetPlan>, grpc::Status>;

  PlanNode root{TypeNode::root()};
  std::vector<RequestPath> deletes; // may hold wildcards: what they match depends on the model

  // Has a place go that the plan does not write.
  void clear(gnmi::Path const& place);
};

inline constexpr int kMaxSetOperations = 50'000;
inline constexpr std::size_t kMaxWildcardDeletes = 64; // each may have the whole model looked at
inline constexpr std::size_t kMaxPlanNodes = 50'000;   // what JSON holds counts by its members

// INVALID_ARGUMENT and NOT_FOUND with the path and what is wrong with it; UNIMPLEMENTED for what this agent
// does not offer; RESOURCE_EXHAUSTED beyond the limits above. CANCELLED soon after `isCancelled`, which may
// be null, has become true.
[[nodiscard]] SetPlan::OrError setPlanOf(gnmi::SetRequest const& request,
                                         std::atomic<bool> const* isCancelled = nullptr,
                                         Writer writer = Writer::Client);

} // namespace Agent
