// The block cache of the response arenas.
//
// The arena of this protobuf gives all its blocks back when it is reset, and the general heap then gives
// large ones back to the kernel, so that each reuse faults the pages in again. The cache keeps blocks
// instead: last in first out, in lists by size, bounded in bytes. docs/decisions.md: "Blocks of arenas."
#pragma once

#include <google/protobuf/arena.h>

#include <cstddef>

#include "Kstd/Export.h"

namespace Ondra::ArenaBlocks {

// Blocks double from the first to the largest size: a response of one leaf takes a small block, one of 1000
// leaves a few large ones. Filling and serializing takes the same time as with blocks of 64 KiB alone, but a
// waiting message, which keeps its first block, holds 4 KiB. Blocks of 64 KiB straight from the general heap
// more than double that time once many responses are held. Other sizes, for single parts larger than a block,
// are not cached.
inline constexpr std::size_t kFirstBlockBytes = 4 * 1024;
inline constexpr std::size_t kLargestBlockBytes = 64 * 1024;
inline constexpr std::size_t kCachedBytesMax = 32 * 1024 * 1024;

// Options for an arena that takes its blocks from the cache. Any thread.
[[nodiscard]] KTD_EXPORT google::protobuf::ArenaOptions arenaOptions();

// Bytes that wait in the cache.
[[nodiscard]] KTD_EXPORT std::size_t cachedBytes();

// Frees what waits; from now on nothing is cached.
void purge();

} // namespace Ondra::ArenaBlocks
