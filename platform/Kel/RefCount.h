// Intrusive reference counts of the model, and the process-wide switch that says how they change.
#pragma once

#include <atomic>
#include <cstdint>

#include "Kstd/Export.h"

namespace Kel {

class KTD_EXPORT VFPtrInterface {
public:
  // Set: reference counts change atomically, so that handles may be dropped on any thread. Clear (the
  // default): plain arithmetic, for a process in which only the scheduler thread holds handles. To be set
  // before the first object is made.
  static bool threadSafePointers_;
};

// One reference count. Starts at 0: the first `Ptr` takes it to 1.
class RefCount {
public:
  void add() const noexcept {
    if (VFPtrInterface::threadSafePointers_) [[unlikely]]
      count_.fetch_add(1, std::memory_order_relaxed);
    else
      count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }

  // True when this dropped the last reference.
  [[nodiscard]] bool drop() const noexcept {
    if (VFPtrInterface::threadSafePointers_) [[unlikely]]
      return count_.fetch_sub(1, std::memory_order_acq_rel) == 1;
    std::uint32_t const left = count_.load(std::memory_order_relaxed) - 1;
    count_.store(left, std::memory_order_relaxed);
    return left == 0;
  }

  // Adds a reference unless the count is 0 already (the object is on its way out); says whether it did.
  [[nodiscard]] bool addUnlessZero() const noexcept {
    std::uint32_t seen = count_.load(std::memory_order_relaxed);
    while (seen != 0)
      if (count_.compare_exchange_weak(seen, seen + 1, std::memory_order_relaxed)) return true;
    return false;
  }

  [[nodiscard]] std::uint32_t value() const noexcept { return count_.load(std::memory_order_relaxed); }

private:
  mutable std::atomic<std::uint32_t> count_{0};
};

} // namespace Kel
