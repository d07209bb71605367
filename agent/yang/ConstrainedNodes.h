// Which nodes of the modules have a part in what holds for a configuration as a whole.
#pragma once

#include <absl/container/flat_hash_set.h>

struct lysc_node;

namespace Agent {

class Modules;

// A configuration that is valid stays so when nodes change that are not in it.
struct ConstrainedNodes {
  [[nodiscard]] static ConstrainedNodes of(Modules const& modules);

  absl::flat_hash_set<lysc_node const*> nodes;
  bool canAnyBeMeant = false; // values may name any node, which is not to go then

  [[nodiscard]] bool has(lysc_node const* node) const { return nodes.contains(node); }
};

} // namespace Agent
