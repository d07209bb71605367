// Asking for a value that is not there ends the process, with the error's text on standard error.
#include "Kstd/Result.h"

#include <cstdio>
#include <cstdlib>

namespace Kstd::Impl {

void resultAccessFailed(char const* what, std::string_view error) {
  // This folder is below the trace service, hence the bare report.
  std::fprintf(stderr, "Kstd::Result: %s%s%.*s\n", what, error.empty() ? "" : ": ",
               static_cast<int>(error.size()), error.data());
  std::abort();
}

} // namespace Kstd::Impl
