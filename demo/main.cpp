// Shows what is there; `./run` starts it.
#include "Kstd/Version.h"

#include <fmt/core.h>

int main() {
  fmt::print("libKelTypeDecoder {}\n", Kstd::libraryVersion());
  return 0;
}
