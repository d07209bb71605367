#include "Kel/Memory.h"

#include <array>
#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

namespace Kel {
namespace {

constexpr std::size_t kGrain = 16;
constexpr std::size_t kClasses = kKelMemLargestClass / kGrain;
constexpr std::size_t kChunkBytes = 64 * 1024;

struct FreeBlock {
  FreeBlock* next;
};

// Every chunk ever taken, so that a leak checker still reaches the blocks of threads that have ended.
struct Chunks {
  std::mutex mutex;
  std::vector<void*> all;
};

Chunks& chunks() {
  static auto* const instance = new Chunks; // outlives every static that may still free a block
  return *instance;
}

struct ThreadLists {
  std::array<FreeBlock*, kClasses + 1> free;
  std::byte* bump;
  std::byte* bumpEnd;
};

// Plain data without constructor or destructor: valid at any time in a thread's life. Initial-exec access keeps the
// fast path free of a call into the loader.
__attribute__((tls_model("initial-exec"))) thread_local constinit ThreadLists lists{};

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPassThrough = true;
#else
constexpr bool kPassThrough = false;
#endif

[[gnu::noinline]] void* carve(std::size_t bytes) {
  ThreadLists& mine = lists;
  if (static_cast<std::size_t>(mine.bumpEnd - mine.bump) < bytes) {
    auto* const chunk = static_cast<std::byte*>(::operator new(kChunkBytes));
    {
      std::lock_guard<std::mutex> const guard(chunks().mutex);
      chunks().all.push_back(chunk);
    }
    mine.bump = chunk;
    mine.bumpEnd = chunk + kChunkBytes;
  }
  void* const block = mine.bump;
  mine.bump += bytes;
  return block;
}

} // namespace

void* kelMemAlloc(std::size_t size) {
  if (kPassThrough || size > kKelMemLargestClass) return ::operator new(size);
  std::size_t const index = (size + kGrain - 1) / kGrain;
  FreeBlock*& head = lists.free[index];
  if (head != nullptr) {
    FreeBlock* const block = head;
    head = block->next;
    return block;
  }
  return carve((index == 0 ? 1 : index) * kGrain);
}

void kelMemFree(void* block, std::size_t size) noexcept {
  if (block == nullptr) return;
  if (kPassThrough || size > kKelMemLargestClass) {
    ::operator delete(block);
    return;
  }
  FreeBlock*& head = lists.free[(size + kGrain - 1) / kGrain];
  head = new (block) FreeBlock{head};
}

MemStats kelMemStats() {
  std::lock_guard<std::mutex> const guard(chunks().mutex);
  return {chunks().all.size() * kChunkBytes, chunks().all.size()};
}

} // namespace Kel
