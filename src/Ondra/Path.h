// Ondra::Path: a path through the object tree, the library's counterpart of a gNMI path. Messages of {fmt}
// print one with Ondra/PathFormat.h.
#pragma once

#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kstd/Export.h"
#include "Ondra/PathElem.h"
#include "Tovak/HashMix.h"

namespace gnmi {
class Notification;
class Path;
} // namespace gnmi

namespace Ondra {
class Path;
}

namespace Kel::Impl {
template <>
struct KTD_EXPORT DeclaredType<Ondra::Path> {
  static TypeDesc& desc();
};
} // namespace Kel::Impl

namespace Ondra {

// A sequence of shared elements, the first one closest to the root, and nothing else. A counted object of the
// model: built once, by its holder, then used as a key that nobody changes. Lives on the scheduler thread.
//
// Elements are shared, not copied: the cheap way to extend a path is to `push` an element that exists
// already. To change an element of a path that may be shared, build a new one and `replace` it.
class KTD_EXPORT Path final : public Kel::PtrInterface, private Kel::TrackedObject<Path> {
public:
  using ElemPtr = Kel::Ptr<PathElem const>; // shared: never changed by a path

  using Kel::TrackedObject<Path>::operator new;
  using Kel::TrackedObject<Path>::operator delete;

  // The empty path. Library code uses the factories, which also mark the path notification-active.
  Path() = default;

  // --- making paths ------------------------------------------------------------------------------
  [[nodiscard]] static Kel::Ptr<Path> PathIs(); // an empty path
  // A path with the elements of `path`.
  [[nodiscard]] static Kel::Ptr<Path> makePath(Kel::Ptr<Path const> const& path);
  // The elements of the first, then those of the second.
  [[nodiscard]] static Kel::Ptr<Path> joinPath(Kel::Ptr<Path const> const& path1,
                                               Kel::Ptr<Path const> const& path2);
  // One element without keys per name.
  [[nodiscard]] static Kel::Ptr<Path> simplePathIs(std::vector<std::string> names);
  // Parses the text form: elements joined by "/", each a name with key groups "[key=value]", a leading "/" at
  // will. In a value brackets may nest and a backslash takes the next character as it is. For texts that the
  // program made itself: a malformed one is an assertion failure.
  [[nodiscard]] static Kel::Ptr<Path> strToPathIs(std::string_view const& text);
  // From the elements of a gNMI path; its other fields are left out.
  [[nodiscard]] static Kel::Ptr<Path> gnmiPathIs(gnmi::Path const& gnmiPath);

  // --- elements ----------------------------------------------------------------------------------
  [[nodiscard]] std::size_t elemSize() const noexcept { return elem_.size(); } // the length
  [[nodiscard]] bool empty() const noexcept { return elem_.empty(); }          // no elements
  // The element, for whoever built it to complete it. Throws std::out_of_range.
  [[nodiscard]] Kel::Ptr<PathElem> elem(std::size_t index) const;
  // All elements, without counting references. Valid until the path changes.
  [[nodiscard]] std::span<ElemPtr const> elems() const noexcept { return {elem_.data(), elem_.size()}; }

  // Appends a new element, to be filled by the caller.
  Kel::Ptr<PathElem> addElem();
  // Appends an element, which must not be null.
  void push(ElemPtr elem) { elem_.push_back(std::move(elem)); }
  // Puts another element in a slot. Throws std::out_of_range.
  void replace(std::size_t index, ElemPtr elem);
  // Takes the elements of `other` instead of its own.
  void copyFrom(Kel::Ptr<Path const> const& other);
  // Appends the elements of `other`, which may be this very path.
  void mergeFrom(Kel::Ptr<Path const> const& other);

  // --- comparing ---------------------------------------------------------------------------------
  // Equal elements in the same order. Null equals nothing.
  [[nodiscard]] bool isEqual(Kel::Ptr<Path const> const& other) const { return isEqual(other.get()); }
  [[nodiscard]] bool isEqual(Path const* other) const {
    if (this == other) return true;
    if (other == nullptr || elem_.size() != other->elem_.size()) return false;
    auto const mine = elems(), theirs = other->elems();
    for (std::size_t i = 0; i < mine.size(); ++i)
      if (!mine[i]->isEqual(theirs[i].get())) return false;
    return true;
  }
  // Whether `path` begins with `prefix`. An element of the prefix without keys stands for any keys; one with
  // keys must match exactly. The empty path is a prefix of every path; there are no wildcards.
  [[nodiscard]] static bool isPrefix(Kel::Ptr<Path const> const& prefix, Kel::Ptr<Path const> const& path);
  // Whether the prefix of a notification begins with `prefix`.
  [[nodiscard]] static bool isNotifPrefix(Kel::Ptr<Path const> const& prefix,
                                          gnmi::Notification const& notification);

  // Agrees with `isEqual`.
  [[nodiscard]] std::uint64_t hash() const {
    std::uint64_t state = Tovak::Impl::HashMix::stateStart;
    for (ElemPtr const& elem : elem_)
      Tovak::Impl::HashMix::mixFixedLen<8>(state, elem->hash());
    return state;
  }

  // --- printing: nothing is escaped, keys come sorted --------------------------------------------
  // "/interfaces/interface[name=eth1]/state"; the empty path is the empty text.
  [[nodiscard]] std::string toString() const;
  // "interfaces__interface[name=eth1]__state", where a path must be one token.
  [[nodiscard]] std::string toKeyString() const;
  // From element `start` on; the empty text when there is none.
  [[nodiscard]] std::string toSubString(std::size_t start, bool leadingSep) const;

  // Appends the elements to a gNMI path, which must have none yet (asserted); its other fields are left
  // alone.
  void copyToGnmiPath(gnmi::Path* gnmiPath) const;

  [[nodiscard]] Kel::KelType fwkType() const override;

private:
  // Longer paths take their storage from the model's free lists.
  static constexpr std::size_t kInlineElems = 5;

  ~Path() override = default;

  absl::InlinedVector<ElemPtr, kInlineElems, Kel::MemAllocator<ElemPtr, Path>> elem_;
};

} // namespace Ondra

// Paths hash and compare by their elements, never by identity alone; null is allowed in comparisons only.
template <>
struct std::hash<Kel::Ptr<Ondra::Path const>> {
  std::size_t operator()(Kel::Ptr<Ondra::Path const> const& path) const { return path->hash(); }
};
template <>
struct std::hash<Kel::Ptr<Ondra::Path>> {
  std::size_t operator()(Kel::Ptr<Ondra::Path> const& path) const { return path->hash(); }
};
template <>
struct std::equal_to<Kel::Ptr<Ondra::Path const>> {
  bool operator()(Kel::Ptr<Ondra::Path const> const& a, Kel::Ptr<Ondra::Path const> const& b) const {
    return a == b || (a && a->isEqual(b.get()));
  }
};
template <>
struct std::equal_to<Kel::Ptr<Ondra::Path>> {
  bool operator()(Kel::Ptr<Ondra::Path> const& a, Kel::Ptr<Ondra::Path> const& b) const {
    return a == b || (a && a->isEqual(b.get()));
  }
};
