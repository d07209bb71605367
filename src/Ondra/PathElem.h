// Ondra::PathElem: one element of a path, a name with keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "Kel/Allocator.h"
#include "Kel/HashMap2018.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kel/String.h"
#include "Kstd/Export.h"

namespace Ondra {
class PathElem;
}

namespace Kel {
struct TypeDesc;
namespace Impl {
template <class T>
struct DeclaredType;
template <>
struct KTD_EXPORT DeclaredType<Ondra::PathElem> {
  static TypeDesc& desc();
};
} // namespace Impl
} // namespace Kel

namespace Ondra {

// A counted object of the model, shared by the paths that hold it: whoever may not be its only holder builds
// a new element instead of changing this one. Name, key names and values are interned, so equal texts compare
// by address. Any bytes are allowed in all three. Lives on the scheduler thread, which alone may read it: the
// hash is remembered on first use.
class KTD_EXPORT PathElem final : public Kel::PtrInterface, private Kel::TrackedObject<PathElem> {
public:
  using KeyMapType = Kel::HashMap2018<Kel::String, Kel::String>; // name to value

  using Kel::TrackedObject<PathElem>::operator new;
  using Kel::TrackedObject<PathElem>::operator delete;

  // Without name and keys. Library code uses the factories, which also mark the element notification-active.
  PathElem() = default;

  // A new element of that name, without keys.
  [[nodiscard]] static Kel::Ptr<PathElem> PathElemIs(Kel::String const& name = {});
  // A new element with the name and keys of `elem`.
  [[nodiscard]] static Kel::Ptr<PathElem> makePathElem(Kel::Ptr<PathElem const> const& elem);

  [[nodiscard]] Kel::String const& name() const noexcept { return name_; } // without keys
  // In an order of its own. Valid until the next change of the keys.
  [[nodiscard]] KeyMapType const& key() const noexcept { return key_; }

  void nameIs(Kel::String const& name); // of an element that nobody else holds
  // Adds the key or replaces its value.
  void keyIs(Kel::String const& key, Kel::String const& value);
  // Removes the key and returns its value; the empty text when there is no such key.
  Kel::String keyDel(Kel::String const& key);
  void keyDelAll(); // leaves the name alone

  // Same name and same keys with the same values, in whatever order. Null equals nothing.
  [[nodiscard]] bool isEqual(Kel::Ptr<PathElem const> const& other) const { return isEqual(other.get()); }
  [[nodiscard]] bool isEqual(PathElem const* other) const {
    if (this == other) return true;
    if (other == nullptr || !(name_ == other->name_) || key_.size() != other->key_.size()) return false;
    return key_.empty() || keysEqual(*other);
  }

  // Agrees with `isEqual`, and with the hash of the equal gnmi::PathElem. Does not depend on the order of the
  // keys.
  [[nodiscard]] std::uint64_t hash() const { return hash_ != kHashUnknown ? hash_ : computeHash(); }

  [[nodiscard]] Kel::KelType fwkType() const override;

private:
  static constexpr std::uint64_t kHashUnknown = 0; // an element that really hashes to it is hashed each time

  ~PathElem() override = default;
  [[nodiscard]] bool keysEqual(PathElem const& other) const;
  [[nodiscard]] std::uint64_t computeHash() const;

  Kel::String name_;
  KeyMapType key_;
  mutable std::uint64_t hash_ = kHashUnknown; // every change resets it
};

} // namespace Ondra

// Elements hash and compare by what they hold; null is allowed in comparisons only.
template <>
struct std::hash<Kel::Ptr<Ondra::PathElem const>> {
  std::size_t operator()(Kel::Ptr<Ondra::PathElem const> const& elem) const { return elem->hash(); }
};
template <>
struct std::hash<Kel::Ptr<Ondra::PathElem>> {
  std::size_t operator()(Kel::Ptr<Ondra::PathElem> const& elem) const { return elem->hash(); }
};
template <>
struct std::equal_to<Kel::Ptr<Ondra::PathElem const>> {
  bool operator()(Kel::Ptr<Ondra::PathElem const> const& a, Kel::Ptr<Ondra::PathElem const> const& b) const {
    return a == b || (a && a->isEqual(b.get()));
  }
};
template <>
struct std::equal_to<Kel::Ptr<Ondra::PathElem>> {
  bool operator()(Kel::Ptr<Ondra::PathElem> const& a, Kel::Ptr<Ondra::PathElem> const& b) const {
    return a == b || (a && a->isEqual(b.get()));
  }
};
