#include "Tovak/HashMix.h"

namespace Tovak::Impl {

char const HashMix::loadedHere = 0;

} // namespace Tovak::Impl
