// What the sources of the write side share to trace and to report.
#pragma once

#include <fmt/ostream.h>

#include "Ondra/AttrTree.h"
#include "Ondra/rules/ModelError.h"
#include "Tovak/Trace.h"

namespace Ondra::KelGnmiSet {

inline Tovak::DebugHandler& setTrace = Tovak::Platform::getDebugHandler("OndraKelGnmiSet", false);

// Whether single nodes and steps to them, which have the levels 5 to 9, are traced. If not, some are taken at
// once.
inline bool stepsAreTraced() { return (setTrace.mask() & 0x3e0U) != 0; }

} // namespace Ondra::KelGnmiSet

template <>
struct fmt::formatter<Ondra::KelGnmiSet::SetOp> : fmt::ostream_formatter {};
