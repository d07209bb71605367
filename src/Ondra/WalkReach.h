// Where a parked walk stands, asked by path.
// docs/decisions.md: "Where does a walk stand?"
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Kstd/Export.h"

namespace gnmi {
class PathElem;
} // namespace gnmi

namespace Ondra {

struct WalkInfo;

// How a place stands to a walk. What is ahead will be read, as it is then; what has been passed will not be,
// though it may have come since. Unknown inside a value that is being walked, which may be another one when
// the walk comes back to it.
enum class WalkReach : std::uint8_t { Passed, Ahead, Unknown };

// `path`: from the root of the model; none when it is not at or below that of the walk. All is passed when
// nothing of the walk is parked: before its first slice it is for the caller to know better. Between two
// slices only, on the scheduler thread.
[[nodiscard]] KTD_EXPORT std::optional<WalkReach> walkReach(WalkInfo const& walkInfo,
                                                            std::span<gnmi::PathElem const* const> path);

} // namespace Ondra
