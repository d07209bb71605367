// Prints the page of supported paths: `ondra-supported-paths > docs/supported-paths.md`.
#include <cstdio>

#include "agent/model/SupportedPaths.h"

int main() {
  std::fputs(Agent::supportedPaths().c_str(), stdout);
  return 0;
}
