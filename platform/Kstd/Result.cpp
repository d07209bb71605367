#include "Kstd/Result.h"

#include <cstdio>
#include <cstdlib>

namespace Kstd::Impl {

void resultAccessFailed(char const* what) {
  // This folder is below the trace service, hence the bare report.
  std::fprintf(stderr, "Kstd::Result: %s\n", what);
  std::abort();
}

} // namespace Kstd::Impl
