// Kel::GenericIf: the generic handle to one object or one value of any type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <utility>

#include "Kel/Desc.h"
#include "Kel/PtrInterface.h"
#include "Kel/Type.h"
#include "Kstd/Export.h"

namespace Kel {

// The state of a collection iteration: where it stands, by key. Survives any change of the collection, at any
// moment, and keeps the object that holds the collection alive. Whatever the kind of collection, it is in one
// of four states:
//
//   state | stands at                         | the test, when that member has gone | ++
//   ------+-----------------------------------+-------------------------------------+--------------------------------------
//   Fresh | a member that was not given yet   | goes to the next one: Fresh         | goes to the next one: Fresh
//   Given | a member whose key or value has   | goes to the next one: Moved         | goes to the next one: Fresh
//         | been asked for                    |                                     |
//   Moved | one that took the place of a      | goes to the next one: Moved         | stays (goes to the next one when it
//         | given one and was not given yet   |                                     | has gone): Fresh
//   Ended | nothing, for good                 | false                               | stays
//
// "The next one" has the smallest greater key at that moment; when there is none, the iteration has ended and
// stays so, whatever is added later. So each member is given once, and none that was there all the time is
// left out. Only the test and ++ move: `key` and `value` speak of the same member. The value is null when
// that member has gone since; at the end both are null. Arrays stand at an index instead of a key, and the
// collections of types with hooks of their own do not give what is added meanwhile. docs/decisions.md: "Where
// does an iterator stand when its member goes?"
class KTD_EXPORT Cursor : public PtrInterface {
public:
  [[nodiscard]] virtual bool valid() = 0;                 // the test
  virtual void advance() = 0;                             // ++
  [[nodiscard]] virtual Ptr<GenericIf const> key() = 0;   // see above
  [[nodiscard]] virtual Ptr<GenericIf const> value() = 0; // see above
  // The object that is the member so many steps from here, 0 being the current one; null when there is none,
  // when members are no objects, and whenever the cursor would have to look for it. A hint, which counts as
  // no giving: for whoever wants to have it at hand in time.
  [[nodiscard]] virtual PtrInterface const* objectAhead(std::size_t steps) const noexcept {
    static_cast<void>(steps);
    return nullptr;
  }
  // The same of several at once, from the current one on.
  virtual void objectsAhead(std::span<PtrInterface const*> objects) const noexcept {
    for (PtrInterface const*& object : objects)
      object = nullptr;
  }
};

// The raw view of a handle.
class KTD_EXPORT GenericIfRaw {
public:
  // An iteration without its members, see `GenericIf::Iterator`.
  class Iterator {
  public:
    Iterator() = default;                                                          // has ended
    explicit Iterator(Ptr<Cursor> cursor) noexcept : cursor_(std::move(cursor)) {} // null: has ended
    Iterator(Iterator&&) noexcept = default;
    Iterator& operator=(Iterator&&) noexcept = default;

    // A current member exists.
    explicit operator bool() const { return cursor_ && cursor_->valid(); }
    Iterator& operator++() {
      if (cursor_) cursor_->advance();
      return *this;
    }

  protected:
    Ptr<Cursor> cursor_; // where it stands
  };

  [[nodiscard]] static GenericIfRaw fromGif(GenericIf const& handle) noexcept; // valid as long as the handle

  TypeDesc const* type = nullptr; // of what the handle is to
  void const* data = nullptr;     // its raw form
};

// A handle holds a scalar in itself, refers to any other value in place (and then keeps its owner alive), or
// refers to an object. Handles through which one may write are `Ptr<GenericIf>`: to objects, and to detached
// values. Handles to values inside an object are `Ptr<GenericIf const>`; to change such a value, clone it,
// change the clone, and set it. Made and dropped in nanoseconds (`kelMemAlloc`), on the scheduler thread.
class KTD_EXPORT GenericIf final : public PtrInterface {
public:
  class NotifieeConst;

  using AttributeOp = Kel::AttributeOp; // what dispatchers are asked

