#include "Kstd/Version.h"

namespace Kstd {

std::string_view libraryVersion() noexcept { return KTD_VERSION; }

} // namespace Kstd
