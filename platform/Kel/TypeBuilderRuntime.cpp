// Types that are described wholly at run time: the attributes of `TypeBuilder` that have slots, and types in
// one call.

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "Kel/Error.h"
#include "Kel/Slots.h"
#include "Kel/TypeBuilder.h"

namespace Kel {
namespace {

// Descriptors live for the process, those that broke a rule too: other descriptors may name them.
TypeDesc* newDesc() {
  static auto* const all = new std::vector<std::unique_ptr<TypeDesc>>();
  return all->emplace_back(std::make_unique<TypeDesc>()).get();
}

TypeDesc* descOfType(KelType type) { return const_cast<TypeDesc*>(&type.desc()); }

} // namespace

TypeBuilder::TypeBuilder(std::string_view module, std::string_view name, TypeKind kind)
    : TypeBuilder(module, name, *newDesc()) {
  desc_->kind = kind;
  desc_->isRuntime = true;
  switch (kind) {
  case TypeKind::Entity:
    desc_->makeObject = [desc = desc_] { return Ptr<PtrInterface>(SlotEntity::make(*desc)); };
    break;
  case TypeKind::Struct:
  case TypeKind::Nominal:
  case TypeKind::KeyPtr:
  case TypeKind::Union: desc_->isValueType = true; break;
  case TypeKind::Builtin:
  case TypeKind::Enum:
  case TypeKind::Array:
  case TypeKind::Object:
  case TypeKind::CollectionControl:
    throwError(fmt::format(
        "type '{}': structures, entities, unions and wrappers are described at run time this way", name));
  }
}

AttrDesc& TypeBuilder::slot(std::string_view name, KelType type, std::unique_ptr<AttrAccess> access) {
  if (!desc_->isRuntime) {
    throwError(fmt::format("type '{}', attribute '{}': the attributes of a C++ class lie in its members",
                           desc_->name.view(), name));
  }
  AttrDesc& attr = add(name, descOfType(type), std::move(access));
  attr.offset = 0; // somewhere
  return attr;
}

TypeBuilder& TypeBuilder::attr(std::string_view name, KelType type) {
  if (desc_->kind == TypeKind::Union)
    slot(name, type, std::make_unique<Impl::SlotAlternativeAccess>());
  else
    slot(name, type, std::make_unique<Impl::InPlaceAccess>());
  return *this;
}

TypeBuilder& TypeBuilder::pointer(std::string_view name, KelType target) {
  slot(name, target, std::make_unique<Impl::PointerAccess<Entity>>()).isPointer = true;
  return optional();
}

TypeBuilder& TypeBuilder::array(std::string_view name, KelType element) {
  AttrDesc& made = slot(name, element, std::make_unique<Impl::InPlaceAccess>());
  made.type = &Impl::slotArrayOf(*made.memberType);
  made.keyType = &builtinDesc(BuiltinKind::U64);
  made.isCollection = made.isOrdered = made.isArray = true;
  return *this;
}

TypeBuilder& TypeBuilder::keyed(std::string_view name, KelType key, KelType value) {
  using Access = std::unique_ptr<AttrAccess>;
  bool const isPointer = value.isEntity();
  AttrDesc& made = slot(name, value, Impl::withKeyOf(key.desc(), [isPointer]<class K>() -> Access {
                          if (isPointer) return std::make_unique<Impl::RefsAccess<K, Entity>>();
                          return std::make_unique<Impl::SlotValuesAccess<K>>();
                        }));
  made.keyType = descOfType(key);
  made.isCollection = made.isKeyed = made.isOrdered = true;
  made.isPointer = isPointer;
  return *this;
}

TypeBuilder& TypeBuilder::instantiating(std::string_view name, KelType member) {
  slot(name, member, std::make_unique<Impl::ChildAccess<Entity>>()).isInstantiating = true;
  return optional();
}

TypeBuilder& TypeBuilder::instantiating(std::string_view name, KelType key, KelType member) {
  AttrDesc& made =
      slot(name, member, Impl::withKeyOf(key.desc(), []<class K>() -> std::unique_ptr<AttrAccess> {
             return std::make_unique<Impl::EntitiesAccess<K, Entity>>();
           }));
  made.keyType = descOfType(key);
  made.isCollection = made.isKeyed = made.isOrdered = made.isInstantiating = true;
  return *this;
}

// --- in one call -------------------------------------------------------------------------------------------

namespace {

template <class T>
bool holdsAll(std::vector<Enumerator> const& enumerators) {
  return std::all_of(enumerators.begin(), enumerators.end(),
                     [](Enumerator const& one) { return std::in_range<T>(one.value); });
}

// Small, as whoever declares an enumeration makes it.
BuiltinKind smallestFor(std::vector<Enumerator> const& enumerators) {
  if (holdsAll<std::uint8_t>(enumerators)) return BuiltinKind::U8;
  if (holdsAll<std::int8_t>(enumerators)) return BuiltinKind::S8;
  if (holdsAll<std::int16_t>(enumerators)) return BuiltinKind::S16;
  return holdsAll<std::int32_t>(enumerators) ? BuiltinKind::S32 : BuiltinKind::S64;
}

} // namespace

TypeOrText runtimeEnum(std::string_view module, std::string_view name, std::vector<Enumerator> enumerators) {
  TypeDesc& desc = *newDesc();
  desc.kind = TypeKind::Enum;
  desc.isRuntime = desc.isValueType = true;
  desc.underlying = smallestFor(enumerators);
  desc.ops = builtinDesc(desc.underlying).ops;
  desc.enumerators = std::move(enumerators);
  for (Enumerator& one : desc.enumerators)
    one.name = one.name.dedup();
  return TypeBuilder(module, name, desc).done();
}

TypeOrText runtimeNominal(std::string_view module, std::string_view name, Part const& wrapped) {
  TypeBuilder builder(module, name, TypeKind::Nominal);
  return builder.attr(wrapped.name, wrapped.type).ctorArg().done();
}

TypeOrText runtimeUnion(std::string_view module, std::string_view name,
                        std::vector<Part> const& alternatives) {
  TypeBuilder builder(module, name, TypeKind::Union);
  for (Part const& alternative : alternatives)
    builder.attr(alternative.name, alternative.type);
  return builder.done();
}

TypeOrText runtimeKey(std::string_view module, std::string_view name, std::vector<Part> const& fields) {
  TypeBuilder builder(module, name, TypeKind::Struct);
  for (Part const& field : fields)
    builder.attr(field.name, field.type).ctorArg();
  if (fields.empty()) return Kstd::Err(fmt::format("type '{}': a key has at least one field", name));
  auto type = builder.done();
  if (!type) return type;
  if (auto const reason = Impl::unfitAsKey(type.value().desc()))
    return Kstd::Err(fmt::format("type '{}': {}", name, *reason));
  return type;
}

} // namespace Kel
