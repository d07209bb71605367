// Kel::Ptr: the intrusive shared pointer of the object model.
#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace Kel {

// Holds one reference to a `PtrInterface` (or is null). Copying adds a reference, destruction drops one, and
// the last drop runs the object's `handleZeroRef`. Equality is identity. Not safe for concurrent use of one
// `Ptr`; whether two `Ptr`s to one object may live on two threads is `VFPtrInterface::threadSafePointers_`.
template <class T>
class Ptr {
public:
  using element_type = T; // as standard pointers have it

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {} // null
  // Adds a reference. A new object has none: `Ptr<Port>(new Port())`.
  explicit Ptr(T* object) noexcept : object_(object) {
    if (object_ != nullptr) object_->ref();
  }
  Ptr(Ptr const& other) noexcept : Ptr(other.object_) {}
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  // From a pointer to a class derived from T.
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other)
  noexcept : Ptr(other.get()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}
  ~Ptr() {
    if (object_ != nullptr) object_->unref();
  }

  Ptr& operator=(Ptr const& other) noexcept {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }

  // The object, without a reference of its own.
  [[nodiscard]] T* get() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  T* operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  void reset() noexcept { Ptr().swap(*this); }                          // becomes null
  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); } // counts nothing

  // Gives the reference up without dropping it; the caller owns it now.
  [[nodiscard]] T* release() noexcept { return std::exchange(object_, nullptr); }
  // Takes over a reference that the caller owns, without adding one.
  [[nodiscard]] static Ptr adopt(T* object) noexcept {
    Ptr taken;
    taken.object_ = object;
    return taken;
  }

  friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

private:
  T* object_ = nullptr;
};

template <class T, class U>
bool operator==(Ptr<T> const& a, Ptr<U> const& b) noexcept {
  return a.get() == b.get();
}

// The object seen as a T. REQUIRES that it is one (unchecked).
template <class T, class U>
[[nodiscard]] Ptr<T> staticPtrCast(Ptr<U> const& from) noexcept {
  return Ptr<T>(static_cast<T*>(from.get()));
}

// The object seen as a T, or null when it is none.
template <class T, class U>
[[nodiscard]] Ptr<T> dynamicPtrCast(Ptr<U> const& from) noexcept {
  return Ptr<T>(dynamic_cast<T*>(from.get()));
}

} // namespace Kel

// Identity, unless a library gives a type of its own a structural hash (as the path types do).
template <class T>
struct std::hash<Kel::Ptr<T>> {
  std::size_t operator()(Kel::Ptr<T> const& p) const noexcept { return std::hash<T*>{}(p.get()); }
};
