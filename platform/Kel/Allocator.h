// Allocators of containers. Tables and trees of absl are in the middle of a change when an allocation fails,
// and do not survive it. So memory that runs out here ends the process (std::terminate), whatever the
// container is.
#pragma once

#include <cstddef>
#include <limits>
#include <memory>
#include <typeinfo>

#include "Kel/Memory.h"
#include "Tovak/Allocator.h"

namespace Kel {

// Over the general heap.
template <class T>
struct EndingAllocator : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = EndingAllocator<U>;
  };
  EndingAllocator() noexcept = default;
  template <class U>
  EndingAllocator(EndingAllocator<U> const&) noexcept {}
  [[nodiscard]] T* allocate(std::size_t count) noexcept { return std::allocator<T>::allocate(count); }
};

// Over the model's free lists. Stateless; all instances are equal. What it hands out is counted under
// `Counted` (Tovak::allocatorDump), also after rebinding.
template <class T, class Counted = T>
class MemAllocator {
public:
  using value_type = T;
  static_assert(alignof(T) <= 16, "the free lists align to 16");

  template <class U>
  struct rebind {
    using other = MemAllocator<U, Counted>;
  };

  MemAllocator() noexcept = default;
  template <class U>
  MemAllocator(MemAllocator<U, Counted> const&) noexcept {}

  [[nodiscard]] T* allocate(std::size_t count) noexcept {
    constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
    void* const block = kelMemAlloc(count > kMax / sizeof(T) ? kMax : count * sizeof(T));
    record().add(static_cast<std::int64_t>(count * sizeof(T)), static_cast<std::int64_t>(count));
    return static_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t count) noexcept {
    record().add(-static_cast<std::int64_t>(count * sizeof(T)), -static_cast<std::int64_t>(count));
    kelMemFree(block, count * sizeof(T));
  }
  friend bool operator==(MemAllocator const&, MemAllocator const&) noexcept { return true; }

  [[nodiscard]] static Tovak::AllocationRecord& record() {
    static Tovak::AllocationRecord& mine = Tovak::Impl::allocationRecord(typeid(Counted));
    return mine;
  }
};

// Mixed into a class derived from `PtrInterface` to have its objects counted by type.
template <class T>
struct TrackedObject {
  static void* operator new(std::size_t size) {
    void* const block = kelMemAlloc(size);
    MemAllocator<T>::record().add(static_cast<std::int64_t>(size), 1);
    return block;
  }
  static void operator delete(void* block, std::size_t size) noexcept {
    MemAllocator<T>::record().add(-static_cast<std::int64_t>(size), -1);
    kelMemFree(block, size);
  }
};

} // namespace Kel
