// From paths to bytes and back.
#include "agent/data/SetRecord.h"

#include <algorithm>
#include <set>
#include <utility>

#include "agent/data/ClientEntries.h"
#include "agent/data/SetDiff.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"

namespace Agent {
namespace {

using Place = SetParts::Place;

constexpr char const* kNothing = "";
constexpr char kBefore = '\x04'; // begins a link's entry of `LinkBefores`: it is no path

// What the device's own processes write beside configuration, and bring again after a start.
bool isState(Kel::KelAttr attr) {
  Impl::NodeRecord const* const record = attr ? Impl::nodeRecord(attr) : nullptr;
  return record != nullptr && (record->isLeaf ? !record->leaf.isConfig : record->isState);
}

bool isPresence(Kel::KelAttr attr) {
  TypeNode node;
  node.attr = attr;
  node.type = attr.memberType();
  return node.isPresence();
}

// Entries, by the canonical bytes of their paths, that are made and of which nothing but state is written:
// their keys are no configuration.
std::set<std::string> stateEntries(SetDiff const& diff) {
  std::set<std::string> entries;
  diff.writes.forEach([&entries](Place const& place, gnmi::TypedValue const*) {
    if (place.attr().isKeyField() && !isState(place.attr())) entries.insert(bytesOf(*place.above()));
  });
  if (entries.empty()) return entries;
  std::set<std::string> withState;
  std::set<std::string> withConfig;
  diff.writes.forEach([&](Place const& place, gnmi::TypedValue const*) {
    if (place.attr().isKeyField()) return;
    std::set<std::string>& with = isState(place.attr()) ? withState : withConfig;
    for (Place const* at = place.above(); at != nullptr && with.insert(bytesOf(*at)).second;)
      at = at->above();
  });
  std::erase_if(entries, [&](std::string const& entry) {
    return !withState.contains(entry) || withConfig.contains(entry);
  });
  return entries;
}

} // namespace

ConfigChange changeOf(SetDiff const& diff, ClientEntries const& entries) {
  ConfigChange change;
  change.gone = diff.left;
  std::set<std::string> const ofState = stateEntries(diff);
  diff.resets.forEach([&](Place const& place, gnmi::TypedValue const*) {
    if (isState(place.attr())) return;
    change.values.emplace_back(bytesOf(place), kNothing);
  });
  diff.removals.forEach([&](Place const& place, gnmi::TypedValue const*) {
    if (isState(place.attr())) return;
    // Of an entry that the machine has, the configuration has been removed: all of it.
    bool const isOfMachine =
        !place.key() && place.above() != nullptr && place.above()->key() && !isPresence(place.attr());
    std::string bytes = bytesOf(isOfMachine ? *place.above() : place);
    // The machine may give it anew, unless it is an entry of a client's making.
    if (isOfMachine || !entries.has(bytes)) change.values.emplace_back(bytes, kNothing);
    change.gone.push_back(std::move(bytes));
  });
  diff.writes.forEach([&](Place const& place, gnmi::TypedValue const* value) {
    if (isState(place.attr())) return;
    if (place.attr().isKeyField() && ofState.contains(bytesOf(*place.above()))) return;
    change.values.emplace_back(bytesOf(place), value->SerializeAsString());
  });
  gnmi::TypedValue nothing;
  nothing.set_json_ietf_val("{}");
  for (std::string const& path : diff.presences)
    change.values.emplace_back(path, nothing.SerializeAsString());
  return change;
}

bool isBefore(std::string_view place) { return place.starts_with(kBefore); }

void beforesInto(LinkBefores const& befores, ConfigChange& change) {
  for (auto const& [link, text] : befores)
    change.values.emplace_back(kBefore + link, text.empty() ? std::nullopt : std::optional(text));
}

LinkBefores beforesIn(ConfigMap const& map) {
  LinkBefores befores;
  for (auto const& [place, text] : map)
    if (isBefore(place)) befores[place.substr(1)] = text;
  return befores;
}

LinkBefores beforesIn(ConfigChange const& change) {
  LinkBefores befores;
  for (auto const& [place, text] : change.values)
    if (isBefore(place) && text) befores[place.substr(1)] = *text;
  return befores;
}

StoredPlaces inOrder(ConfigMap const& map) {
  StoredPlaces places;
  places.reserve(map.size());
  for (auto const& place : map)
    if (!isBefore(place.first)) places.push_back(&place);
  std::stable_partition(places.begin(), places.end(),
                        [](auto const* place) { return place->second.empty(); });
  return places;
}

gnmi::SetRequest requestOf(std::span<ConfigMap::value_type const* const> places) {
  gnmi::SetRequest request;
  for (auto const* const place : places) {
    if (place->second.empty()) {
      *request.add_delete_() = pathOfBytes(place->first);
      continue;
    }
    gnmi::Update& update = *request.add_update();
    *update.mutable_path() = pathOfBytes(place->first);
    update.mutable_val()->ParseFromString(place->second);
  }
  return request;
}

} // namespace Agent
