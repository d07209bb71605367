// Agent::RuleTrail: where a tree of rules stands along the paths of a walk.
#pragma once

#include <vector>

#include "Kel/Ptr.h"
#include "Ondra/Path.h"
#include "agent/access/RuleTree.h"

namespace Agent {

// Remembers the way to the last path: of the next one only what differs is looked at, and nothing below a
// place that is settled. Scheduler thread; the tree outlives it.
class RuleTrail {
public:
  explicit RuleTrail(RuleTree const& rules) : root_(rules.root()) {}

  // Of an internal path, which begins with the data root. Until the next call.
  [[nodiscard]] RuleTree::Place const& at(Ondra::Path const& path);

private:
  struct Step {
    Ondra::Path::ElemPtr elem;
    RuleTree::Place place;
    bool isForAnyKeys; // and the same for all elements of that name
  };
  [[nodiscard]] static bool isSame(Step const& step, Ondra::PathElem const& elem);

  RuleTree::Place const root_;
  std::vector<Step> steps_;
};

} // namespace Agent
