// Values up to a few words lie in the handle, larger ones in a counted box, objects in themselves; weak
// handles hold an anchor.
#include "Kel/GenericIf.h"

#include <cstring>

#include "Kel/Attr.h"
#include "Kel/Entity.h"
#include "Kel/EntityAnchor.h"
#include "Kel/Error.h"
#include "Kel/Text.h"
#include "Kel/ValueBox.h"

namespace Kel {
namespace {

bool isObjectKind(TypeDesc const& type) noexcept {
  return type.kind == TypeKind::Entity || type.kind == TypeKind::Object;
}

void copyValue(TypeDesc const& type, void* to, void const* from) {
  if (type.ops.trivial) {
    switch (type.ops.size) {
    case 1: std::memcpy(to, from, 1); return;
    case 2: std::memcpy(to, from, 2); return;
    case 4: std::memcpy(to, from, 4); return;
    case 8: std::memcpy(to, from, 8); return;
    default: break;
    }
  }
  type.ops.copy(type, to, from);
}

} // namespace

GenericIfRaw GenericIfRaw::fromGif(GenericIf const& handle) noexcept {
  GenericIfRaw raw;
  raw.type = &handle.type().desc();
  raw.data = handle.data();
  return raw;
}

GenericIf::GenericIf(TypeDesc const* type, void* data, PtrInterface const* owner) noexcept
    : type_(type)
    , data_(data)
    , owner_(owner) {
  if (owner_ != nullptr) owner_->ref();
}

GenericIf::~GenericIf() {
  if (data_ == inline_ && !type_->ops.trivial) type_->ops.destroy(*type_, data_);
  if (owner_ != nullptr) owner_->unref();
}

void GenericIf::handleZeroRef() const noexcept { delete this; }

Ptr<GenericIf> GenericIf::copyOf(TypeDesc const& type, void const* raw) {
  if (fitsInline(type)) {
    Ptr<GenericIf> handle(new GenericIf(&type));
    copyValue(type, handle->inline_, raw);
    return handle;
  }
  Ptr<ValueBox> const box = ValueBox::copyOf(type, raw);
  return Ptr<GenericIf>(new GenericIf(&type, box->storage(), box.get()));
}

Ptr<GenericIf> GenericIf::defaultOf(TypeDesc const& type) {
  if (fitsInline(type)) {
    Ptr<GenericIf> handle(new GenericIf(&type));
    type.ops.construct(type, handle->inline_);
    return handle;
  }
  Ptr<ValueBox> const box(ValueBox::make(type));
  type.ops.construct(type, box->storage());
  return Ptr<GenericIf>(new GenericIf(&type, box->storage(), box.get()));
}

Ptr<GenericIf const> GenericIf::inPlace(TypeDesc const& type, void const* raw, PtrInterface const& owner) {
  if (type.isScalar()) return copyOf(type, raw);
  return Ptr<GenericIf const>(new GenericIf(&type, const_cast<void*>(raw), &owner));
}

Ptr<GenericIf> GenericIf::toObject(PtrInterface* object) {
  if (object == nullptr) return nullptr;
  KelType const type = object->fwkType();
  if (!type) throwError("an object without a type of the model cannot be wrapped in a handle");
  return Ptr<GenericIf>(new GenericIf(&type.desc(), object, object));
}

Ptr<GenericIf const> GenericIf::toObject(PtrInterface const* object) {
  return toObject(const_cast<PtrInterface*>(object));
}

Ptr<GenericIf const> GenericIf::weak(Entity const& entity) {
  return weak(entity.fwkType().desc(), entity.anchor());
}

Ptr<GenericIf const> GenericIf::weak(TypeDesc const& type, PtrInterface const& anchor) {
  return Ptr<GenericIf const>(new GenericIf(&type, nullptr, &anchor));
}

void* GenericIf::voidPtrIs(KelType type) const noexcept {
  if (!type) return nullptr;
  void* const at = isObjectKind(*type_) ? static_cast<void*>(object()) : data_;
  return type_->isA(type.desc()) ? at : nullptr;
}

PtrInterface* GenericIf::object() const noexcept {
  if (!isObjectKind(*type_)) return nullptr;
  if (data_ != nullptr) return static_cast<PtrInterface*>(data_);
  return static_cast<EntityAnchor const*>(owner_)->entity();
}

std::string GenericIf::strRep() const {
  if (isObjectKind(*type_)) {
    auto const* const entity = dynamic_cast<Entity const*>(object());
    return entity == nullptr ? type_->name.str() : entity->fullName().str();
  }
  return Impl::print(*type_, data_, Impl::Quotation::Literal);
}

std::string GenericIf::gnmiStrRep() const {
  if (isObjectKind(*type_)) return strRep();
  return Impl::print(*type_, data_, Impl::Quotation::Plain);
}

std::string GenericIf::gnmiByterep() const {
  if (!type_->gnmiByteRep) throwError("type '" + type_->name.str() + "' has no gNMI byte representation");
  return type_->gnmiByteRep(data_);
}

namespace {

// What entities are told apart by; objects that are no entities by their address.
std::uint64_t identityOf(PtrInterface const* object, PtrInterface const* owner) noexcept {
  if (object == nullptr) return static_cast<EntityAnchor const*>(owner)->serial();
  auto const* const entity = dynamic_cast<Entity const*>(object);
  return entity != nullptr ? entity->serial() : reinterpret_cast<std::uintptr_t>(object);
}

} // namespace

std::uint64_t GenericIf::hash() const {
  if (isObjectKind(*type_)) return identityOf(static_cast<PtrInterface const*>(data_), owner_);
  return type_->ops.hash(*type_, data_);
}

bool GenericIf::equals(GenericIf const& other) const { return this == &other || compare(other) == 0; }

int GenericIf::compare(GenericIf const& other) const {
  if (isObjectKind(*type_) && isObjectKind(*other.type_)) {
    std::uint64_t const mine = identityOf(static_cast<PtrInterface const*>(data_), owner_);
    std::uint64_t const theirs = identityOf(static_cast<PtrInterface const*>(other.data_), other.owner_);
    return mine < theirs ? -1 : mine > theirs ? 1 : 0;
  }
  if (type_ != other.type_) return std::less<TypeDesc const*>{}(type_, other.type_) ? -1 : 1;
  return type_->ops.compare(*type_, data_, other.data_);
}

Ptr<GenericIf> GenericIf::clone() const {
  return isObjectKind(*type_) ? toObject(object()) : copyOf(*type_, data_);
}

Ptr<GenericIf const> GenericIf::detachedKey() const {
  if (!isObjectKind(*type_))
    return data_ == inline_ ? Ptr<GenericIf const>(this) : Ptr<GenericIf const>(clone());
  if (data_ == nullptr) return Ptr<GenericIf const>(this);
  auto const* const entity = dynamic_cast<Entity const*>(object());
  if (entity == nullptr) throwError("an object of type '" + type_->name.str() + "' has no weak identity");
  return weak(*entity);
}

Ptr<GenericIf const> GenericIf::NotifieeConst::keyPointerToGif(KelAttr const& attr, void const* key) {
  if (key == nullptr) return nullptr;
  return attr.desc().access->keyHandle(attr.desc(), key);
}

} // namespace Kel
