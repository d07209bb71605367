// The byte whose address, another in each process, seeds all hashes; the mixing itself is in the header.
#include "Tovak/HashMix.h"

namespace Tovak::Impl {

char const HashMix::loadedHere = 0;

} // namespace Tovak::Impl
