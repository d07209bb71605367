// Each thread has lists of its own, without a lock; chunks, surplus and what ended threads leave are shared
// under one.
#include "Kel/Memory.h"

#include <pthread.h>
#include <sys/mman.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "Kel/MemoryReady.h"

namespace Kel {
namespace {

constexpr std::size_t kGrain = 16;
constexpr std::size_t kLine = 64; // of a cache
constexpr std::size_t kRowBytes = 1024;
constexpr std::size_t kClasses = kKelMemLargestClass / kGrain;
constexpr std::size_t kChunkBytes = 64 * 1024;
constexpr std::size_t kSmallChunks = 64; // those that are taken later are huge
constexpr std::size_t kHugeBytes = 2 * 1024 * 1024;
constexpr std::size_t kPageBytes = 4096; // the smallest there are
constexpr std::size_t kReady = 2;        // chunks that are kept so

struct FreeBlock {
  FreeBlock* next;
};

struct FreeList {
  FreeBlock* head;
  std::size_t length;
  void push(void* block) noexcept {
    head = new (block) FreeBlock{head};
    ++length;
  }
};

// The part of a chunk that no block has been taken from.
struct Rest {
  std::byte* begin;
  std::byte* end;
  [[nodiscard]] std::size_t bytes() const noexcept { return static_cast<std::size_t>(end - begin); }
};

// What the threads share: every chunk ever taken (so that a leak checker reaches all blocks); what threads
// that free more than they allocate, and those that have ended, leave to the others.
struct Shared {
  std::mutex mutex;
  std::vector<void*> chunks;
  std::size_t mappedBytes = 0;
  std::array<std::vector<FreeList>, kClasses + 1> surplus;
  std::vector<Rest> rests;             // each larger than the largest block
  std::vector<Rest> ready;             // whole chunks, each page of them touched
  std::condition_variable_any isShort; // there may be fewer of these than should be
  pthread_key_t exit;                  // its destructor runs after those of all thread_local objects
  Shared();
};

Shared& shared() {
  static auto* const instance = new Shared; // outlives every static that may still free a block
  return *instance;
}

struct ThreadLists {
  std::array<FreeList, kClasses + 1> free;
  Rest rest;
};

// Plain data without constructor or destructor: valid at any time in a thread's life. Initial-exec access
// keeps the fast path free of a call into the loader.
__attribute__((tls_model("initial-exec"))) thread_local constinit ThreadLists lists{};

// A list that grows to this length is handed to the others as one batch.
constexpr std::size_t kBatch = 4096;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPassThrough = true;
#else
constexpr bool kPassThrough = false;
#endif

// What is left of a thread's chunk and too small to be handed on becomes a block.
void restToBlock(ThreadLists& mine) noexcept {
  if (std::size_t const index = mine.rest.bytes() / kGrain; index != 0)
    mine.free[index].push(mine.rest.begin);
  mine.rest = {nullptr, nullptr};
}

// One that begins where a huge page can. Null when there is none to be had.
std::byte* mapHuge() noexcept {
  constexpr std::size_t kMapped = 2 * kHugeBytes; // one of them lies wholly in it
  void* const mapped = mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  auto* const begin = static_cast<std::byte*>(mapped);
  std::size_t const before = -reinterpret_cast<std::uintptr_t>(begin) % kHugeBytes;
  if (before > 0) munmap(begin, before);
  munmap(begin + before + kHugeBytes, kHugeBytes - before);
  madvise(begin + before, kHugeBytes, MADV_HUGEPAGE);
  return begin + before;
}

bool isReadyShort(Shared const& all) noexcept {
  return all.chunks.size() >= kSmallChunks && all.ready.size() < kReady;
}

Rest takeChunk(Shared& all) {
  if (!all.ready.empty()) {
    Rest const chunk = all.ready.back();
    all.ready.pop_back();
    all.isShort.notify_one();
    return chunk;
  }
  if (all.chunks.size() >= kSmallChunks) all.isShort.notify_one();
  std::byte* const huge = all.chunks.size() < kSmallChunks ? nullptr : mapHuge();
  std::byte* const chunk = huge != nullptr ? huge : static_cast<std::byte*>(::operator new(kChunkBytes));
  all.chunks.push_back(chunk);
  all.mappedBytes += huge != nullptr ? kHugeBytes : 0;
  return {chunk, chunk + (huge != nullptr ? kHugeBytes : kChunkBytes)};
}

[[gnu::noinline]] void* refill(std::size_t index) {
  ThreadLists& mine = lists;
  Shared& all = shared();
  std::lock_guard<std::mutex> const guard(all.mutex);
  pthread_setspecific(all.exit, &mine);
  if (auto& surplus = all.surplus[index]; !surplus.empty()) {
    FreeList const list = surplus.back();
    surplus.pop_back();
    mine.free[index] = {list.head->next, list.length - 1};
    return list.head;
  }
  restToBlock(mine);
  if (!all.rests.empty()) {
    mine.rest = all.rests.back();
    all.rests.pop_back();
  } else {
    mine.rest = takeChunk(all);
  }
  return std::exchange(mine.rest.begin, mine.rest.begin + index * kGrain);
}

// Blocks that fill whole cache lines begin with one, several in a row; what lies before them becomes a block.
void* carveLines(std::size_t index) {
  ThreadLists& mine = lists;
  std::size_t const bytes = index * kGrain;
  std::size_t const before = -reinterpret_cast<std::uintptr_t>(mine.rest.begin) % kLine;
  std::size_t const row = (kRowBytes / bytes) * bytes;
  if (mine.rest.bytes() < before + row) return nullptr;
  if (before > 0) mine.free[before / kGrain].push(mine.rest.begin);
  std::byte* const first = mine.rest.begin + before;
  mine.rest.begin = first + row;
  for (std::byte* at = mine.rest.begin - bytes; at != first; at -= bytes)
    mine.free[index].push(at);
  return first;
}

void* carve(std::size_t index) {
  ThreadLists& mine = lists;
  std::size_t const bytes = index * kGrain;
  if (bytes % kLine == 0)
    if (void* const first = carveLines(index)) return first;
  if (mine.rest.bytes() < bytes) return refill(index);
  return std::exchange(mine.rest.begin, mine.rest.begin + bytes);
}

// Appends to the surplus of a class. Small lists of threads that end are joined, so that taking one is worth
// its lock.
void leave(Shared& all, std::size_t index, FreeList list) {
  auto& surplus = all.surplus[index];
  if (!surplus.empty() && surplus.back().length + list.length <= kBatch) {
    FreeBlock* last = list.head;
    while (last->next != nullptr)
      last = last->next;
    last->next = surplus.back().head;
    surplus.back() = {list.head, list.length + surplus.back().length};
  } else {
    surplus.push_back(list);
  }
}

[[gnu::noinline]] void giveAway(std::size_t index) noexcept {
  Shared& all = shared();
  std::lock_guard<std::mutex> const guard(all.mutex);
  leave(all, index, std::exchange(lists.free[index], {nullptr, 0}));
}

// The thread ends: what it holds goes to the others. Should it take blocks even after this, this runs again.
void threadEnds(void* ending) noexcept {
  auto& mine = *static_cast<ThreadLists*>(ending);
  Shared& all = shared();
  std::lock_guard<std::mutex> const guard(all.mutex);
  if (mine.rest.bytes() > kKelMemLargestClass)
    all.rests.push_back(std::exchange(mine.rest, {nullptr, nullptr}));
  else
    restToBlock(mine);
  for (std::size_t index = 1; index <= kClasses; ++index)
    if (mine.free[index].head != nullptr) leave(all, index, std::exchange(mine.free[index], {nullptr, 0}));
}

Shared::Shared() {
  if (pthread_key_create(&exit, &threadEnds) != 0) throw std::bad_alloc();
}

std::size_t classOf(std::size_t size) noexcept { return size == 0 ? 1 : (size + kGrain - 1) / kGrain; }

} // namespace

void* kelMemAlloc(std::size_t size) {
  if (kPassThrough || size > kKelMemLargestClass) return ::operator new(size);
  std::size_t const index = classOf(size);
  FreeList& list = lists.free[index];
  if (FreeBlock* const block = list.head) {
    list.head = block->next;
    --list.length;
    __builtin_prefetch(list.head); // the next one may have lain idle for long
    return block;
  }
  return carve(index);
}

void kelMemFree(void* block, std::size_t size) noexcept {
  if (block == nullptr) return;
  if (kPassThrough || size > kKelMemLargestClass) {
    ::operator delete(block);
    return;
  }
  std::size_t const index = classOf(size);
  FreeList& list = lists.free[index];
  list.push(block);
  if (list.length >= kBatch) [[unlikely]]
    giveAway(index);
}

void kelMemKeepReady(std::stop_token const& stop) {
  Shared& all = shared();
  std::unique_lock<std::mutex> lock(all.mutex);
  all.ready.reserve(kReady);
  while (all.isShort.wait(lock, stop, [&all] { return isReadyShort(all); })) {
    lock.unlock();
    std::byte* const chunk = mapHuge();
    for (std::size_t at = 0; chunk != nullptr && at < kHugeBytes; at += kPageBytes)
      *const_cast<std::byte volatile*>(chunk + at) = std::byte(0);
    lock.lock();
    if (chunk == nullptr) return; // there is no memory: whoever asks for it says so
    all.chunks.push_back(chunk);
    all.mappedBytes += kHugeBytes;
    all.ready.push_back({chunk, chunk + kHugeBytes});
  }
}

MemStats kelMemStats() {
  Shared const& all = shared();
  std::lock_guard<std::mutex> const guard(shared().mutex);
  std::size_t const small = all.chunks.size() - all.mappedBytes / kHugeBytes;
  return {small * kChunkBytes + all.mappedBytes, all.mappedBytes, all.chunks.size()};
}

} // namespace Kel
