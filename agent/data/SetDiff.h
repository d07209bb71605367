// What a plan changes in the model as it is now: requests for the library, and how to take them back. Scheduler thread, one turn: it
// holds objects of the model.
//
// Invariants
// 1. No path is in two of the requests, and none below another of `removals`: the order in which they are carried out does not matter.
// 2. `removals` come last: everything before them can be taken back by writing values, an entry that is gone cannot. They are of entities
//    alone, which no model can refuse to let go once the library has checked the request.
//    docs/decisions.md: "Why are entries removed last?"
// 4. An entry that the machine has stays when it is removed: what is configured of it goes, and its container of configuration with that,
//    unless the plan names this.
// 3. `undo`, gone through backwards, restores what `resets` and `writes` change.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "agent/data/ModelPlace.h"
#include "agent/data/PathStates.h"
#include "agent/data/SetPlan.h"

namespace Agent {

// One attribute (or member of a collection) as it was; null: it was not there.
struct Undo {
  Kel::KelAttr::Handle object;
  Kel::KelAttr attr;
  Kel::KelAttr::ConstHandle key;
  Kel::KelAttr::ConstHandle old;
};

class SetDiff {
public:
  explicit SetDiff(SetPlan& plan);

  gnmi::SetRequest resets;   // deletes of leaves
  gnmi::SetRequest writes;   // updates of leaves; makes entries
  gnmi::SetRequest removals; // deletes of entries
  std::vector<Undo> undo;
  std::set<std::string> interfaces; // see SetOutcome
  std::vector<std::string> made;    // entries, by the canonical bytes of their paths
  std::vector<std::string> gone;

private:
  // Marks in the plan what a delete's path matches.
  void markDeleted(PlanNode& node, Handle const& object, PathStates const& states);
  void markDeletedEntries(PlanNode& node, Handle const& object, TypeNode const& list,
                          PathStates const& states);

  // What changes below a place: `node` is null where the plan says nothing of it, `object` where the model has nothing there.
  void below(PlanNode const* node, TypeNode const& type, Handle const& object, bool isCleared);
  void container(PlanNode const* node, TypeNode const& type, Handle const& parent, bool isCleared);
  void clearedList(PlanNode const* parentNode, TypeNode const& list, Handle const& parent);
  void entry(PlanNode const* node, TypeNode const& list, std::string_view keyText, Handle const& key,
             Handle const& parent, bool isCleared);
  void leaf(PlanNode const* node, TypeNode const& type, Handle const& object, bool isCleared);
  // An update of a key or its copy, which makes what it stands in.
  void writeKey(Kel::KelAttr key, std::string_view text);
  // Remembers the attribute as it is, unless it lies in a value that has been remembered whole.
  void remember(Handle const& object, Kel::KelAttr attr, Handle const& key);
  void enter(TypeNode const& type, std::string_view keyText = {});
  void leave() { path_.mutable_elem()->RemoveLast(); }

  gnmi::Path path_;
  std::size_t valuesEntered_ = 0; // containers that are values, around the place
  std::string const* interface_ = nullptr;
  bool isStateKept_ = false; // the entry around the place is cleared, and the machine has it
};

} // namespace Agent
