// The small functions of GnmiUtils.h, and the one that knows of notifiees.
#pragma once

#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/GifNotifiee.h" // complete, for callers that drop what they looked up
#include "Ondra/GnmiUtils.h"
#include "Ondra/Path.h"

namespace Ondra::KelGnmiUtils {

// The notifiee of that very path, or null.
[[nodiscard]] KTD_EXPORT Kel::Ptr<GifGnmiNotifiee> lookupGnmiNotifieeMap(Kel::Ptr<Path const> path);

} // namespace Ondra::KelGnmiUtils
