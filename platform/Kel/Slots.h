// Storage of the types that are described wholly at run time: their objects hold one slot for each attribute.
// For `TypeBuilder`; users of the model never meet it.
//
// Invariants
// 1. A slot lies at `AttrDesc::offset` of the raw form, as the member of a declared class does: what reaches
//    the one reaches the other. What a slot is follows from the attribute alone, see `visitSlot`.
// 2. A value in a slot is an immutable, detached handle: a write replaces the handle, a read hands out the
//    handle itself and allocates nothing. It is null where an optional attribute is not set, and nowhere
//    else.
// 3. `ValueOps::size` of a run-time type is the space that its slots take: the raw form of a structure, and
//    what follows the `SlotEntity` of an entity.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Kel/AccessMembers.h"
#include "Kel/Collections.h"
#include "Kel/Entity.h"

namespace Kel {

// A key of any type: a detached handle, or the weak identity of an entity.
class SlotKey {
public:
  SlotKey() = default;
  explicit SlotKey(Ptr<GenericIf const> detached) : handle_(std::move(detached)) {}
  [[nodiscard]] Ptr<GenericIf const> const& handle() const noexcept { return handle_; }

private:
  Ptr<GenericIf const> handle_;
};

template <>
struct KeyLess<SlotKey> {
  bool operator()(SlotKey const& a, SlotKey const& b) const { return a.handle()->compare(*b.handle()) < 0; }
};
template <>
struct KeyTraits<SlotKey> {
  static Ptr<GenericIf const> handle(SlotKey const& key) { return key.handle(); }
  // Raises `Kel::Error` when the handle is not of the attribute's key type.
  static SlotKey from(AttrDesc const& attr, GenericIf const& key);
};

using SlotEntities = KeyedEntities<SlotKey, Entity>;
using SlotRefs = KeyedRefs<SlotKey, Entity>;
using SlotValues = KeyedMembers<SlotKey, Ptr<GenericIf const>>;
using SlotArray = std::vector<Ptr<GenericIf const>>; // the raw form of a run-time array

// An entity of a run-time type. Made by `TypeDesc::makeObject`; everything else is an entity's.
class SlotEntity final : public Entity {
public:
  [[nodiscard]] static Ptr<SlotEntity> make(TypeDesc const& type);
  [[nodiscard]] KelType fwkType() const override { return KelType(type_); }

  static void operator delete(void* object, std::size_t size) noexcept;

private:
  struct Extra {
    std::size_t bytes;
  };
  static void* operator new(std::size_t size, Extra extra);
  static void operator delete(void* object, Extra extra) noexcept;
  explicit SlotEntity(TypeDesc const& type);
  ~SlotEntity() override;

  TypeDesc const* type_;
};

namespace Impl {

// The operations of a run-time structure and of a run-time array, apart from its size.
[[nodiscard]] ValueOps slotStructOps();
[[nodiscard]] TypeDesc& slotArrayOf(TypeDesc& element);

// Calls `visit` with the slot of the attribute that lies at `at`, as what it is.
template <class Visit>
void visitSlot(AttrDesc const& attr, void* at, Visit const& visit) {
  if (attr.isKeyed && attr.isInstantiating) {
    visit(*static_cast<SlotEntities*>(at));
  } else if (attr.isKeyed && attr.isPointer) {
    visit(*static_cast<SlotRefs*>(at));
  } else if (attr.isKeyed) {
    visit(*static_cast<SlotValues*>(at));
  } else if (attr.isInstantiating || attr.isPointer) {
    visit(*static_cast<Ptr<Entity>*>(at));
  } else {
    visit(*static_cast<Ptr<GenericIf const>*>(at));
  }
}

// A value, or a whole array, in a slot.
class SlotValueAccess final : public AttrAccess {
public:
  bool readsInPlace() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    Ptr<GenericIf const> const& slot = storage<Ptr<GenericIf const>>(attr, object);
    return slot ? slot->data() : nullptr;
  }
  Ptr<GenericIf const> keyHandle(AttrDesc const& attr, void const* rawKey) const override;
  int compare(AttrDesc const& attr, void const* a, void const* b) const override;
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override;

  // What a new object's slot holds: nothing when optional, else the type's default, which all objects share.
  [[nodiscard]] Ptr<GenericIf const> const& initial(AttrDesc const& attr) const;

private:
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override;
  void assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override;
  void reset(AttrDesc const& attr, GenericIf& obj) const override;
  std::size_t size(AttrDesc const& attr, GenericIf const& obj) const override;
  Ptr<Cursor> cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                     GenericIf const* start) const override;

  static void replace(AttrDesc const& attr, GenericIf& obj, Ptr<GenericIf const> wanted);
  mutable Ptr<GenericIf const> default_;
};

struct SlotToHandle {
  Ptr<GenericIf const> const& operator()(AttrDesc const&, Ptr<GenericIf const> const& value) const {
    return value;
  }
};

// Values by key.
class SlotValuesAccess final : public MembersAccess<SlotValues, SlotToHandle> {
public:
  int compare(AttrDesc const& attr, void const* a, void const* b) const override;
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override;

private:
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override;
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override;
};

} // namespace Impl
} // namespace Kel
