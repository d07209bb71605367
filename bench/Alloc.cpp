// The replaced operators, counting for each thread: the plain and the aligned form, in which all others end.
#include "Alloc.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local constinit std::uint64_t calls = 0;

void* allocate(std::size_t size) {
  ++calls;
  if (void* const block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}

void* allocate(std::size_t size, std::align_val_t align) {
  ++calls;
  auto const alignment = static_cast<std::size_t>(align);
  if (void* const block = std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment))
    return block;
  throw std::bad_alloc();
}

} // namespace

std::uint64_t Bench::heapCalls() noexcept { return calls; }

// The array and nothrow forms of the standard library call these.
void* operator new(std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t align) { return allocate(size, align); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
