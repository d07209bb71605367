// Agent::LeafVerdicts: which leaves of one response of a walk after the other may be read, where rules name
// leaves.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "agent/access/RuleTree.h"

namespace Agent {

// Entries of a list tell their leaves in one order: what was found for the last one holds for the next as
// long as rules say the same of both. One thread; the tree outlives it.
class LeafVerdicts {
public:
  // A response begins, whose prefix is that place. REQUIRES that it stays until the next one.
  void placeIs(RuleTree::Place const& place);
  // Of its next leaf, by its path as the field of an update holds it, encoded.
  [[nodiscard]] bool permits(std::string_view path);

private:
  struct Verdict {
    std::string path;
    bool permits;
  };
  RuleTree::Place const* place_ = nullptr;
  RuleTree::Place last_; // of the verdicts
  std::vector<Verdict> verdicts_;
  std::size_t next_ = 0;
};

} // namespace Agent
