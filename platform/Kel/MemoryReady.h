// Storage for the model that is made ready before it is asked for.
//
// The first touch of a huge page waits for the system to clear it: a fraction of a millisecond, and several
// where a virtual machine has to get it from its host. Whoever must not be held so long lets another thread
// do it.
#pragma once

#include <stop_token>

#include "Kstd/Export.h"

namespace Kel {

// Keeps two huge pages ready for all threads, as soon as the model has so much storage that it is taken in
// huge pages (Kel/Memory.h); they count as taken. Returns when it is told to stop, and leaves what is ready.
// For a thread of its own, one at a time.
KTD_EXPORT void kelMemKeepReady(std::stop_token const& stop);

} // namespace Kel
