// Tovak::Allocator: a standard allocator that counts what it hands out.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <typeinfo>

#include "Kstd/Export.h"
#include "Tovak/String.h"

namespace Tovak {

// What is allocated at the moment for one type. There is one record per type in the process, made at the
// type's first allocation and never freed. Counted with relaxed atomics from any thread, so two numbers of a
// record that is in use need not belong to the same instant.
class AllocationRecord {
public:
  explicit AllocationRecord(String typeName) : typeName_(static_cast<String&&>(typeName)) {}

  // The type's name as written in C++.
  String const& typeName() const { return typeName_; }
  std::int64_t liveBytes() const { return liveBytes_.load(std::memory_order_relaxed); }
  // Elements of the live blocks: 1 for each object of std::allocate_shared, the capacity for a vector.
  std::int64_t liveObjects() const { return liveObjects_.load(std::memory_order_relaxed); }

  void add(std::int64_t bytes, std::int64_t objects) {
    liveBytes_.fetch_add(bytes, std::memory_order_relaxed);
    liveObjects_.fetch_add(objects, std::memory_order_relaxed);
  }

private:
  String const typeName_;
  std::atomic<std::int64_t> liveBytes_{0};
  std::atomic<std::int64_t> liveObjects_{0};
};

namespace Impl {
// The process's record of a type; the same for equal types whichever shared object asks.
KTD_EXPORT AllocationRecord& allocationRecord(std::type_info const& type);
} // namespace Impl

// One line "<type>: <bytes> bytes, <objects> objects" per type that has live objects, in the order of the
// names.
KTD_EXPORT String allocatorDump();

// A standard allocator over the general heap that counts live bytes and objects by type. It is stateless: all
// instances are equal. Rebinding, as containers and std::allocate_shared do, keeps counting under `Counted`,
// the type that was asked for: `std::allocate_shared<Ir>(Tovak::Allocator<Ir>())` is counted as one Ir,
// including its reference counts.
template <typename T, typename Counted = T>
class Allocator {
public:
  using value_type = T;

  template <typename U>
  struct rebind {
    using other = Allocator<U, Counted>;
  };

  Allocator() noexcept = default;
  template <typename U>
  Allocator(Allocator<U, Counted> const&) noexcept {}

  T* allocate(size_t count) {
    if (count > std::numeric_limits<size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
    size_t const bytes = count * sizeof(T);
    void* const block =
        overAligned ? ::operator new(bytes, std::align_val_t(alignof(T))) : ::operator new(bytes);
    record().add(static_cast<std::int64_t>(bytes), static_cast<std::int64_t>(count));
    return static_cast<T*>(block);
  }

  void deallocate(T* block, size_t count) noexcept {
    size_t const bytes = count * sizeof(T);
    record().add(-static_cast<std::int64_t>(bytes), -static_cast<std::int64_t>(count));
    if constexpr (overAligned)
      ::operator delete(block, bytes, std::align_val_t(alignof(T)));
    else
      ::operator delete(block, bytes);
  }

  static AllocationRecord& record() {
    static AllocationRecord& typeRecord = Impl::allocationRecord(typeid(Counted));
    return typeRecord;
  }

  template <typename U>
  bool operator==(Allocator<U, Counted> const&) const noexcept {
    return true;
  }

private:
  static constexpr bool overAligned = alignof(T) > __STDCPP_DEFAULT_NEW_ALIGNMENT__;
};

} // namespace Tovak
