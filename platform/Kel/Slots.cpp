// Objects with room for their slots behind them, the raw forms of structures and arrays, and access to
// values, single and keyed.
#include "Kel/Slots.h"

#include <map>
#include <memory>
#include <new>

#include "Kel/Declare.h"
#include "Kel/Error.h"

namespace Kel {
namespace {

using Slot = Ptr<GenericIf const>;

constexpr std::size_t kHeader = 16; // before every SlotEntity: the size of its block, aligned as the block is

void* slotAt(AttrDesc const& attr, void* raw) { return static_cast<unsigned char*>(raw) + attr.offset; }
void const* slotAt(AttrDesc const& attr, void const* raw) {
  return static_cast<unsigned char const*>(raw) + attr.offset;
}

template <class S>
void constructSlot(AttrDesc const& attr, S& at) {
  if constexpr (std::is_same_v<S, Slot>) {
    new (&at) S(static_cast<Impl::SlotValueAccess const&>(*attr.access).initial(attr));
  } else {
    new (&at) S();
  }
}

void constructSlots(TypeDesc const& type, void* raw) {
  for (auto const& attr : type.attrs) {
    Impl::visitSlot(*attr, slotAt(*attr, raw), [&attr](auto& slot) { constructSlot(*attr, slot); });
  }
}

void destroySlots(TypeDesc const& type, void* raw) {
  for (auto const& attr : type.attrs) {
    Impl::visitSlot(*attr, slotAt(*attr, raw), [](auto& slot) { std::destroy_at(&slot); });
  }
}

int compareHandles(Slot const& a, Slot const& b) {
  if (!a || !b) return static_cast<int>(static_cast<bool>(a)) - static_cast<int>(static_cast<bool>(b));
  return a.get() == b.get() ? 0 : a->compare(*b);
}

// An immutable copy that no one else can reach to write.
Slot frozen(GenericIf const& value) { return value.clone(); }

} // namespace

SlotKey KeyTraits<SlotKey>::from(AttrDesc const& attr, GenericIf const& key) {
  if (attr.keyType->isEntity()) return SlotKey(Impl::entityRefFrom(attr, key).handle());
  if (&key.type().desc() != attr.keyType) Impl::throwKeyType(attr, key);
  return SlotKey(frozen(key));
}

// --- SlotEntity --------------------------------------------------------------------------------------

void* SlotEntity::operator new(std::size_t size, Extra extra) {
  std::size_t const bytes = kHeader + size + extra.bytes;
  auto* const block = static_cast<unsigned char*>(kelMemAlloc(bytes));
  new (block) std::size_t(bytes);
  return block + kHeader;
}

void SlotEntity::operator delete(void* object, std::size_t) noexcept {
  auto* const block = static_cast<unsigned char*>(object) - kHeader;
  kelMemFree(block, *std::launder(reinterpret_cast<std::size_t*>(block)));
}

void SlotEntity::operator delete(void* object, Extra) noexcept {
  operator delete(object, sizeof(SlotEntity));
}

Ptr<SlotEntity> SlotEntity::make(TypeDesc const& type) {
  return Ptr<SlotEntity>(new (Extra{type.ops.size}) SlotEntity(type));
}

SlotEntity::SlotEntity(TypeDesc const& type) : type_(&type) {
  constructSlots(type, static_cast<PtrInterface*>(this));
}
SlotEntity::~SlotEntity() { destroySlots(*type_, static_cast<PtrInterface*>(this)); }

namespace Impl {

// --- the raw forms -------------------------------------------------------------------------------------

ValueOps slotStructOps() {
  return ValueOps{
      .size = 0,
      .align = alignof(void*),
      .trivial = false,
      .construct = [](TypeDesc const& type, void* at) { constructSlots(type, at); },
      .copy =
          [](TypeDesc const& type, void* at, void const* from) {
            for (auto const& attr : type.attrs) {
              visitSlot(*attr, slotAt(*attr, at), [&attr, from](auto& slot) {
                using S = std::remove_reference_t<decltype(slot)>;
                new (&slot) S(*static_cast<S const*>(slotAt(*attr, from)));
              });
            }
          },
      .assign =
          [](TypeDesc const& type, void* to, void const* from) {
            for (auto const& attr : type.attrs) {
              visitSlot(*attr, slotAt(*attr, to), [&attr, from](auto& slot) {
                slot = *static_cast<std::remove_reference_t<decltype(slot)> const*>(slotAt(*attr, from));
              });
            }
          },
      .destroy = [](TypeDesc const& type, void* at) { destroySlots(type, at); },
      .compare = &compareStruct,
      .hash = &hashStruct,
  };
}

namespace {

ValueOps slotArrayOps() {
  ValueOps ops;
  ops.size = sizeof(SlotArray);
  ops.align = alignof(SlotArray);
  ops.trivial = false;
  ops.construct = [](TypeDesc const&, void* at) { new (at) SlotArray(); };
  ops.copy = [](TypeDesc const&, void* at, void const* from) {
    new (at) SlotArray(*static_cast<SlotArray const*>(from));
  };
  ops.assign = [](TypeDesc const&, void* to, void const* from) {
    *static_cast<SlotArray*>(to) = *static_cast<SlotArray const*>(from);
  };
  ops.destroy = [](TypeDesc const&, void* at) { std::destroy_at(static_cast<SlotArray*>(at)); };
  ops.compare = [](TypeDesc const&, void const* a, void const* b) {
    auto const& left = *static_cast<SlotArray const*>(a);
    auto const& right = *static_cast<SlotArray const*>(b);
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    for (std::size_t i = 0; i < left.size(); ++i) {
      if (int const order = compareHandles(left[i], right[i]); order != 0) return order;
    }
    return 0;
  };
  ops.hash = [](TypeDesc const&, void const* at) {
    auto const& array = *static_cast<SlotArray const*>(at);
    std::uint64_t h = array.size();
    for (Slot const& element : array)
      h = hashMix(h, element->hash());
    return h;
  };
  return ops;
}

constexpr TypeDesc::ArrayOps kSlotArrayOps{
    .append = [](void* array,
                 GenericIf const& value) { static_cast<SlotArray*>(array)->push_back(frozen(value)); },
    .clear = [](void* array) { static_cast<SlotArray*>(array)->clear(); },
    .size = [](void const* array) { return static_cast<SlotArray const*>(array)->size(); },
    .at = [](TypeDesc const&, void const* array,
             std::size_t index) { return (*static_cast<SlotArray const*>(array))[index]; },
};

} // namespace

TypeDesc& slotArrayOf(TypeDesc& element) {
  static auto* const made = new std::map<TypeDesc*, TypeDesc*>();
  TypeDesc*& desc = (*made)[&element];
  if (desc == nullptr) {
    desc = new TypeDesc();
    desc->kind = TypeKind::Array;
    desc->isValueType = desc->isRuntime = true;
    desc->ops = slotArrayOps();
    desc->elementType = &element;
    desc->arrayOps = &kSlotArrayOps;
    completeArrayDesc(*desc);
  }
  return *desc;
}

// --- SlotValueAccess -----------------------------------------------------------------------------------

namespace {

Slot const& slotOf(AttrDesc const& attr, GenericIf const& obj) { return storage<Slot>(attr, obj); }

void const* arrayIn(AttrDesc const& attr, GenericIf const& obj) { return slotOf(attr, obj)->data(); }

} // namespace

Slot const& SlotValueAccess::initial(AttrDesc const& attr) const {
  static Slot const none;
  if (attr.isOptional) return none;
  if (!default_) default_ = GenericIf::defaultOf(*attr.type);
  return default_;
}

Slot SlotValueAccess::read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const {
  if (key == nullptr) [[likely]]
    return slotOf(attr, obj);
  std::uint64_t const index = arrayIndex(attr, *key);
  void const* const array = arrayIn(attr, obj);
  if (index >= attr.type->arrayOps->size(array)) return nullptr;
  return attr.type->arrayOps->at(*attr.memberType, array, index);
}

void SlotValueAccess::replace(AttrDesc const& attr, GenericIf& obj, Slot wanted) {
  if (compareHandles(slotOf(attr, obj), wanted) == 0) return;
  storage<Slot>(attr, obj).swap(wanted);
  notifyOf(obj, attr, nullptr);
}

void SlotValueAccess::store(AttrDesc const& attr, GenericIf& obj, GenericIf const*,
                            GenericIf const* value) const {
  Slot const& old = slotOf(attr, obj);
  if (old && value != nullptr && old->compare(*value) == 0) return; // no copy for that
  replace(attr, obj, value == nullptr ? nullptr : frozen(*value));
}

void SlotValueAccess::assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const {
  storage<Slot>(attr, obj) = frozen(value);
}

void SlotValueAccess::reset(AttrDesc const& attr, GenericIf& obj) const { replace(attr, obj, initial(attr)); }

std::size_t SlotValueAccess::size(AttrDesc const& attr, GenericIf const& obj) const {
  return attr.type->arrayOps->size(arrayIn(attr, obj));
}

Ptr<Cursor> SlotValueAccess::cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                                    GenericIf const* start) const {
  return arrayCursor(attr, obj, start, &arrayIn);
}

Slot SlotValueAccess::keyHandle(AttrDesc const& attr, void const* rawKey) const {
  return attr.isArray ? handleOf(*static_cast<std::uint64_t const*>(rawKey)) : nullptr;
}

int SlotValueAccess::compare(AttrDesc const& attr, void const* a, void const* b) const {
  return compareHandles(storage<Slot>(attr, a), storage<Slot>(attr, b));
}

std::uint64_t SlotValueAccess::hash(AttrDesc const& attr, void const* at) const {
  Slot const& value = storage<Slot>(attr, at);
  return value ? value->hash() : 0;
}

// --- SlotValuesAccess ----------------------------------------------------------------------------------

void SlotValuesAccess::store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
                             GenericIf const* value) const {
  SlotKey const wanted = keyOf(attr, key);
  auto& members = storage<SlotValues>(attr, obj);
  auto const old = members.map().find(wanted);
  if (old != members.map().end() && old->second->compare(*value) == 0) return;
  members.put(wanted, frozen(*value));
  notifyOf(obj, attr, &wanted);
}

void SlotValuesAccess::erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const {
  SlotKey const wanted = keyOf(attr, key);
  if (storage<SlotValues>(attr, obj).take(wanted)) notifyOf(obj, attr, &wanted);
}

int SlotValuesAccess::compare(AttrDesc const& attr, void const* a, void const* b) const {
  auto const& left = storage<SlotValues>(attr, a);
  auto const& right = storage<SlotValues>(attr, b);
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  auto other = right.begin();
  for (auto const& [key, value] : left) {
    if (int const order = compareHandles(key.handle(), other->first.handle()); order != 0) return order;
    if (int const order = compareHandles(value, other->second); order != 0) return order;
    ++other;
  }
  return 0;
}

std::uint64_t SlotValuesAccess::hash(AttrDesc const& attr, void const* at) const {
  return storage<SlotValues>(attr, at).size();
}

} // namespace Impl
} // namespace Kel
