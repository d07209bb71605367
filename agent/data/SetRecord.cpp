// From paths to bytes and back.
#include "agent/data/SetRecord.h"

#include <algorithm>
#include <utility>

#include "agent/data/ClientEntries.h"
#include "agent/data/SetDiff.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"

namespace Agent {
namespace {

constexpr char const* kNothing = "";

std::string placeOf(gnmi::Path const& path) { return pathBytes(PathView(path, 0)); }

} // namespace

ConfigChange changeOf(SetDiff const& diff, ClientEntries const& entries) {
  ConfigChange change;
  for (gnmi::SetRequest const& part : diff.resets.parts) {
    for (gnmi::Path const& path : part.delete_())
      change.values.emplace_back(placeOf(path), kNothing);
  }
  for (gnmi::SetRequest const& part : diff.removals.parts) {
    for (gnmi::Path const& path : part.delete_()) {
      std::string place = placeOf(path);
      // Of an entry that the machine has, the configuration has been removed: all of it.
      bool const isOfMachine = path.elem(path.elem_size() - 1).key_size() == 0;
      if (isOfMachine) place = bytesAbove(place);
      // The machine may give it anew, unless it is an entry of a client's making.
      if (isOfMachine || !entries.has(place)) change.values.emplace_back(place, kNothing);
      change.gone.push_back(std::move(place));
    }
  }
  for (gnmi::SetRequest const& part : diff.writes.parts) {
    for (gnmi::Update const& update : part.update())
      change.values.emplace_back(placeOf(update.path()), update.val().SerializeAsString());
  }
  return change;
}

StoredPlaces inOrder(ConfigMap const& map) {
  StoredPlaces places;
  places.reserve(map.size());
  for (auto const& place : map)
    places.push_back(&place);
  std::ranges::stable_partition(places, [](auto const* place) { return place->second.empty(); });
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
