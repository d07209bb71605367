// Types that are described wholly at run time: the attributes of `TypeBuilder` that are slots.

#include <fmt/format.h>

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
  if (kind != TypeKind::Struct && kind != TypeKind::Entity) {
    throwError(
        fmt::format("type '{}': only structures and entities are described at run time this way", name));
  }
  desc_->kind = kind;
  desc_->isRuntime = true;
  if (kind == TypeKind::Struct) {
    desc_->isValueType = true;
    desc_->ops = Impl::slotStructOps();
  } else {
    desc_->makeObject = [desc = desc_] { return Ptr<PtrInterface>(SlotEntity::make(*desc)); };
  }
}

template <class Storage>
AttrDesc& TypeBuilder::slot(std::string_view name, KelType type, std::unique_ptr<AttrAccess> access) {
  if (!desc_->isRuntime) {
    throwError(fmt::format("type '{}', attribute '{}': the attributes of a C++ class lie in its members",
                           desc_->name.view(), name));
  }
  AttrDesc& attr = add(name, descOfType(type), std::move(access));
  attr.offset = desc_->ops.size + (desc_->isEntity() ? sizeof(SlotEntity) : 0);
  desc_->ops.size += sizeof(Storage);
  return attr;
}

TypeBuilder& TypeBuilder::attr(std::string_view name, KelType type) {
  slot<Ptr<GenericIf const>>(name, type, std::make_unique<Impl::SlotValueAccess>());
  return *this;
}

TypeBuilder& TypeBuilder::pointer(std::string_view name, KelType target) {
  slot<Ptr<Entity>>(name, target, std::make_unique<Impl::PointerAccess<Entity>>()).isPointer = true;
  return optional();
}

TypeBuilder& TypeBuilder::array(std::string_view name, KelType element) {
  AttrDesc& made = slot<Ptr<GenericIf const>>(name, element, std::make_unique<Impl::SlotValueAccess>());
  made.type = &Impl::slotArrayOf(*made.memberType);
  made.keyType = &builtinDesc(BuiltinKind::U64);
  made.isCollection = made.isOrdered = made.isArray = true;
  return *this;
}

TypeBuilder& TypeBuilder::keyed(std::string_view name, KelType key, KelType value) {
  AttrDesc& made = value.isEntity()
                       ? slot<SlotRefs>(name, value, std::make_unique<Impl::RefsAccess<SlotKey, Entity>>())
                       : slot<SlotValues>(name, value, std::make_unique<Impl::SlotValuesAccess>());
  made.keyType = descOfType(key);
  made.isCollection = made.isKeyed = made.isOrdered = true;
  made.isPointer = value.isEntity();
  return *this;
}

TypeBuilder& TypeBuilder::instantiating(std::string_view name, KelType member) {
  slot<Ptr<Entity>>(name, member, std::make_unique<Impl::ChildAccess<Entity>>()).isInstantiating = true;
  return optional();
}

TypeBuilder& TypeBuilder::instantiating(std::string_view name, KelType key, KelType member) {
  AttrDesc& made =
      slot<SlotEntities>(name, member, std::make_unique<Impl::EntitiesAccess<SlotKey, Entity>>());
  made.keyType = descOfType(key);
  made.isCollection = made.isKeyed = made.isOrdered = made.isInstantiating = true;
  return *this;
}

Kstd::Result<KelType, std::string> runtimeEnum(std::string_view module, std::string_view name,
                                               std::vector<Enumerator> enumerators) {
  TypeDesc& desc = *newDesc();
  desc.kind = TypeKind::Enum;
  desc.isRuntime = desc.isValueType = true;
  desc.underlying = BuiltinKind::S64;
  desc.ops = builtinDesc(BuiltinKind::S64).ops;
  desc.enumerators = std::move(enumerators);
  for (Enumerator& one : desc.enumerators)
    one.name = one.name.dedup();
  return TypeBuilder(module, name, desc).done();
}

} // namespace Kel
