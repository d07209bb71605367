// Where slots lie, keys, and objects with room for their slots behind them; the raw form of structures.
#include "Kel/Slots.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "Kel/Declare.h"
#include "Kel/Error.h"

namespace Kel {

// --- SlotKey -----------------------------------------------------------------------------------------

SlotKey::SlotKey(TypeDesc const& type, void const* raw) : type_(&type) {
  if (fitsInline(type))
    type.ops.copy(type, space_, raw);
  else
    new (space_) Box(ValueBox::copyOf(type, raw));
}

void SlotKey::copy(SlotKey const& other) {
  type_ = other.type_;
  if (type_ == nullptr) return;
  if (fitsInline(*type_))
    type_->ops.copy(*type_, space_, other.space_);
  else
    new (space_) Box(other.box());
}

void SlotKey::drop() noexcept {
  if (type_ == nullptr) return;
  if (fitsInline(*type_))
    type_->ops.destroy(*type_, space_);
  else
    std::destroy_at(&box());
}

SlotKey& SlotKey::operator=(SlotKey const& other) {
  if (this == &other) return *this;
  drop();
  type_ = nullptr;
  copy(other);
  return *this;
}

SlotKey KeyTraits<SlotKey>::from(AttrDesc const& attr, GenericIf const& key) {
  if (&key.type().desc() != attr.keyType) Impl::throwKeyType(attr, key);
  return {*attr.keyType, key.data()};
}

namespace {

// --- slots -------------------------------------------------------------------------------------------

bool hasSlot(AttrDesc const& attr) { return attr.offset != SIZE_MAX; }

bool isValue(AttrDesc const& attr) { return !attr.isKeyed && !attr.isInstantiating && !attr.isPointer; }

bool isOptionalValue(AttrDesc const& attr) { return attr.isOptional && isValue(attr); }

template <class C>
ValueOps const& opsOf() {
  static ValueOps const ops = Impl::valueOps<C>();
  return ops;
}

// What is done with a slot as a whole; the type that the operations are given is the attribute's own.
ValueOps const& slotOps(AttrDesc const& attr) {
  if (isValue(attr)) return attr.type->ops;
  if (!attr.isKeyed) return opsOf<Ptr<Entity>>();
  return Impl::withKeyOf(*attr.keyType, [&attr]<class K>() -> ValueOps const& {
    if (attr.isInstantiating) return opsOf<KeyedEntities<K, Entity>>();
    return attr.isPointer ? opsOf<KeyedRefs<K, Entity>>() : opsOf<Impl::SlotValues<K>>();
  });
}

// Builtins and references begin as zeroes.
bool beginsAsZeroes(AttrDesc const& attr) {
  return isValue(attr) ? attr.type->kind == TypeKind::Builtin : !attr.isKeyed;
}

void* slotAt(AttrDesc const& attr, void* raw) { return static_cast<unsigned char*>(raw) + attr.offset; }
void const* slotAt(AttrDesc const& attr, void const* raw) {
  return static_cast<unsigned char const*>(raw) + attr.offset;
}

// REQUIRES that the space is all zeroes.
void constructSlots(TypeDesc const& type, void* raw) {
  for (auto const& attr : type.attrs)
    if (hasSlot(*attr) && !beginsAsZeroes(*attr)) slotOps(*attr).construct(*attr->type, slotAt(*attr, raw));
}

void destroySlots(TypeDesc const& type, void* raw) {
  for (auto const& attr : type.attrs) {
    if (!hasSlot(*attr)) continue;
    ValueOps const& ops = slotOps(*attr);
    if (!ops.trivial) ops.destroy(*attr->type, slotAt(*attr, raw));
  }
}

// --- structures and nominals -----------------------------------------------------------------------------

void constructStruct(TypeDesc const& type, void* at) {
  std::memset(at, 0, type.ops.size);
  constructSlots(type, at);
}

void copyStruct(TypeDesc const& type, void* at, void const* from) {
  std::memcpy(at, from, type.ops.size); // the bits, and whatever is trivial
  if (type.ops.trivial) return;
  for (auto const& attr : type.attrs) {
    if (!hasSlot(*attr)) continue;
    ValueOps const& ops = slotOps(*attr);
    if (!ops.trivial) ops.copy(*attr->type, slotAt(*attr, at), slotAt(*attr, from));
  }
}

void assignStruct(TypeDesc const& type, void* to, void const* from) {
  if (type.ops.trivial) {
    std::memmove(to, from, type.ops.size);
    return;
  }
  for (auto const& attr : type.attrs) {
    if (!hasSlot(*attr)) continue;
    slotOps(*attr).assign(*attr->type, slotAt(*attr, to), slotAt(*attr, from));
    if (!isOptionalValue(*attr)) continue;
    auto const& access = static_cast<Impl::OptionalSlotAccess const&>(*attr->access);
    access.isSetIs(to, access.isSet(from));
  }
}

std::size_t roundedUp(std::size_t size, std::size_t align) { return (size + align - 1) / align * align; }

} // namespace

namespace Impl {

// Gaps come from alignment alone, and the widest first leaves none but at the seam to the type that is
// extended.
void layOut(TypeDesc& type) {
  if (type.kind == TypeKind::Union) return layOutUnion(type);
  std::size_t const begin = type.isEntity() ? sizeof(SlotEntity) : 0;
  std::size_t const inherited = type.base == nullptr ? 0 : type.base->attrs.size();
  std::vector<AttrDesc*> slots;
  for (std::size_t i = inherited; i < type.attrs.size(); ++i)
    if (hasSlot(*type.attrs[i])) slots.push_back(type.attrs[i].get());
  std::stable_sort(slots.begin(), slots.end(), [](AttrDesc const* a, AttrDesc const* b) {
    return slotOps(*a).align > slotOps(*b).align;
  });
  std::size_t at = begin + (type.base == nullptr ? 0 : type.base->ops.size);
  std::size_t align = 1;
  bool isTrivial = true;
  for (AttrDesc* const attr : slots) {
    ValueOps const& ops = slotOps(*attr);
    attr->offset = roundedUp(at, ops.align);
    at = attr->offset + ops.size;
    align = std::max(align, ops.align);
    isTrivial = isTrivial && ops.trivial;
  }
  std::size_t bits = 0;
  for (AttrDesc* const attr : slots) {
    if (!isOptionalValue(*attr)) continue;
    auto access = std::make_shared<OptionalSlotAccess>();
    access->bitIs(at + bits / 8, static_cast<unsigned>(bits % 8));
    attr->access = std::move(access);
    ++bits;
  }
  at += (bits + 7) / 8;
  type.ops.size = type.isEntity() ? at - begin : std::max<std::size_t>(roundedUp(at, align), 1);
  if (type.isEntity()) return;
  type.ops.align = align;
  type.ops.trivial = isTrivial;
  type.ops.construct = &constructStruct;
  type.ops.copy = &copyStruct;
  type.ops.assign = &assignStruct;
  type.ops.destroy = &destroySlots;
  type.ops.compare = &compareStruct;
  type.ops.hash = &hashStruct;
}

} // namespace Impl

// --- SlotEntity --------------------------------------------------------------------------------------

Ptr<SlotEntity> SlotEntity::make(TypeDesc const& type) {
  return Ptr<SlotEntity>(new (Extra{type.ops.size}) SlotEntity(type));
}

SlotEntity::SlotEntity(TypeDesc const& type) : type_(&type) {
  std::memset(static_cast<void*>(this + 1), 0, type.ops.size);
  constructSlots(type, static_cast<PtrInterface*>(this));
}

SlotEntity::~SlotEntity() { destroySlots(*type_, static_cast<PtrInterface*>(this)); }

void SlotEntity::operator delete(SlotEntity* object, std::destroying_delete_t) noexcept {
  std::size_t const bytes = sizeof(SlotEntity) + object->type_->ops.size;
  object->~SlotEntity();
  kelMemFree(object, bytes);
}

void SlotEntity::handleParent() {
  for (auto const& attr : type_->attrs) {
    if (parent() == nullptr) return; // an observer may have taken it away
    if (!attr->isInstantiating || !attr->isEmbedded || attr->isKeyed) continue;
    auto& child = *static_cast<Ptr<Entity>*>(slotAt(*attr, static_cast<PtrInterface*>(this)));
    if (child) continue;
    TypeDesc const& type = *attr->memberType;
    Ptr<Entity> const made =
        type.isRuntime ? Ptr<Entity>(make(type).get()) : dynamicPtrCast<Entity>(Impl::construct(type, {}));
    attach(*this, *attr, nullptr, *made);
    child = made;
    placed(*made);
    notify(attr->id, nullptr);
  }
}

} // namespace Kel
