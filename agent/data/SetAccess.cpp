// The plan and the rules side by side, then the deletes, which may have wildcards, along the types.
#include "agent/data/SetAccess.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "agent/data/PathStates.h"
#include "agent/paths/EntryKey.h"

namespace Agent {
namespace {

using grpc::Status;
using Place = RuleTree::Place;
using Cover = Pattern::Cover;

constexpr std::size_t kPathBytes = 512; // of a status text

Status refusal(std::string const& path, char const* what) {
  return {grpc::StatusCode::PERMISSION_DENIED, fmt::format("{}: {}", statusText(path, kPathBytes), what)};
}
constexpr char const* kDenied = "you may not write this";
constexpr char const* kDeniedInPart = "you may not write all of this";

// Of a container, a leaf, or an entry whose key is given; without a key of all entries.
Place below(Place const& place, TypeNode const& child, std::optional<std::string_view> key) {
  if (!child.isList() || !key) return place.below(child.name, [](std::string_view) { return std::nullopt; });
  std::vector<std::string> const values = keyValues(*key, child.keyCount());
  return place.below(child.name, [&](std::string_view name) -> std::optional<std::string_view> {
    for (std::size_t i = 0; i < values.size(); ++i)
      if (child.key(i).name().view() == name) return values[i];
    return std::nullopt;
  });
}

// All that can be written at and below a place is permitted.
bool isWhole(TypeNode const& type, Place const& place, Writer writer) {
  if (place.cover() == Cover::All) return true;
  if (!place.permits()) return false;
  return type.leaf() != nullptr || std::ranges::all_of(type.children(), [&](TypeNode const& child) {
           return !hasWritable(child, writer) || isWhole(child, below(place, child, std::nullopt), writer);
         });
}

bool repeatsKey(PlanNode const& node) { return node.type.leaf() != nullptr && !node.value; }

Status check(PlanNode const& node, Place const& place) {
  if (place.cover() == Cover::All) return Status::OK;
  if (node.isCleared && !isWhole(node.type, place, node.writer))
    return refusal(node.path(), place.permits() ? kDeniedInPart : kDenied);
  // What is named for itself, and not for what is written below it.
  bool const isWritten = node.isNamed && std::ranges::none_of(node.children(), [](auto const& child) {
                           return child->isNamed && !repeatsKey(*child);
                         });
  if (isWritten && !repeatsKey(node) && !place.permits()) return refusal(node.path(), kDenied);
  for (auto const& child : node.children()) {
    Status status = check(*child, below(place, child->type, child->key));
    if (!status.ok()) return status;
  }
  return Status::OK;
}

// All that a delete's path means is permitted.
bool mayGo(TypeNode const& node, PathStates const& states, Place const& place, Writer writer) {
  if (place.cover() == Cover::All) return true;
  if (states.isEnd()) return isWhole(node, place, writer);
  return std::ranges::all_of(node.children(), [&](TypeNode const& child) {
    PathStates const next = states.belowAny(child);
    if (next.isDead() || !hasWritable(child, writer)) return true;
    auto const key = child.isList() ? states.onlyKey(child) : std::nullopt;
    return mayGo(child, next, below(place, child, key), writer);
  });
}

} // namespace

Status mayWrite(RuleTree const& rules, SetPlan const& plan) {
  Place const root = rules.root();
  for (RequestPath const& path : plan.deletes)
    if (!mayGo(TypeNode::root(), PathStates(path), root, plan.root.writer))
      return refusal(path.text(), kDeniedInPart);
  return check(plan.root, root);
}

} // namespace Agent
