// Storage of the types that are described wholly at run time. For `TypeBuilder`; users of the model never
// meet it.
//
// Invariants
// 1. The slot of an attribute lies at `AttrDesc::offset` of the raw form, as the member of a declared class
//    does, and holds what that would hold: the raw form of a value, a `Ptr` to an entity, a collection. So
//    the accesses of declared classes serve it, where they do not ask for a C++ type.
// 2. Where a slot lies is decided when its type is completed (`layOut`), the widest first; an attribute with
//    an access of its own has none. A type that extends another one adds its slots behind those of that one.
// 3. Whether an optional value is set says one bit behind the slots. Its slot holds a value at all times:
//    while it is not set, the type's default.
// 4. `ValueOps::size` of a run-time type is the space that all of this takes: the raw form of a value, and
//    what follows the `SlotEntity` of an entity.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "Kel/AccessMembers.h"
#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/ValueBox.h"

namespace Kel {

// A key of any value type: its raw form, in place when it is small, else in a box that nobody writes to.
class SlotKey {
public:
  SlotKey() = default; // no key: nothing but copied, assigned and destroyed
  SlotKey(TypeDesc const& type, void const* raw);
  SlotKey(SlotKey const& other) { copy(other); }
  SlotKey& operator=(SlotKey const& other);
  ~SlotKey() { drop(); }

  [[nodiscard]] TypeDesc const& type() const noexcept { return *type_; }
  [[nodiscard]] void const* data() const noexcept { // the raw form
    return fitsInline(*type_) ? static_cast<void const*>(space_) : box()->storage();
  }

private:
  using Box = Ptr<ValueBox const>;
  [[nodiscard]] Box const& box() const noexcept {
    return *std::launder(reinterpret_cast<Box const*>(space_));
  }
  void copy(SlotKey const& other);
  void drop() noexcept;

  TypeDesc const* type_ = nullptr;
  alignas(8) unsigned char space_[kInlineValueBytes]; // the raw form, or the box that it lies in
};

template <>
struct KeyLess<SlotKey> {
  bool operator()(SlotKey const& a, SlotKey const& b) const {
    return a.type().ops.compare(a.type(), a.data(), b.data()) < 0;
  }
};
template <>
struct KeyTraits<SlotKey> {
  static Ptr<GenericIf const> handle(SlotKey const& key) { return GenericIf::copyOf(key.type(), key.data()); }
  // Raises `Kel::Error` when the handle is not of the attribute's key type.
  static SlotKey from(AttrDesc const& attr, GenericIf const& key);
};

// An entity of a run-time type. Made by `TypeDesc::makeObject`; everything else is an entity's.
class SlotEntity final : public Entity {
public:
  [[nodiscard]] static Ptr<SlotEntity> make(TypeDesc const& type);
  [[nodiscard]] KelType fwkType() const override { return KelType(type_); }
  // Makes the embedded entities that it owns.
  void handleParent() override;

  static void operator delete(SlotEntity* object, std::destroying_delete_t) noexcept;

private:
  struct Extra {
    std::size_t bytes;
  };
  static void* operator new(std::size_t size, Extra extra) { return kelMemAlloc(size + extra.bytes); }
  static void operator delete(void* object, Extra extra) noexcept {
    kelMemFree(object, sizeof(SlotEntity) + extra.bytes);
  }
  explicit SlotEntity(TypeDesc const& type);
  ~SlotEntity() override;

  TypeDesc const* type_;
};

namespace Impl {

// Calls `make` for the C++ type that keys of that type are kept as: `make.template operator()<K>()`.
template <class Make>
decltype(auto) withKeyOf(TypeDesc const& key, Make const& make) {
  if (key.isEntity()) return make.template operator()<RefTo<Entity>>();
  if (key.kind == TypeKind::Builtin && key.builtin == BuiltinKind::String)
    return make.template operator()<String>();
  return make.template operator()<SlotKey>();
}

// Decides where the slots of a type lie, and what is done with its raw form. REQUIRES that it keeps the rules
// of registration.
void layOut(TypeDesc& type);

// The type of a run-time array.
[[nodiscard]] TypeDesc& slotArrayOf(TypeDesc& element);

// A value that can be left without. A structure is handed out as a copy, as `OptionalAccess` does it.
class OptionalSlotAccess final : public AttrAccess {
public:
  bool readsInPlace() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    return isSet(object) ? &storage<unsigned char>(attr, object) : nullptr;
  }
  int compare(AttrDesc const& attr, void const* a, void const* b) const override;
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override;

  // The bit of the raw form that says whether it is set.
  void bitIs(std::size_t byte, unsigned bit) noexcept {
    byte_ = byte;
    mask_ = static_cast<unsigned char>(1U << bit);
  }
  [[nodiscard]] bool isSet(void const* raw) const noexcept {
    return (static_cast<unsigned char const*>(raw)[byte_] & mask_) != 0;
  }
  void isSetIs(void* raw, bool set) const noexcept {
    unsigned char& byte = static_cast<unsigned char*>(raw)[byte_];
    byte = static_cast<unsigned char>(set ? byte | mask_ : byte & ~mask_);
  }

private:
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override;
  void assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override;

  std::size_t byte_ = 0;
  unsigned char mask_ = 0;
};

// An alternative of a union. The raw form of a union is the number of the one that is active, and behind it,
// at the union's own alignment, the raw form of that one's value.
class SlotAlternativeAccess final : public AttrAccess {
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override;
};
// What is done with the raw form of a union; sets the type's operations.
void layOutUnion(TypeDesc& type);

// Values by key, each in a box that nobody writes to.
template <class K>
using SlotValues = KeyedMembers<K, Ptr<ValueBox>>;

struct BoxToHandle {
  Ptr<GenericIf const> operator()(AttrDesc const& attr, Ptr<ValueBox> const& box) const {
    return GenericIf::inPlace(*attr.memberType, box->storage(), *box);
  }
};

template <class K>
class SlotValuesAccess final : public MembersAccess<SlotValues<K>, BoxToHandle> {
public:
  using C = SlotValues<K>;
  int compare(AttrDesc const& attr, void const* a, void const* b) const override {
    auto const& left = storage<C>(attr, a);
    auto const& right = storage<C>(attr, b);
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    auto other = right.begin();
    for (auto const& [key, box] : left) {
      if (KeyLess<K>{}(key, other->first)) return -1;
      if (KeyLess<K>{}(other->first, key)) return 1;
      int const order = ofMember(attr).compare(*attr.memberType, box->storage(), other->second->storage());
      if (order != 0) return order;
      ++other;
    }
    return 0;
  }
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override {
    return storage<C>(attr, at).size();
  }

private:
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override {
    K const wanted = this->keyOf(attr, key);
    C& members = storage<C>(attr, obj);
    auto const old = members.map().find(wanted);
    if (old != members.map().end() &&
        ofMember(attr).compare(*attr.memberType, old->second->storage(), value->data()) == 0)
      return;
    members.put(wanted, ValueBox::copyOf(*attr.memberType, value->data()));
    notifyOf(obj, attr, &wanted);
  }
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    K const wanted = this->keyOf(attr, key);
    if (storage<C>(attr, obj).take(wanted)) notifyOf(obj, attr, &wanted);
  }
  static ValueOps const& ofMember(AttrDesc const& attr) { return attr.memberType->ops; }
};

} // namespace Impl
} // namespace Kel
