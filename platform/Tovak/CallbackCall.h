// Calls a callback that stands in a map, and that may remove itself while it runs.
#pragma once

#include <utility>

namespace Tovak::Impl {

// Calls the `callback` member of the entry `id` of a map, if there is one; false if not. The callback may
// remove its own entry, or any other, from the map: it is held outside the map while it runs and goes back
// afterwards only if its entry is still there. REQUIRES that ids are never used twice.
template <typename Map, typename... Args>
bool callEntry(Map& map, typename Map::key_type id, Args... args) {
  auto const entry = map.find(id);
  if (entry == map.end()) return false;
  struct Running {
    Map& map;
    typename Map::key_type id;
    decltype(entry->second.callback) callback;

    ~Running() { // also when the callback throws
      if (auto const still = map.find(id); still != map.end()) still->second.callback = std::move(callback);
    }
  } running{map, id, std::move(entry->second.callback)};
  running.callback(args...);
  return true;
}

} // namespace Tovak::Impl
