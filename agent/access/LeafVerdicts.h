// Agent::LeafVerdicts: which leaves of one response of a walk after the other may be read, where rules name
// leaves.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/access/RuleTree.h"

namespace Agent {

// Of responses of which rules say the same, such as those of a list's entries: they tell their leaves in one
// order, so what was found for a leaf is looked for where the last response had it, or a little further on.
// One thread; the tree outlives it.
class LeafVerdicts {
public:
  explicit LeafVerdicts(RuleTree::Place place) : place_(std::move(place)) {}

  void responseBegins() { next_ = 0; }
  // Of its next leaf, by its path as the field of an update holds it, encoded.
  [[nodiscard]] bool permits(std::string_view path) {
    if (next_ < verdicts_.size() && verdicts_[next_].path == path) return verdicts_[next_++].permits;
    return permitsOther(path);
  }

private:
  struct Verdict {
    std::string path;
    bool permits;
  };
  [[nodiscard]] bool permitsOther(std::string_view path);

  RuleTree::Place place_;
  std::vector<Verdict> verdicts_; // in the order of the leaves, as far as there is one
  std::size_t next_ = 0;
};

} // namespace Agent
