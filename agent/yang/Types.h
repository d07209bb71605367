// Types of the object model made from compiled modules, with what `leafInfo` and the other tables say of each
// node.
#pragma once

#include <string>
#include <vector>

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include "Kel/Attr.h"
#include "Kel/Type.h"
#include "Kstd/Result.h"

struct lysc_node;

namespace Agent {

class Modules;

// Where the nodes of the modules stand in the object model. Constant once made.
struct YangTypes {
  absl::flat_hash_map<lysc_node const*, Kel::KelAttr> attrs; // of all but those at the top
  absl::flat_hash_set<lysc_node const*> tops;                // these
  std::vector<std::string> leftOut;                          // "PATH: WHY", in the order of the modules
  std::size_t leaves = 0;

  [[nodiscard]] bool has(lysc_node const* node) const { return attrs.contains(node) || tops.contains(node); }
};

// Makes the types and enters them into the tables, the nodes at the top too. Before other threads look at
// these; the modules must live for the process. The error names the node that is refused.
[[nodiscard]] Kstd::Result<YangTypes, std::string> yangTypesOf(Modules const& modules);

} // namespace Agent
