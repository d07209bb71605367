// The page of supported paths, made from the types of the model.
#pragma once

#include <string>

namespace Agent {

// docs/supported-paths.md as it must be: every leaf with its type, whether it is configuration or state, and
// its mode under TARGET_DEFINED.
[[nodiscard]] std::string supportedPaths();

// The tables of it alone, for whatever is served.
[[nodiscard]] std::string pathTables();

} // namespace Agent
