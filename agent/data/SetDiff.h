// What a plan changes in the model: places for the library to write, and how to take that back. Scheduler
// thread, in slices.
//
// Invariants
// 1. No place is in two of the sets, and none below another of `removals`: the order in which they are
//    carried out does not matter.
// 2. `removals` come last: everything before them can be taken back by writing values, an entry that is gone
//    cannot. They are of entities alone, which no model can refuse to let go once the library has checked the
//    set. docs/decisions.md: "Why are entries removed last?"
// 3. `undo`, gone through backwards, restores what `resets` and `writes` change.
// 4. An entry that the machine has stays when it is removed: what is configured of it goes, and its container
//    of configuration with that, unless the plan names this.
// 5. Between two slices the machine may change what is compared: objects are held then, iterators are not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <absl/functional/function_ref.h>

#include "Kel/Attr.h"
#include "Ondra/PlaceSet.h"
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

// A value of a leaf of an object that is there.
struct PlainWrite {
  Kel::KelAttr::Handle object;
  Kel::KelAttr attr;
  Kel::KelAttr::ConstHandle value;
};

// The canonical bytes of the path to a place.
[[nodiscard]] std::string bytesOf(Ondra::KelGnmiSet::PlaceSet::Place const& place);

// A step of the way from the root to a place.
struct WayStep {
  TypeNode const* type;
  std::string_view keyText;
  Handle key;           // of an entry
  std::uint64_t number; // of this step alone, on whatever way it is
};

// What is to be done at places, cut into sets that the library carries out well within a slice.
class SetParts {
public:
  using Way = std::vector<WayStep>;
  using PlaceSet = Ondra::KelGnmiSet::PlaceSet;
  using Place = PlaceSet::Place;

  void deleteIs(Way const& way);
  void updateIs(Way const& way, gnmi::TypedValue value);
  [[nodiscard]] std::size_t size() const noexcept { return size_; }

  // One after the other, with its value; null: it is deleted.
  void forEach(absl::FunctionRef<void(Place const& place, gnmi::TypedValue const* value)> visit) const;

  std::vector<PlaceSet> parts;

private:
  Place const& placeIs(Way const& way);

  std::size_t size_ = 0;
  std::vector<std::pair<std::uint64_t, Place const*>> last_; // the way that was taken last, in the last part
};

class SetDiff {
public:
  // Looks whether the slice of `task` is over. The plan outlives it.
  SetDiff(SetPlan& plan, Tovak::Task const& task) : plan_(plan), task_(task) {}
  // Once.
  Steps run();

  SetParts resets;                    // deletes of leaves
  SetParts writes;                    // updates of leaves; makes entries
  SetParts removals;                  // deletes of entries
  std::vector<PlainWrite> plain;      // state by the device's own processes, on the shortest way
  std::vector<std::string> presences; // canonical bytes of containers that are to be there, with no leaf
  std::vector<Undo> undo;
  std::set<std::string> interfaces; // whose configuration it writes
  std::vector<MadeEntry> made;
  std::vector<std::string> gone;    // entries, by the canonical bytes of their paths
  std::vector<std::string> left;    // entries that stay as state alone, likewise
  std::vector<std::string> cleared; // places that the plan itself clears, likewise
  bool shapes = false;              // something is made, cleared or removed

  [[nodiscard]] bool isEmpty() const noexcept {
    return resets.size() == 0 && writes.size() == 0 && removals.size() == 0 && presences.empty() &&
           plain.empty();
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
  Steps entry(PlanNode const* node, TypeNode list, std::string entryKey, Handle key, Handle parent,
              bool isCleared);
  void leaf(PlanNode const* node, TypeNode const& type, Handle const& object, bool isCleared);
  // Whether all that the plan says at and below an entry is plain writes into what is there, which they are
  // then. Of a few.
  [[nodiscard]] bool takePlainEntry(PlanNode const& entry, Handle const& parent);
  [[nodiscard]] bool takeAllPlain(PlanNode const& node, Handle const& parent, std::size_t most);
  // Whether it is a plain write, which it is then.
  [[nodiscard]] bool takePlain(TypeNode const& type, Handle const& object, gnmi::TypedValue const& value);
  // Makes an entry's container of configuration where it has none.
  void makeConfig(PlanNode const& entry, TypeNode const& list, Handle const& object);
  // The copies of the keys of the entry at or around a place.
  void writeCopies(PlanNode const& below, TypeNode const& config);
  // An update of a key or its copy, which makes what it stands in.
  void writeKey(Kel::KelAttr key, std::string_view text);
  // Remembers the attribute as it is, unless it lies in a value that has been remembered whole.
  void remember(Handle const& object, Kel::KelAttr attr, Handle const& key);
  void remember(Handle const& object, Kel::KelAttr attr, Handle const& key, Handle old);
  // Both are alive until it leaves.
  void enter(TypeNode const& type, std::string_view entryKey = {}, Handle const& key = nullptr);
  void leave() { way_.pop_back(); }
  [[nodiscard]] std::string pathHere() const; // canonical bytes

  SetPlan& plan_;
  Tovak::Task const& task_;
  SetParts::Way way_; // to the place
  std::uint64_t steps_ = 0;
  std::size_t valuesEntered_ = 0; // containers that are values, around the place
  std::string const* interface_ = nullptr;
  bool isStateKept_ = false; // the entry around the place is cleared, and the machine has it
};

} // namespace Agent
