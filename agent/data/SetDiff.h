// What a plan changes in the model: requests for the library, and how to take them back. Scheduler thread, in
// slices.
//
// Invariants
// 1. No path is in two of the requests, and none below another of `removals`: the order in which they are
//    carried out does not matter.
// 2. `removals` come last: everything before them can be taken back by writing values, an entry that is gone
//    cannot. They are of entities alone, which no model can refuse to let go once the library has checked the
//    request. docs/decisions.md: "Why are entries removed last?"
// 3. `undo`, gone through backwards, restores what `resets` and `writes` change.
// 4. An entry that the machine has stays when it is removed: what is configured of it goes, and its container
//    of configuration with that, unless the plan names this.
// 5. Between two slices the machine may change what is compared: objects are held then, iterators are not.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "agent/data/ClientEntries.h"
#include "agent/data/ModelPlace.h"
#include "agent/data/PathStates.h"
#include "agent/data/SetPlan.h"
#include "agent/data/Steps.h"

namespace Tovak {
class Task;
} // namespace Tovak

namespace Agent {

// One attribute (or member of a collection) as it was; null: it was not there.
struct Undo {
  Kel::KelAttr::Handle object;
  Kel::KelAttr attr;
  Kel::KelAttr::ConstHandle key;
  Kel::KelAttr::ConstHandle old;
  std::optional<std::size_t> made; // the entry of `SetDiff::made` that it stands for
};

// A request, cut into such as the library carries out well within a slice.
class SetParts {
public:
  void deleteIs(gnmi::Path const& path);
  // Of the path, for its value.
  [[nodiscard]] gnmi::TypedValue& updateIs(gnmi::Path const& path);
  [[nodiscard]] std::size_t size() const noexcept { return size_; }

  std::vector<gnmi::SetRequest> parts;

private:
  gnmi::SetRequest& room();
  std::size_t size_ = 0;
};

class SetDiff {
public:
  // Looks whether the slice of `task` is over. The plan outlives it.
  SetDiff(SetPlan& plan, Tovak::Task const& task) : plan_(plan), task_(task) {}
  // Once.
  Steps run();

  SetParts resets;   // deletes of leaves
  SetParts writes;   // updates of leaves; makes entries
  SetParts removals; // deletes of entries
  std::vector<Undo> undo;
  std::set<std::string> interfaces; // whose configuration it writes
  std::vector<MadeEntry> made;
  std::vector<std::string> gone;    // entries, by the canonical bytes of their paths
  std::vector<std::string> cleared; // places that the plan itself clears, likewise
  bool shapes = false;              // something is made, cleared or removed

  [[nodiscard]] bool isEmpty() const noexcept {
    return resets.size() == 0 && writes.size() == 0 && removals.size() == 0;
  }

private:
  // Marks in the plan what a delete's path matches.
  Steps markDeleted(PlanNode& node, Handle object, PathStates states);
  Steps markDeletedEntries(PlanNode& node, Handle object, TypeNode list, PathStates states);

  // What changes below a place: `node` is null where the plan says nothing of it, `object` where the model
  // has nothing there.
  Steps below(PlanNode const* node, TypeNode type, Handle object, bool isCleared);
  Steps container(PlanNode const* node, TypeNode type, Handle parent, bool isCleared);
  Steps clearedList(PlanNode const* parentNode, TypeNode list, Handle parent);
  Steps entry(PlanNode const* node, TypeNode list, std::string keyText, Handle key, Handle parent,
              bool isCleared);
  void leaf(PlanNode const* node, TypeNode const& type, Handle const& object, bool isCleared);
  // An update of a key or its copy, which makes what it stands in.
  void writeKey(Kel::KelAttr key, std::string_view text);
  // Remembers the attribute as it is, unless it lies in a value that has been remembered whole.
  void remember(Handle const& object, Kel::KelAttr attr, Handle const& key);
  void enter(TypeNode const& type, std::string_view keyText = {});
  void leave() { path_.mutable_elem()->RemoveLast(); }

  SetPlan& plan_;
  Tovak::Task const& task_;
  gnmi::Path path_;
  std::size_t valuesEntered_ = 0; // containers that are values, around the place
  std::string const* interface_ = nullptr;
  bool isStateKept_ = false; // the entry around the place is cleared, and the machine has it
};

} // namespace Agent
