// The debug handler of the full walker's files.
#pragma once

#include "Ondra/PathFormat.h"
#include "Tovak/Trace.h"

namespace Ondra {

inline Tovak::DebugHandler& walkerTrace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraWalker", false);
  return handler;
}

inline constexpr char const* kWalkerCategory = "FullKelTypeWalker";

} // namespace Ondra
