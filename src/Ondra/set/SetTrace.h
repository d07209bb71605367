// What the sources of the write side share to trace and to report.
#pragma once

#include <fmt/ostream.h>

#include "Ondra/AttrTree.h"
#include "Ondra/rules/ModelError.h"
#include "Tovak/Trace.h"

namespace Ondra::KelGnmiSet {

inline Tovak::DebugHandler& setTrace = Tovak::Platform::getDebugHandler("OndraKelGnmiSet", false);

} // namespace Ondra::KelGnmiSet

template <>
struct fmt::formatter<Ondra::KelGnmiSet::SetOp> : fmt::ostream_formatter {};
