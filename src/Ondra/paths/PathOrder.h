// A total order of paths in which everything below a path follows it directly. Of no meaning otherwise.
#pragma once

#include "Kstd/Export.h"
#include "Ondra/Path.h"

namespace Ondra {

// Negative, 0 or positive, by the texts of the elements.
[[nodiscard]] KTD_EXPORT int comparePaths(Path const& a, Path const& b);

} // namespace Ondra
