// What the sources of the write side share to trace and to report.
#pragma once

#include <string>
#include <utility>

#include <fmt/ostream.h>

#include "Kel/Error.h"
#include "Kstd/Result.h"
#include "Ondra/AttrTree.h"
#include "Tovak/Trace.h"

namespace Ondra::KelGnmiSet {

inline Tovak::DebugHandler& setTrace = Tovak::Platform::getDebugHandler("OndraKelGnmiSet", false);

// Runs a piece of work with the model; the text of the error that the model raises becomes the result.
template <class Work>
[[nodiscard]] auto catchModelError(Work const& work) -> Kstd::Result<decltype(work()), std::string> {
  try {
    return work();
  } catch (Kel::Error const& error) {
    return Kstd::Err(std::string(error.what()));
  }
}

} // namespace Ondra::KelGnmiSet

template <>
struct fmt::formatter<Ondra::KelGnmiSet::SetOp> : fmt::ostream_formatter {};
