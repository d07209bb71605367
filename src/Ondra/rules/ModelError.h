// What host code raises, as a text: for work with the model that answers with results.
#pragma once

#include <new>
#include <string>

#include "Kel/Error.h"
#include "Kstd/Result.h"

namespace Ondra {

// For `catch (...)` around work with the model: what host code raises, its own errors and any other, is a
// text. Only when memory has run out it goes on.
[[nodiscard]] inline std::string modelError() {
  try {
    throw;
  } catch (std::bad_alloc const&) {
    throw;
  } catch (...) {
    return Kel::raisedText();
  }
}

// Runs a piece of work with the model; the text of what it raises becomes the result.
template <class Work>
[[nodiscard]] auto catchModelError(Work const& work) -> Kstd::Result<decltype(work()), std::string> {
  try {
    return work();
  } catch (...) {
    return Kstd::Err(modelError());
  }
}
// The same for work that answers with a value or a text itself.
template <class Work>
[[nodiscard]] auto catchModelText(Work const& work) -> decltype(work()) {
  try {
    return work();
  } catch (...) {
    return Kstd::Err(modelError());
  }
}

} // namespace Ondra
