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

// What the threads share: every chunk ever taken (so that a leak checker reaches the blocks of threads that have ended), and the
// surplus of threads that free more than they allocate, for those that do the opposite.
struct Shared {
  std::mutex mutex;
  std::vector<void*> chunks;
  std::array<std::vector<FreeBlock*>, kClasses + 1> surplus; // batches of kBatch blocks
};

Shared& shared() {
  static auto* const instance = new Shared; // outlives every static that may still free a block
  return *instance;
}

struct ThreadList {
  FreeBlock* head;
  std::size_t length;
};

struct ThreadLists {
  std::array<ThreadList, kClasses + 1> free;
  std::byte* bump;
  std::byte* bumpEnd;
};

// Plain data without constructor or destructor: valid at any time in a thread's life. Initial-exec access keeps the
// fast path free of a call into the loader.
__attribute__((tls_model("initial-exec"))) thread_local constinit ThreadLists lists{};

// A list that grows to this length is handed to the others as one batch.
constexpr std::size_t kBatch = 4096;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPassThrough = true;
#else
constexpr bool kPassThrough = false;
#endif

[[gnu::noinline]] void* refill(std::size_t index) {
  ThreadLists& mine = lists;
  Shared& all = shared();
  std::lock_guard<std::mutex> const guard(all.mutex);
  if (!all.surplus[index].empty()) {
    FreeBlock* const block = all.surplus[index].back();
    all.surplus[index].pop_back();
    mine.free[index] = {block->next, kBatch - 1};
    return block;
  }
  auto* const chunk = static_cast<std::byte*>(::operator new(kChunkBytes));
  all.chunks.push_back(chunk);
  mine.bump = chunk;
  mine.bumpEnd = chunk + kChunkBytes;
  void* const block = mine.bump;
  mine.bump += index * kGrain;
  return block;
}

void* carve(std::size_t index) {
  ThreadLists& mine = lists;
  std::size_t const bytes = index * kGrain;
  if (static_cast<std::size_t>(mine.bumpEnd - mine.bump) < bytes) {
    return refill(index);
  }
  void* const block = mine.bump;
  mine.bump += bytes;
  return block;
}

[[gnu::noinline]] void giveAway(std::size_t index) noexcept {
  Shared& all = shared();
  std::lock_guard<std::mutex> const guard(all.mutex);
  all.surplus[index].push_back(lists.free[index].head);
  lists.free[index] = {nullptr, 0};
}

std::size_t classOf(std::size_t size) noexcept { return size == 0 ? 1 : (size + kGrain - 1) / kGrain; }

} // namespace

void* kelMemAlloc(std::size_t size) {
  if (kPassThrough || size > kKelMemLargestClass) {
    return ::operator new(size);
  }
  std::size_t const index = classOf(size);
  ThreadList& list = lists.free[index];
  if (FreeBlock* const block = list.head) {
    list.head = block->next;
    --list.length;
    return block;
  }
  return carve(index);
}

void kelMemFree(void* block, std::size_t size) noexcept {
  if (block == nullptr) {
    return;
  }
  if (kPassThrough || size > kKelMemLargestClass) {
    ::operator delete(block);
    return;
  }
  std::size_t const index = classOf(size);
  ThreadList& list = lists.free[index];
  list.head = new (block) FreeBlock{list.head};
  if (++list.length == kBatch) [[unlikely]] {
    giveAway(index);
  }
}

MemStats kelMemStats() {
  std::lock_guard<std::mutex> const guard(shared().mutex);
  return {shared().chunks.size() * kChunkBytes, shared().chunks.size()};
}

} // namespace Kel
