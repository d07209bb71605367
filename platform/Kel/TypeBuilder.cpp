// Modifiers set flags of the last attribute; at the end the rules are asked, and the lookup tables follow
// from what was declared.
#include "Kel/TypeBuilder.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Kel/Access.h"
#include "Kel/Error.h"
#include "Kel/NameIndex.h"
#include "Kel/Slots.h"
#include "Kel/Text.h"

namespace Kel {

TypeBuilder::TypeBuilder(std::string_view module, std::string_view name, TypeDesc& desc) : desc_(&desc) {
  if (desc.complete)
    throwError(fmt::format("type '{}' is declared already; found a second declaration as '{}'",
                           desc.name.view(), name));
  desc.name = String::dedup(name);
  desc.module = kelModuleIs(module);
}

TypeBuilder::TypeBuilder(TypeBuilder&&) noexcept = default;
TypeBuilder::~TypeBuilder() = default;

AttrDesc& TypeBuilder::add(std::string_view name, TypeDesc* type, std::unique_ptr<AttrAccess> access) {
  auto attr = std::make_unique<AttrDesc>();
  attr->owner = desc_;
  attr->index = static_cast<std::uint16_t>(desc_->attrs.size());
  attr->id = static_cast<AttributeId>(desc_->attrs.size()) + 1;
  attr->name = String::dedup(name);
  attr->type = attr->memberType = type;
  attr->access = std::move(access);
  desc_->attrs.push_back(std::move(attr));
  last_ = desc_->attrs.back().get();
  return *last_;
}

AttrDesc& TypeBuilder::last() {
  if (last_ == nullptr)
    throwError(fmt::format("type '{}': a modifier stands before the first attribute", desc_->name.view()));
  return *last_;
}

TypeBuilder& TypeBuilder::id(AttributeId id) { return last().id = id, *this; }
TypeBuilder& TypeBuilder::ctorArg() { return last().isCtorArg = true, *this; }
TypeBuilder& TypeBuilder::keyField() { return last().isKeyField = true, *this; }
TypeBuilder& TypeBuilder::index(std::string_view member) {
  return last().indexName = String::dedup(member), *this;
}
TypeBuilder& TypeBuilder::settable(bool yes) { return last().isSettable = yes, *this; }
TypeBuilder& TypeBuilder::removable(bool yes) { return last().isRemovable = yes, *this; }
TypeBuilder& TypeBuilder::optional() { return last().isOptional = true, *this; }
TypeBuilder& TypeBuilder::embedded() { return last().isEmbedded = true, *this; }
TypeBuilder& TypeBuilder::gnmiJson() { return last().isGnmiJsonString = true, *this; }
TypeBuilder& TypeBuilder::asOneValue() { return last().readsAsOneValue = true, *this; }
TypeBuilder& TypeBuilder::keyScalarNode() { return last().isKeyScalarNode = true, *this; }
TypeBuilder& TypeBuilder::walkAlways() { return last().walkAlways = true, *this; }

TypeBuilder&
TypeBuilder::gnmiStrRep(std::function<std::string(void const*)> print,
                        std::function<std::optional<std::string>(std::string_view, void*)> parse) {
  desc_->hasGnmiStrRep = true;
  desc_->gnmiStrRep = std::move(print);
  desc_->fromGnmiString = std::move(parse);
  return *this;
}

TypeBuilder& TypeBuilder::gnmiByteRep(std::function<std::string(void const*)> print) {
  desc_->hasGnmiByteRep = true;
  desc_->gnmiByteRep = std::move(print);
  return *this;
}

TypeBuilder& TypeBuilder::reportsDelete(bool yes) { return desc_->reportsDelete = yes, *this; }

TypeBuilder& TypeBuilder::extends(TypeDesc const& base) {
  if (!base.complete || !desc_->attrs.empty()) {
    throwError(fmt::format(
        "type '{}' extends '{}': that needs to be declared before, and to come before the first attribute",
        desc_->name.view(), base.name.view()));
  }
  if (desc_->isRuntime != base.isRuntime) {
    throwError(fmt::format("type '{}' extends '{}': one is a C++ class and one is described at run time",
                           desc_->name.view(), base.name.view()));
  }
  desc_->base = &base;
  for (auto const& attr : base.attrs) {
    desc_->attrs.push_back(std::make_unique<AttrDesc>(*attr));
    desc_->attrs.back()->owner = desc_;
  }
  return *this;
}

namespace {

// What follows from the declaration: derived flags, the constructor's order, the lookup tables.
void complete(TypeDesc& type) {
  type.names = std::make_shared<TypeDesc::NameIndex>();
  for (auto const& attr : type.attrs) {
    if (attr->isArray) attr->isScalarArray = attr->memberType->isScalar();
    if (attr->isInstantiating && attr->isCollection) attr->walkAlways = true;
    if (type.isValueType) attr->isSettable = true;
    attr->isPlainlySet = attr->isSettable && !attr->isKeyed && !attr->isPointer && !attr->isInstantiating &&
                         !attr->isStack && !attr->isOperation;
    if (attr->isCtorArg) type.ctorArgs.push_back(attr.get());
    type.names->byName.emplace(attr->name.view(), attr.get());
    auto const id = static_cast<std::size_t>(attr->id);
    if (id >= type.byId.size()) type.byId.resize(id + 1);
    type.byId[id] = attr.get();
    if (attr->offset != SIZE_MAX && !type.isRuntime) { // only classes ask by their members
      if (attr->offset >= type.byOffset.size()) type.byOffset.resize(attr->offset + 1);
      type.byOffset[attr->offset] = attr.get();
    }
  }
  bool const wraps = type.kind == TypeKind::Nominal || type.kind == TypeKind::KeyPtr;
  if (wraps && !type.hasGnmiStrRep) type.valAttr = type.attrs.front().get();
  if (type.kind == TypeKind::Enum) type.hasGnmiStrRep = true;
  if (type.ops.construct != nullptr) {
    // An enumeration's default is its first enumerator, whatever its number.
    if (type.kind == TypeKind::Enum) {
      type.ops.construct = [](TypeDesc const& self, void* at) {
        __builtin_memset(at, 0, self.ops.size);
        if (!self.enumerators.empty()) __builtin_memcpy(at, &self.enumerators.front().value, self.ops.size);
      };
    }
    type.isValueType = true;
  }
  type.complete = true;
}

} // namespace

Kstd::Result<KelType, std::string> TypeBuilder::done() {
  if (auto broken = Impl::brokenRule(*desc_)) return Kstd::Err(*std::move(broken));
  if (desc_->isRuntime && desc_->kind != TypeKind::Enum) Impl::layOut(*desc_);
  complete(*desc_);
  return KelType(desc_);
}

} // namespace Kel
