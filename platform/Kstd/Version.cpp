// The version comes from the build as a macro of this file alone, so that a new one compiles nothing else
// anew.
#include "Kstd/Version.h"

namespace Kstd {

std::string_view libraryVersion() noexcept { return KTD_VERSION; }

} // namespace Kstd
