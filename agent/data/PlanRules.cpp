// Values of leaves by their published types; then choices, over the whole plan.
#include "agent/data/PlanRules.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "agent/data/SetPlan.h"
#include "agent/encoding/LeafValue.h"

namespace Agent {

using grpc::Status;

Status refusal(grpc::StatusCode code, std::string_view path, std::string_view what) {
  constexpr std::size_t kBytes = 1024;
  return {code, statusText(fmt::format("{}: {}", statusText(path, kBytes / 2), what), kBytes)};
}
Status invalid(std::string_view path, std::string_view what) {
  return refusal(grpc::StatusCode::INVALID_ARGUMENT, path, what);
}
Status exhausted(char const* what, std::size_t most) {
  return {grpc::StatusCode::RESOURCE_EXHAUSTED,
          fmt::format("{} in one request: at most {} are taken", what, most)};
}

bool repeatsKey(PlanNode const& leaf) { return leaf.type.leaf()->isKeyCopy || leaf.type.attr.isKeyField(); }

namespace {

template <class Value>
Status write(PlanNode& node, Value const& given) {
  LeafInfo const& leaf = *node.type.leaf();
  if (!leaf.isConfig && node.writer == Writer::Client) return invalid(node.path(), kIsState);
  LeafValue value = leafValueOf(leaf, given);
  if (!value) return invalid(node.path(), value.error());
  if (repeatsKey(node)) {
    std::string const key = node.nearestKey(leaf.isKeyCopy ? leaf.keyName : node.type.name);
    if (std::string const text = keyTextOf(*value); text != key)
      return invalid(node.path(), fmt::format("'{}' contradicts the key '{}' of its entry", text, key));
  } else {
    if (!node.type.isWritableLeaf(node.writer)) return invalid(node.path(), kIsState);
    node.value = std::move(*value);
  }
  node.isNamedIs();
  return Status::OK;
}

// Whoever writes into one case of a choice clears the others; writing into two at once is refused.
class Choices {
public:
  explicit Choices(SetPlan& plan) : plan_(plan) {}

  Status apply(PlanNode& node) {
    if (!node.holdsCases) return Status::OK;
    auto const isOfCase = [](auto const& child) { return child->isNamed && child->type.inCase != nullptr; };
    std::vector<PlanNode*> named; // clearing adds children
    bool const areCases = std::ranges::any_of(node.children(), isOfCase);
    for (auto const& child : node.children()) {
      if (!child->isNamed) continue;
      if (areCases)
        named.push_back(child.get());
      else if (Status status = apply(*child); !status.ok())
        return status;
    }
    for (PlanNode* const child : named) {
      for (ChoiceCase const* each = child->type.inCase; each != nullptr; each = each->above)
        if (Status status = clearOthers(node, *each, *child); !status.ok()) return status;
      if (Status status = apply(*child); !status.ok()) return status;
    }
    return Status::OK;
  }

private:
  // The case of that choice in which a node stands; null when in none.
  static ChoiceCase const* caseOf(TypeNode const& node, void const* choice) {
    ChoiceCase const* at = node.inCase;
    while (at != nullptr && at->choice != choice)
      at = at->above;
    return at;
  }
  Status clearOthers(PlanNode& parent, ChoiceCase const& chosen, PlanNode const& by) {
    for (TypeNode const& sibling : parent.type.children()) {
      ChoiceCase const* const other = caseOf(sibling, chosen.choice);
      if (other == nullptr || other == &chosen) continue;
      bool const isWritten = std::ranges::any_of(parent.children(), [&sibling](auto const& child) {
        return child->isNamed && child->type.attr == sibling.attr;
      });
      if (isWritten)
        return invalid(parent.path(), fmt::format("'{}' and '{}' are of different cases of the choice '{}'",
                                                  by.type.name, sibling.name, chosen.choiceName));
      if (!hasWritable(sibling, parent.writer)) continue;
      if (!sibling.isList())
        parent.childIs(sibling).isCleared = true;
      else if (auto entries = RequestPath::of({}, pathOf(parent, sibling)))
        plan_.deletes.push_back(std::move(*entries));
    }
    return Status::OK;
  }
  // Of all entries of a list.
  static gnmi::Path pathOf(PlanNode const& parent, TypeNode const& list) {
    gnmi::Path path;
    parent.appendTo(path);
    path.add_elem()->set_name(std::string(list.name));
    return path;
  }

  SetPlan& plan_;
};

} // namespace

Status writeLeaf(PlanNode& leaf, gnmi::TypedValue const& value) { return write(leaf, value); }
Status writeLeaf(PlanNode& leaf, nlohmann::json const& value) { return write(leaf, value); }

Status settle(SetPlan& plan) {
  if (Status status = Choices(plan).apply(plan.root); !status.ok()) return status;
  return plan.root.size() > kMaxPlanNodes ? exhausted("too many values", kMaxPlanNodes) : Status::OK;
}

} // namespace Agent
