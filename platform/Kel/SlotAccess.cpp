// Optional values, and the alternatives and the raw form of unions.
#include <algorithm>
#include <cstring>

#include "Kel/Declare.h"
#include "Kel/Slots.h"

namespace Kel::Impl {

// --- OptionalSlotAccess ----------------------------------------------------------------------------------

int OptionalSlotAccess::compare(AttrDesc const& attr, void const* a, void const* b) const {
  void const* const left = valueAt(attr, a);
  void const* const right = valueAt(attr, b);
  if (left == nullptr || right == nullptr)
    return static_cast<int>(left != nullptr) - static_cast<int>(right != nullptr);
  return attr.memberType->ops.compare(*attr.memberType, left, right);
}

std::uint64_t OptionalSlotAccess::hash(AttrDesc const& attr, void const* at) const {
  void const* const value = valueAt(attr, at);
  return value == nullptr ? 0 : attr.memberType->ops.hash(*attr.memberType, value);
}

Ptr<GenericIf const> OptionalSlotAccess::read(AttrDesc const& attr, GenericIf const& obj,
                                              GenericIf const*) const {
  void const* const value = valueAt(attr, obj.data());
  return value == nullptr ? nullptr : Ptr<GenericIf const>(GenericIf::copyOf(*attr.memberType, value));
}

bool OptionalSlotAccess::has(AttrDesc const&, GenericIf const& obj, GenericIf const*) const {
  return isSet(obj.data());
}

void OptionalSlotAccess::store(AttrDesc const& attr, GenericIf& obj, GenericIf const*,
                               GenericIf const* value) const {
  void const* const old = valueAt(attr, obj.data());
  ValueOps const& ops = attr.memberType->ops;
  if (value != nullptr) {
    if (old != nullptr && ops.compare(*attr.memberType, old, value->data()) == 0) return;
    assign(attr, obj, *value);
  } else {
    if (old == nullptr) return;
    void* const at = &storage<unsigned char>(attr, obj);
    isSetIs(obj.data(), false);
    ops.destroy(*attr.memberType, at);
    ops.construct(*attr.memberType, at);
  }
  notifyOf(obj, attr, nullptr);
}

void OptionalSlotAccess::assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const {
  attr.memberType->ops.assign(*attr.memberType, &storage<unsigned char>(attr, obj), value.data());
  isSetIs(obj.data(), true);
}

// --- unions ------------------------------------------------------------------------------------------------

namespace {

using Number = std::uint16_t;
constexpr Number kNone = UINT16_MAX; // while a value is being replaced, and for good when that fails

Number& numberAt(void* at) { return *static_cast<Number*>(at); }
Number numberAt(void const* at) { return *static_cast<Number const*>(at); }
void* valueIn(TypeDesc const& type, void* at) { return static_cast<unsigned char*>(at) + type.ops.align; }
void const* valueIn(TypeDesc const& type, void const* at) {
  return static_cast<unsigned char const*>(at) + type.ops.align;
}

// Null when there is none.
TypeDesc const* activeType(TypeDesc const& type, void const* at) {
  Number const active = numberAt(at);
  return active == kNone ? nullptr : type.attrs[active]->memberType;
}

void destroyUnion(TypeDesc const& type, void* at) {
  if (TypeDesc const* const active = activeType(type, at)) active->ops.destroy(*active, valueIn(type, at));
  numberAt(at) = kNone;
}

// Makes that alternative the active one. REQUIRES that there is none.
void emplace(TypeDesc const& type, void* at, Number alternative, void const* from) {
  if (alternative == kNone) return;
  TypeDesc const& member = *type.attrs[alternative]->memberType;
  member.ops.copy(member, valueIn(type, at), from);
  numberAt(at) = alternative;
}

void constructUnion(TypeDesc const& type, void* at) {
  std::memset(at, 0, type.ops.size);
  TypeDesc const& first = *type.attrs.front()->memberType;
  first.ops.construct(first, valueIn(type, at));
}

void copyUnion(TypeDesc const& type, void* at, void const* from) {
  std::memset(at, 0, type.ops.size);
  numberAt(at) = kNone;
  emplace(type, at, numberAt(from), valueIn(type, from));
}

void assignUnion(TypeDesc const& type, void* to, void const* from) {
  if (to == from) return;
  destroyUnion(type, to);
  emplace(type, to, numberAt(from), valueIn(type, from));
}

int compareUnion(TypeDesc const& type, void const* a, void const* b) {
  Number const left = numberAt(a), right = numberAt(b);
  if (left != right) return left < right ? -1 : 1;
  TypeDesc const* const active = activeType(type, a);
  return active == nullptr ? 0 : active->ops.compare(*active, valueIn(type, a), valueIn(type, b));
}

std::uint64_t hashUnion(TypeDesc const& type, void const* at) {
  TypeDesc const* const active = activeType(type, at);
  return active == nullptr ? 0 : hashMix(numberAt(at), active->ops.hash(*active, valueIn(type, at)));
}

} // namespace

void layOutUnion(TypeDesc& type) {
  std::size_t size = 0;
  std::size_t align = alignof(Number);
  bool isTrivial = true;
  for (auto const& attr : type.attrs) {
    ValueOps const& ops = attr->memberType->ops;
    size = std::max(size, ops.size);
    align = std::max(align, ops.align);
    isTrivial = isTrivial && ops.trivial;
    attr->offset = SIZE_MAX; // no slot of its own
  }
  type.ops = ValueOps{
      .size = align + (size + align - 1) / align * align,
      .align = align,
      .trivial = isTrivial,
      .construct = &constructUnion,
      .copy = &copyUnion,
      .assign = &assignUnion,
      .destroy = &destroyUnion,
      .compare = &compareUnion,
      .hash = &hashUnion,
  };
  type.activeAlternative = [](TypeDesc const& self, void const* at) -> AttrDesc const* {
    Number const active = numberAt(at);
    return active == kNone ? nullptr : self.attrs[active].get();
  };
}

Ptr<GenericIf const> SlotAlternativeAccess::read(AttrDesc const& attr, GenericIf const& obj,
                                                 GenericIf const* key) const {
  if (!has(attr, obj, key)) return nullptr;
  return Ptr<GenericIf const>(GenericIf::copyOf(*attr.memberType, valueIn(*attr.owner, obj.data())));
}

bool SlotAlternativeAccess::has(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const {
  return numberAt(obj.data()) == attr.index;
}

void SlotAlternativeAccess::store(AttrDesc const& attr, GenericIf& obj, GenericIf const*,
                                  GenericIf const* value) const {
  destroyUnion(*attr.owner, obj.data());
  emplace(*attr.owner, obj.data(), attr.index, value->data());
}

} // namespace Kel::Impl
