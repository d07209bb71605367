// A value of any type behind a count of its own. For handles and for values by key of run-time types; users
// of the model never meet it.
#pragma once

#include <cstddef>
#include <memory>

#include "Kel/Desc.h"
#include "Kel/PtrInterface.h"

namespace Kel {

class alignas(16) ValueBox final : public PtrInterface {
public:
  // With uninitialised storage: the caller constructs a value there, which the box ends with itself.
  [[nodiscard]] static ValueBox* make(TypeDesc const& type) {
    void* const block = kelMemAlloc(sizeof(ValueBox) + type.ops.size);
    return ::new (block) ValueBox(type);
  }
  [[nodiscard]] static Ptr<ValueBox> copyOf(TypeDesc const& type, void const* raw) {
    Ptr<ValueBox> box(make(type));
    type.ops.copy(type, box->storage(), raw);
    return box;
  }
  [[nodiscard]] void* storage() noexcept { return this + 1; }
  [[nodiscard]] void const* storage() const noexcept { return this + 1; }

private:
  explicit ValueBox(TypeDesc const& type) noexcept : type_(type) {}
  void handleZeroRef() const noexcept override {
    auto* const self = const_cast<ValueBox*>(this);
    std::size_t const bytes = sizeof(ValueBox) + type_.ops.size;
    type_.ops.destroy(type_, self->storage());
    std::destroy_at(self);
    kelMemFree(self, bytes);
  }

  TypeDesc const& type_;
};

// The value lies in 16 bytes that are given, and needs no box.
[[nodiscard]] inline bool fitsInline(TypeDesc const& type) noexcept {
  return type.ops.size <= kInlineValueBytes && type.ops.align <= 8;
}

} // namespace Kel
