// The version of the library as it was built.
#pragma once

#include "Kstd/Export.h"

#include <string_view>

namespace Kstd {

// "major.minor.patch"; valid for the process, any thread.
KTD_EXPORT std::string_view libraryVersion() noexcept;

} // namespace Kstd
