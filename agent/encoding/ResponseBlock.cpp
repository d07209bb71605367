// Full blocks come from mmap and go back to one cache for all threads; small ones, and larger ones, come from
// the heap.
#include "agent/encoding/ResponseBlock.h"

#include <sys/mman.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

namespace Agent {
namespace {

struct Cache {
  std::mutex mutex;
  std::vector<void*> blocks; // the most recently used at the end
};

// Never destroyed: gRPC's threads may drop slices while the process ends.
Cache& cache() {
  static auto* const made = [] {
    auto* const cache = new Cache();
    cache->blocks.reserve(ResponseBlock::kCachedBlocksMax);
    return cache;
  }();
  return *made;
}

void* takeFull() {
  {
    std::lock_guard const guard(cache().mutex);
    if (std::vector<void*>& blocks = cache().blocks; !blocks.empty()) {
      void* const block = blocks.back();
      blocks.pop_back();
      return block;
    }
  }
  void* const block =
      mmap(nullptr, ResponseBlock::kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) throw std::bad_alloc();
  return block;
}

void giveFull(void* block) {
  {
    std::lock_guard const guard(cache().mutex);
    if (cache().blocks.size() < ResponseBlock::kCachedBlocksMax) return cache().blocks.push_back(block);
  }
  munmap(block, ResponseBlock::kBytes);
}

void giveHeap(void* block) { operator delete(block); }

std::size_t sizeFor(std::size_t bytes) {
  if (bytes <= ResponseBlock::kSmallBytes) return ResponseBlock::kSmallBytes;
  return std::max(bytes, ResponseBlock::kBytes);
}

} // namespace

ResponseBlock::ResponseBlock(std::size_t bytes) : size_(sizeFor(bytes)) {
  data_ = static_cast<std::uint8_t*>(size_ == kBytes ? takeFull() : operator new(size_));
}

ResponseBlock::~ResponseBlock() {
  if (data_ != nullptr) (size_ == kBytes ? giveFull : giveHeap)(data_);
}

grpc::Slice ResponseBlock::slice(std::span<std::uint8_t> part) && {
  auto const give = size_ == kBytes ? giveFull : giveHeap;
  size_ = 0;
  return {part.data(), part.size(), give, std::exchange(data_, nullptr)};
}

} // namespace Agent
