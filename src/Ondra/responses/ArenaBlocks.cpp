// Powers of two, one list for each, under one lock, in storage that is never destroyed; other sizes go to the
// heap.
#include "Ondra/responses/ArenaBlocks.h"

#include <array>
#include <bit>
#include <mutex>
#include <new>

#include "Tovak/Lock.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(at, size) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(at, size) static_cast<void>(0)
#endif

namespace Ondra::ArenaBlocks {
namespace {

struct FreeBlock {
  FreeBlock* next;
};

constexpr std::size_t kClasses = std::bit_width(kLargestBlockBytes / kFirstBlockBytes);

// Plain data without a destructor: responses may be released after the process's statics have gone.
struct Cache {
  Tovak::Locking::Lock lock;
  std::array<FreeBlock*, kClasses> free{};
  std::size_t bytes = 0;
  std::size_t bytesMax = kCachedBytesMax;
};
constinit Cache cache;

bool isCachedSize(std::size_t size) noexcept {
  return std::has_single_bit(size) && size >= kFirstBlockBytes && size <= kLargestBlockBytes;
}

std::size_t classOf(std::size_t size) noexcept {
  return static_cast<std::size_t>(std::countr_zero(size) - std::countr_zero(kFirstBlockBytes));
}

FreeBlock* takeBlock(std::size_t size) {
  std::lock_guard const guard(cache.lock);
  FreeBlock*& head = cache.free[classOf(size)];
  FreeBlock* const block = head;
  if (block != nullptr) {
    ASAN_UNPOISON_MEMORY_REGION(block, size);
    head = block->next;
    cache.bytes -= size;
  }
  return block;
}

bool keepBlock(void* at, std::size_t size) {
  std::lock_guard const guard(cache.lock);
  if (cache.bytes + size > cache.bytesMax) return false;
  FreeBlock*& head = cache.free[classOf(size)];
  head = new (at) FreeBlock{head};
  cache.bytes += size;
  ASAN_POISON_MEMORY_REGION(at, size);
  return true;
}

// Ends the process where there is no memory: an arena does not survive that, nor do the messages in it.
void* allocate(std::size_t size) noexcept {
  if (isCachedSize(size)) {
    if (void* const block = takeBlock(size)) return block;
  }
  return ::operator new(size);
}

void deallocate(void* block, std::size_t size) {
  if (!isCachedSize(size) || !keepBlock(block, size)) ::operator delete(block);
}

} // namespace

google::protobuf::ArenaOptions arenaOptions() {
  google::protobuf::ArenaOptions options;
  options.start_block_size = kFirstBlockBytes;
  options.max_block_size = kLargestBlockBytes;
  options.block_alloc = allocate;
  options.block_dealloc = deallocate;
  return options;
}

std::size_t cachedBytes() {
  std::lock_guard const guard(cache.lock);
  return cache.bytes;
}

void purge() {
  {
    std::lock_guard const guard(cache.lock);
    cache.bytesMax = 0;
  }
  for (std::size_t size = kFirstBlockBytes; size <= kLargestBlockBytes; size *= 2)
    while (FreeBlock* const block = takeBlock(size))
      ::operator delete(block);
}

} // namespace Ondra::ArenaBlocks
