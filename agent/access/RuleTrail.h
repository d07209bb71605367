// Agent::RuleTrail: where a tree of rules stands along the paths of a walk.
//
// Invariants
// 1. A spot is all that the rules say of a path and of what lies below: paths of which they say the same are
//    one spot, however many entries the lists above them have.
// 2. What the rules say below a spot is found once for each name, and for entries of lists that they tell
//    apart by keys once an entry. Below a spot that is settled nothing is looked at.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "Ondra/Path.h"
#include "agent/access/LeafVerdicts.h"
#include "agent/access/RuleTree.h"

namespace Agent {

// Remembers the way to the last path: of the next one only what differs is looked at. Scheduler thread; the
// tree outlives it.
class RuleTrail {
public:
  class Spot {
  public:
    explicit Spot(RuleTree::Place const& place) : leaves(place), place_(place) {}
    [[nodiscard]] Pattern::Cover cover() const noexcept { return place_.cover(); }

    LeafVerdicts leaves; // of responses whose prefix leads here

  private:
    friend class RuleTrail;
    struct Below {
      Kel::String name;
      Spot* spot; // null: it depends on the keys
    };
    RuleTree::Place place_;
    std::vector<Below> below_; // what has been asked for
  };

  explicit RuleTrail(RuleTree const& rules) : rules_(rules) {}

  // Of an internal path, which begins with the data root. Until the next call.
  [[nodiscard]] Spot& at(Ondra::Path const& path);

private:
  struct Step {
    Ondra::Path::ElemPtr elem;
    Spot* spot;
    bool isForAnyKeys; // and the same for all elements of that name
  };
  struct Hash {
    std::size_t operator()(RuleTree::Place const& place) const noexcept { return place.hash(); }
  };
  struct SaysAs {
    bool operator()(RuleTree::Place const& a, RuleTree::Place const& b) const { return a.saysAs(b); }
  };

  [[nodiscard]] static bool isSame(Step const& step, Ondra::PathElem const& elem);
  [[nodiscard]] Spot& spotOf(RuleTree::Place const& place);
  [[nodiscard]] Step below(Spot& above, Ondra::Path::ElemPtr const& elem);

  RuleTree const& rules_;
  std::unordered_map<RuleTree::Place, Spot, Hash, SaysAs> spots_; // stay where they are
  Spot* root_ = nullptr;                                          // null: nothing has been looked at
  std::vector<Step> steps_;
};

} // namespace Agent
