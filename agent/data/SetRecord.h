// What a Set leaves in the store, and the Set that a store comes to. A place is the canonical bytes of its
// path, a value the bytes of its `TypedValue`; no value at all says that a client has deleted what the
// machine may give. So a store knows nothing of the types, and outlives their changes. Pure: any thread.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "agent/model/LinkChange.h"
#include "agent/store/ConfigRecord.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

class ClientEntries;
class SetDiff;

// REQUIRES that nothing of it has been carried out.
[[nodiscard]] ConfigChange changeOf(SetDiff const& diff, ClientEntries const& entries);

// Where a provisional change has the request that leads back from it, for the next start. It is no path.
inline constexpr char const* kWayBack = "\x03";

// Beside the places: what links had before clients wanted it otherwise (`LinkBefores`).
[[nodiscard]] bool isBefore(std::string_view place);
void beforesInto(LinkBefores const& befores, ConfigChange& change);
[[nodiscard]] LinkBefores beforesIn(ConfigMap const& map);
[[nodiscard]] LinkBefores beforesIn(ConfigChange const& change);

// What a store holds of places, in an order in which the model with what the machine gives is brought to it:
// what has been deleted goes first.
using StoredPlaces = std::vector<ConfigMap::value_type const*>;
[[nodiscard]] StoredPlaces inOrder(ConfigMap const& map);
[[nodiscard]] gnmi::SetRequest requestOf(std::span<ConfigMap::value_type const* const> places);

} // namespace Agent