  // Goes through a collection as `Cursor` says: `for (auto it = attr.genericIfIteratorConst(object); it;
  // ++it)`. Moved, not copied.
  class Iterator : public GenericIfRaw::Iterator {
  public:
    using GenericIfRaw::Iterator::Iterator;
    // Null at the end.
    [[nodiscard]] Ptr<GenericIf const> key() const { return cursor_ ? cursor_->key() : nullptr; }
    // Null at the end, and when the member has gone.
    [[nodiscard]] Ptr<GenericIf const> ptr() const { return cursor_ ? cursor_->value() : nullptr; }
    // As `Cursor::objectAhead`.
    [[nodiscard]] PtrInterface const* objectAhead(std::size_t steps) const noexcept {
      return cursor_ ? cursor_->objectAhead(steps) : nullptr;
    }
    // As `Cursor::objectsAhead`. REQUIRES that it is not at the end.
    void objectsAhead(std::span<PtrInterface const*> objects) const noexcept {
      cursor_->objectsAhead(objects);
    }
  };

  // --- making handles; see also KelType::genericIf -------------------------------------------------
  // A detached value copied from its raw form.
  [[nodiscard]] static Ptr<GenericIf> copyOf(TypeDesc const& type, void const* raw);
  // A detached value that is the type's default.
  [[nodiscard]] static Ptr<GenericIf> defaultOf(TypeDesc const& type);
  // A value inside `owner`, in place: scalars are copied into the handle all the same.
  [[nodiscard]] static Ptr<GenericIf const> inPlace(TypeDesc const& type, void const* raw,
                                                    PtrInterface const& owner);
  // An object.
  [[nodiscard]] static Ptr<GenericIf> toObject(PtrInterface* object);
  [[nodiscard]] static Ptr<GenericIf const> toObject(PtrInterface const* object);
  // An entity by weak identity: it compares and hashes like the entity, does not keep it alive, and
  // `object()` is null once the entity has gone.
  [[nodiscard]] static Ptr<GenericIf const> weak(Entity const& entity);
  [[nodiscard]] static Ptr<GenericIf const> weak(TypeDesc const& type, PtrInterface const& anchor);

  // --- asking ----------------------------------------------------------------------------------------
  [[nodiscard]] KelType type() const noexcept { return KelType(type_); } // of the object or value
  // The address of the object or value seen as `type`: a `PtrInterface*` for objects (their own type and
  // those it extends), else the raw form of the value (its own type only). Null when it is none of that type.
  [[nodiscard]] void* voidPtrIs(KelType type) const noexcept;
  // The object behind the handle; null for a value, and for a weak handle whose entity has gone.
  [[nodiscard]] PtrInterface* object() const noexcept;
  // The raw form of the value; for an object its `PtrInterface*`.
  [[nodiscard]] void* data() const noexcept { return data_; }
  // What keeps `data` alive: the object itself, the holder of the value, a box, or this handle; of a weak
  // one, the identity.
  [[nodiscard]] PtrInterface const& owner() const noexcept { return owner_ != nullptr ? *owner_ : *this; }

  // The held value when this is a scalar of kind T (`Kel::String`, bool, char, 8 to 64-bit integers, float,
  // double, `Kel::Time`, `Kel::Seconds`, `Kel::Bytes`, `Kel::JsonString`); else null. Valid while the handle
  // lives.
  template <class T>
  [[nodiscard]] T const* attrValPtr() const noexcept;

  // The text form: parses back through KelType::genericIf(text). References and structures print for people
  // only.
  [[nodiscard]] std::string strRep() const;
  // The gNMI string representation; for types without one, the plain text of the value.
  [[nodiscard]] std::string gnmiStrRep() const;
  // The gNMI byte representation, of types that have one.
  [[nodiscard]] std::string gnmiByterep() const;
  // Agrees with `equals`.
  [[nodiscard]] std::uint64_t hash() const;
  // Same type and equal value; for objects identity.
  [[nodiscard]] bool equals(GenericIf const& other) const;
  // A total order over values of one type; handles of different types are ordered by type.
  [[nodiscard]] int compare(GenericIf const& other) const;

