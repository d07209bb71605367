// The debug handler of the files that watch objects.
#pragma once

#include "Ondra/PathFormat.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"

namespace Ondra {

inline Tovak::DebugHandler& notifieeTrace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraGifGnmiNotifiee", false);
  return handler;
}

inline constexpr char const* kNotifieeCategory = "GifGnmiNotifiee";

} // namespace Ondra
