// The model's own storage: a size-classed free list for its many small, short-lived objects.
//
// Handles, model objects, strings and collection nodes come from here, so that creating and dropping one
// costs nanoseconds and no call of the general heap once the lists are warm. Blocks up to
// `kKelMemLargestClass` bytes are rounded up to a multiple of 16 and recycled per thread; larger ones go
// to the general heap. Those that fill whole cache lines begin with one, but for a few: the fewer lines an
// object lies across, the sooner it is there. A block may be freed on another thread than the one that
// allocated it: long lists are handed over in batches, and a thread that ends leaves all it has to the
// others. Memory taken for the lists is kept for the life of the process; beyond some megabytes it is
// taken in huge pages, where there are any: who goes through a large model waits for page tables, too.
// Under AddressSanitizer every call goes to the general heap, so that a use after free is seen.
#pragma once

#include <cstddef>

#include "Kstd/Export.h"

namespace Kel {

inline constexpr std::size_t kKelMemLargestClass = 512; // bytes

// Uninitialised storage for `size` bytes, aligned to 16. Throws std::bad_alloc.
[[nodiscard]] KTD_EXPORT void* kelMemAlloc(std::size_t size);

// Gives back what `kelMemAlloc(size)` returned; `size` must be the same. Null is allowed.
KTD_EXPORT void kelMemFree(void* block, std::size_t size) noexcept;

// Figures of the free lists (all threads), for benchmarks and dumps.
struct MemStats {
  std::size_t chunkBytes;  // bytes taken for the lists
  std::size_t mappedBytes; // of these, what has been mapped; the rest is the general heap's
  std::size_t chunks;      // how many pieces all of it is
};
[[nodiscard]] KTD_EXPORT MemStats kelMemStats(); // of this moment

} // namespace Kel
