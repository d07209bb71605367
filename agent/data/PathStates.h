// Following a path with wildcards down a tree, of types or of the model: how far it has been matched by the
// nodes above. However many wildcards it holds, each node is looked at once. Pure: any thread.
// docs/decisions.md: "Wildcards"
#pragma once

#include <bitset>
#include <optional>
#include <string>
#include <string_view>

#include "Kstd/Result.h"
#include "agent/paths/RequestPath.h"
#include "agent/paths/TypeTree.h"

namespace Agent {

// Whether a name of a path, "*" included, means a node of the types.
[[nodiscard]] bool nameMatches(RequestElem const& elem, TypeNode const& node);
// The key that an element gives for a list (agent/paths/EntryKey.h), in the model's own spelling; none when
// it leaves any of the list's keys open. An error for what is no key of it.
[[nodiscard]] Kstd::Result<std::optional<std::string>, std::string> keyOf(RequestElem const& elem,
                                                                          TypeNode const& list);

// The same of a list's key at `at` alone.
[[nodiscard]] Kstd::Result<std::string, std::string> keyTextOf(std::string_view text, TypeNode const& list,
                                                               std::size_t at);

// Walks down with a set of positions in the path: those elements that may be matched next.
class PathStates {
public:
  // At the root. The path must outlive it.
  explicit PathStates(RequestPath const& path) : path_(&path) { add(0); }

  // Below a node of that type; for an entry of a list with its key. With `anyKey` all entries pass.
  [[nodiscard]] PathStates below(TypeNode const& node, std::string_view key = {}) const {
    return stepped(node, key, false);
  }
  [[nodiscard]] PathStates belowAny(TypeNode const& node) const { return stepped(node, {}, true); }

  // The node reached is one that the path means.
  [[nodiscard]] bool isEnd() const { return states_[path_->elems.size()]; }
  // Nothing at or below the node reached is meant.
  [[nodiscard]] bool isDead() const { return states_.none(); }
  // All that can pass of a list is the entry of one key: that one.
  [[nodiscard]] std::optional<std::string> onlyKey(TypeNode const& list) const;

private:
  PathStates(RequestPath const* path, std::nullptr_t) : path_(path) {}
  void add(std::size_t position); // and what follows without a node
  [[nodiscard]] PathStates stepped(TypeNode const& node, std::string_view key, bool anyKey) const;

  RequestPath const* path_;
  std::bitset<kMaxPathElems + 1> states_;
};

} // namespace Agent
