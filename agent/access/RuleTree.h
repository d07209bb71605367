// Agent::RuleTree: what one caller may do of one kind, read or write: the rules that concern him, as a tree
// of paths.
//
// Invariants
// 1. What holds of a path is what the strongest of the rules says that match it or a path above it: the
//    longest one; of equally long ones that which is explicit earlier, a name before "*", more keys before
//    fewer. Without any it is denied.
// 2. A place is All only where every path at and below it is permitted, None only where none is. Where no
//    rule below says otherwise a place is settled: all below it is as the place itself, and costs nothing.
// docs/decisions.md: "Which access rule counts?"
#pragma once

#include <absl/container/inlined_vector.h>
#include <absl/functional/function_ref.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "agent/paths/Pattern.h"

namespace gnmi {
class PathElem;
} // namespace gnmi

namespace Agent {

// Immutable; any thread.
class RuleTree {
public:
  struct Rule {
    std::shared_ptr<Pattern const> path; // without "..."
    bool permits = false;
  };
  class Place;

  // Of rules for one path the first one counts.
  explicit RuleTree(std::span<Rule const> rules);
  ~RuleTree();
  RuleTree(RuleTree const&) = delete;
  RuleTree& operator=(RuleTree const&) = delete;

  [[nodiscard]] Place root() const;
  [[nodiscard]] Place at(PathView const& path) const;   // without the data root
  [[nodiscard]] Place at(Pattern const& pattern) const; // REQUIRES one without wildcards but for keys
  // What it says of all that a pattern covers. May say `Partial` of whatever has wildcards.
  [[nodiscard]] Pattern::Cover coverOf(Pattern const& pattern) const;

private:
  struct Node;

  void add(Rule const& rule);

  std::unique_ptr<Node> const root_;
};

// What a tree of rules says of a path, and of what lies below. A value; the tree outlives it.
class RuleTree::Place {
public:
  // The value of a key; none: any of them is meant.
  using KeyOf = absl::FunctionRef<std::optional<std::string_view>(std::string_view name)>;

  // The places below. Where keys are left open this is what holds for all, or for some (`Partial`).
  [[nodiscard]] Place below(std::string_view name, KeyOf keyOf) const;
  [[nodiscard]] Place below(gnmi::PathElem const& elem) const;
  [[nodiscard]] Place below(PathView const& path) const;

  [[nodiscard]] Pattern::Cover cover() const noexcept { return cover_; }
  [[nodiscard]] bool isSettled() const noexcept { return nodes_.empty(); }
  // The path itself is permitted, for all keys that it leaves open.
  [[nodiscard]] bool permits() const noexcept { return mayPermit_ && !mayDeny_; }
  // For some of them.
  [[nodiscard]] bool mayPermit() const noexcept { return mayPermit_; }

  // Whether it matters to what lies below which keys a child of that name has.
  [[nodiscard]] bool asksForKeys(std::string_view name) const;
  // The same rules say the same of all that lies below. Such places have one hash.
  [[nodiscard]] bool saysAs(Place const& other) const;
  [[nodiscard]] std::size_t hash() const noexcept;
  // The uppermost rules below that permit something.
  void forEachPermitted(absl::FunctionRef<void(Pattern const&)> visit) const;

private:
  friend class RuleTree;
  struct Standing {
    Node const* node;
    bool isSure; // it matches whatever the open keys are
    friend bool operator==(Standing const&, Standing const&) = default;
  };
  void settle();

  // All ways to match, the strongest first.
  absl::InlinedVector<Standing, 3> nodes_;
  bool mayPermit_ = false;
  bool mayDeny_ = true;
  Pattern::Cover cover_ = Pattern::Cover::None;
};

} // namespace Agent