  // A detached copy that may be written to; of an object, a second handle to the object itself.
  [[nodiscard]] Ptr<GenericIf> clone() const;
  // What may be kept past the present turn: a detached copy of a value, a weak identity of an entity.
  [[nodiscard]] Ptr<GenericIf const> detachedKey() const;

private:
  friend class Ptr<GenericIf>;
  GenericIf(TypeDesc const* type, void* data, PtrInterface const* owner) noexcept;
  explicit GenericIf(TypeDesc const* type) noexcept : type_(type), data_(inline_) {}
  ~GenericIf() override;
  void handleZeroRef() const noexcept override;

  TypeDesc const* type_;
  void* data_;
  PtrInterface const* owner_ = nullptr; // counted by hand; for a weak handle the anchor of the entity
  alignas(8) unsigned char inline_[kInlineValueBytes];
};

// Turns the raw key of a notification into a handle.
class KTD_EXPORT GenericIf::NotifieeConst {
public:
  // Null for a null key. The handle is a detached copy.
  [[nodiscard]] static Ptr<GenericIf const> keyPointerToGif(KelAttr const& attr, void const* key);
};

// The descriptor of a builtin.
[[nodiscard]] KTD_EXPORT TypeDesc& builtinDesc(BuiltinKind kind);

namespace Impl {
template <class T>
inline constexpr BuiltinKind kBuiltinOf = BuiltinKind::None;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::uint8_t> = BuiltinKind::U8;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::int8_t> = BuiltinKind::S8;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::uint16_t> = BuiltinKind::U16;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::int16_t> = BuiltinKind::S16;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::uint32_t> = BuiltinKind::U32;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::int32_t> = BuiltinKind::S32;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::uint64_t> = BuiltinKind::U64;
template <>
inline constexpr BuiltinKind kBuiltinOf<std::int64_t> = BuiltinKind::S64;
template <>
inline constexpr BuiltinKind kBuiltinOf<bool> = BuiltinKind::Bool;
template <>
inline constexpr BuiltinKind kBuiltinOf<char> = BuiltinKind::Char;
template <>
inline constexpr BuiltinKind kBuiltinOf<float> = BuiltinKind::Float;
template <>
inline constexpr BuiltinKind kBuiltinOf<double> = BuiltinKind::Double;
template <>
inline constexpr BuiltinKind kBuiltinOf<String> = BuiltinKind::String;
template <>
inline constexpr BuiltinKind kBuiltinOf<Bytes> = BuiltinKind::Bytes;
template <>
inline constexpr BuiltinKind kBuiltinOf<Seconds> = BuiltinKind::Seconds;
template <>
inline constexpr BuiltinKind kBuiltinOf<Time> = BuiltinKind::Time;
template <>
inline constexpr BuiltinKind kBuiltinOf<JsonString> = BuiltinKind::JsonString;

// The descriptor of a type that is no builtin; defined with the declarations (Kel/Declare.h). One for the
// whole process, whichever library asks: hence exported, and out of line in the unit that declares the type.
template <class T>
struct KTD_EXPORT DeclaredType {
  static TypeDesc& desc();
};
} // namespace Impl

// The descriptor of a C++ type of the model. Builtins have theirs; declared types get theirs on first
// mention, and it is completed by their declaration.
template <class T>
[[nodiscard]] TypeDesc& descOf() {
  if constexpr (Impl::kBuiltinOf<T> != BuiltinKind::None)
    return builtinDesc(Impl::kBuiltinOf<T>);
  else
    return Impl::DeclaredType<T>::desc();
}

// The same as a `KelType`.
template <class T>
[[nodiscard]] KelType typeOf() {
  return KelType(&descOf<T>());
}

// See the class.
template <class T>
T const* GenericIf::attrValPtr() const noexcept {
  static_assert(Impl::kBuiltinOf<T> != BuiltinKind::None, "not a scalar kind of the model");
  return type_->builtin == Impl::kBuiltinOf<T> && type_->kind == TypeKind::Builtin
             ? static_cast<T const*>(data_)
             : nullptr;
}

// A detached handle to a value of a C++ type of the model.
template <class T>
[[nodiscard]] Ptr<GenericIf> handleOf(T const& value) {
  return GenericIf::copyOf(descOf<T>(), &value);
}

} // namespace Kel
