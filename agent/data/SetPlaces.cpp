// Places overlap when one lies at or below the other.
#include "agent/data/SetPlaces.h"

#include <algorithm>

#include "agent/data/PathStates.h"
#include "agent/data/SetDiff.h"
#include "agent/data/SetPlan.h"
#include "agent/paths/EntryKey.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"

namespace Agent {
namespace {

constexpr std::size_t kMostPlaces = 64;

// The deepest place above all that a delete may mean.
std::string placeAbove(RequestPath const& path) {
  gnmi::Path above;
  TypeNode node = TypeNode::root();
  for (RequestElem const& elem : path.elems) {
    auto const child = node.child(elem.name);
    if (!child) break;
    auto const key = keyOf(elem, *child);
    if (!key || (child->isList() && !*key)) break;
    gnmi::PathElem& made = *above.add_elem();
    made.set_name(child->name.data(), child->name.size());
    for (std::size_t i = 0, count = child->isList() ? child->keyCount() : 0; i < count; ++i)
      (*made.mutable_key())[child->key(i).name().str()] = keyValue(**key, count, i);
    node = *child;
  }
  return pathBytes(PathView(above, 0));
}

} // namespace

SetPlaces SetPlaces::of(SetPlan const& plan, SetDiff const& diff) {
  SetPlaces set{.places = diff.cleared, .isPlain = !diff.shapes && plan.deletes.empty()};
  set.isWide = diff.resets.size() + diff.writes.size() + diff.removals.size() + plan.deletes.size() +
                   set.places.size() >
               kMostPlaces;
  if (set.isWide) return set;
  for (RequestPath const& path : plan.deletes)
    set.places.push_back(placeAbove(path));
  for (SetParts const* const parts : {&diff.resets, &diff.writes, &diff.removals}) {
    parts->forEach([&set](SetParts::Place const& place, gnmi::TypedValue const*) {
      set.places.push_back(bytesOf(place));
    });
  }
  return set;
}

bool PlacesOnTheWay::overlaps(Places const& places, std::string_view place) {
  auto const below = places.lower_bound(place);
  if (below != places.end() && below->starts_with(place)) return true;
  while (!place.empty()) {
    place = bytesAbove(place);
    if (places.contains(place)) return true;
  }
  return false;
}

bool PlacesOnTheWay::disturb(SetPlaces const& set) const {
  return std::ranges::any_of(set.places, [&](std::string const& place) {
    return overlaps(shaping_, place) || (!set.isPlain && overlaps(plain_, place));
  });
}

void PlacesOnTheWay::enter(SetPlaces const& set) {
  (set.isPlain ? plain_ : shaping_).insert(set.places.begin(), set.places.end());
}

void PlacesOnTheWay::leave(SetPlaces const& set) {
  Places& places = set.isPlain ? plain_ : shaping_;
  for (std::string const& place : set.places)
    places.erase(places.find(place));
}

} // namespace Agent
