// Each generic operation checks that the object is of the attribute's type and still there, then asks the
// attribute's access.
#include "Kel/Attr.h"

#include <fmt/format.h>

#include "Kel/Access.h"
#include "Kel/Error.h"
#include "Kel/Text.h"

namespace Kel {
namespace {

[[noreturn]] void wrongOwner(AttrDesc const& attr, GenericIf const* obj) {
  throwError(fmt::format("attribute '{}' of type '{}' was asked of {}", attr.name.view(),
                         attr.owner->name.view(),
                         obj == nullptr ? std::string("a null handle")
                                        : fmt::format("an object of type '{}'", obj->type().name().view())));
}

void requireOwner(AttrDesc const& attr, GenericIf const* obj) {
  if (obj == nullptr) [[unlikely]]
    wrongOwner(attr, obj);
  TypeDesc const& type = obj->type().desc();
  if (&type != attr.owner && !type.isA(*attr.owner)) [[unlikely]]
    wrongOwner(attr, obj);
  if (obj->data() == nullptr) [[unlikely]] {
    throwError(fmt::format("attribute '{}' of type '{}' was asked of an object that has gone",
                           attr.name.view(), attr.owner->name.view()));
  }
}

TypeDesc::ArrayOps const& requireArray(AttrDesc const& attr, GenericIf const* array) {
  if (array == nullptr || attr.type->arrayOps == nullptr || &array->type().desc() != attr.type)
    wrongOwner(attr, array);
  return *attr.type->arrayOps;
}

} // namespace

KelAttr KelAttrBase::indexAttr() const {
  return desc_->indexName.empty() ? KelAttr() : KelAttr(desc_->memberType->attrByName(desc_->indexName));
}

KelAttr KelAttrBase::keyFieldOf(KelAttrBase memberAttr) const {
  TypeDesc const* const key = desc_->isKeyed && desc_->indexName.empty() ? desc_->keyType : nullptr;
  if (key == nullptr || key->kind != TypeKind::Struct || key->hasGnmiStrRep || !memberAttr.isKeyField())
    return {};
  KelAttr const field(key->attrByName(memberAttr.name().view()));
  return field && field.memberType() == memberAttr.memberType() ? field : KelAttr();
}

KelAttr::ConstHandle KelAttr::genericIfGet(ConstHandle const& obj, ConstHandle const& key) const {
  requireOwner(*desc_, obj.get());
  return desc_->access->get(*desc_, *obj, key.get());
}

bool KelAttr::genericIfExist(ConstHandle const& obj, ConstHandle const& key) const {
  requireOwner(*desc_, obj.get());
  return desc_->access->exist(*desc_, *obj, key.get());
}

void KelAttr::genericIfSet(Handle const& obj, ConstHandle const& key, ConstHandle const& value) const {
  requireOwner(*desc_, obj.get());
  desc_->access->set(*desc_, *obj, key.get(), value.get());
}

KelAttr::Handle KelAttr::genericIfSet(Handle const& obj, ArgList const& args) const {
  return genericIfSet(obj, nullptr, args);
}

KelAttr::Handle KelAttr::genericIfSet(Handle const& obj, ConstHandle const& key, ArgList const& args) const {
  requireOwner(*desc_, obj.get());
  return desc_->access->create(*desc_, *obj, key.get(), args);
}

void KelAttr::genericIfDel(Handle const& obj, ConstHandle const& key) const {
  requireOwner(*desc_, obj.get());
  desc_->access->del(*desc_, *obj, key.get());
}

void KelAttr::genericIfAdd(Handle const& array, ConstHandle const& value) const {
  TypeDesc::ArrayOps const& ops = requireArray(*desc_, array.get());
  if (!value) throwError(fmt::format("attribute '{}': nothing to append", name().view()));
  Impl::requireType(*desc_, *desc_->type->elementType, *value);
  ops.append(array->data(), *value);
}

void KelAttr::genericIfRemove(Handle const& array) const {
  requireArray(*desc_, array.get()).clear(array->data());
}

std::vector<KelAttr::ConstHandle> KelAttr::genericIfMembers(ConstHandle const& array) const {
  TypeDesc::ArrayOps const& ops = requireArray(*desc_, array.get());
  std::vector<ConstHandle> members;
  std::size_t const size = ops.size(array->data());
  members.reserve(size);
  for (std::size_t i = 0; i < size; ++i)
    members.push_back(ops.at(*desc_->type->elementType, array->data(), i));
  return members;
}

std::size_t KelAttr::genericIfCount(ConstHandle const& obj) const {
  requireOwner(*desc_, obj.get());
  return desc_->access->count(*desc_, *obj);
}

KelAttr::ConstHandle KelAttr::genericIfCall(ConstHandle const& obj, ArgList const& args) const {
  requireOwner(*desc_, obj.get());
  return desc_->access->call(*desc_, *obj, args);
}

GenericIf::Iterator KelAttr::genericIfIterator(Handle const& obj) const {
  return genericIfIteratorConst(obj);
}

GenericIf::Iterator KelAttr::genericIfIteratorConst(ConstHandle const& obj) const {
  return genericIfIteratorConst(obj, nullptr);
}

GenericIf::Iterator KelAttr::genericIfIteratorConst(ConstHandle const& obj,
                                                    ConstHandle const& startKey) const {
  requireOwner(*desc_, obj.get());
  return GenericIf::Iterator(desc_->access->iterate(*desc_, obj, startKey.get()));
}

KelAttr KelAttr::genericIfUnionAlternative(ConstHandle const& value) {
  if (!value || !value->type().isUnion())
    throwError("the active alternative was asked of what is no union value");
  TypeDesc const& type = value->type().desc();
  return KelAttr(type.activeAlternative(type, value->data()));
}

KelAttr::ConstHandle KelAttr::genericIfGnmiJsonString(ConstHandle const& obj) const {
  requireOwner(*desc_, obj.get());
  auto const text = Impl::attrToJson(*desc_, obj);
  if (!text) return nullptr;
  return handleOf(JsonString{String(*text)});
}

} // namespace Kel
