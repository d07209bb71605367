// What all kinds of storage share (checks, errors, telling observers, structures), and values that lie in the
// object, arrays too.
#include "Kel/Access.h"

#include <fmt/format.h>

#include "Kel/Declare.h"
#include "Tovak/HashMix.h"

namespace Kel::Impl {
namespace {

std::string described(AttrDesc const& attr) {
  return fmt::format("attribute '{}' of type '{}'", attr.name.view(), attr.owner->name.view());
}

} // namespace

void notifyOf(GenericIf const& obj, AttrDesc const& attr, void const* rawKey) {
  PtrInterface* const object = obj.object();
  if (object == nullptr || !object->hasNotificationActive()) return;
  if (NotifieeList* const list = object->notifieeList(); list != nullptr && !list->empty())
    list->visit(*object, attr.id, rawKey);
}

void requireType(AttrDesc const& attr, TypeDesc const& expected, GenericIf const& value) {
  if (&value.type().desc() == &expected) [[likely]]
    return;
  throwError(fmt::format("{} takes a value of type '{}'; found {} of type '{}'", described(attr),
                         expected.name.view(), value.strRep(), value.type().name().view()));
}

void throwMadeAgain(AttrDesc const& attr) {
  throwError(described(attr) + ": an observer has made the entity again while it was being replaced");
}

PtrInterface* requireTarget(AttrDesc const& attr, GenericIf const& value) {
  PtrInterface* const target = value.object();
  if (target == nullptr || value.voidPtrIs(KelType(attr.memberType)) == nullptr) {
    throwError(fmt::format("{} refers to an object of type '{}'; found {} of type '{}'", described(attr),
                           attr.memberType->name.view(), value.strRep(), value.type().name().view()));
  }
  return target;
}

Ptr<PtrInterface> construct(TypeDesc const& type, ArgList const& args) {
  if (type.makeFromArgs) return type.makeFromArgs(args);
  if (!type.makeObject) throwError(fmt::format("type '{}' has no constructor", type.name.view()));
  if (args.size() > type.ctorArgs.size()) {
    throwError(fmt::format("type '{}' takes {} constructor arguments; found {}", type.name.view(),
                           type.ctorArgs.size(), args.size()));
  }
  Ptr<PtrInterface> const object = type.makeObject();
  Ptr<GenericIf> const handle = GenericIf::toObject(object.get());
  for (std::size_t i = 0; i < args.size(); ++i) {
    AttrDesc const& attr = *type.ctorArgs[i];
    if (args[i]) attr.access->init(attr, *handle, *args[i]);
  }
  return object;
}

Ptr<GenericIf const> indexOf(AttrDesc const& attr, Entity& member) {
  KelAttr const index = KelAttr(&attr).indexAttr();
  return index.genericIfGet(GenericIf::toObject(static_cast<PtrInterface const*>(&member)));
}

void keyInto(AttrDesc const& attr, GenericIf const& key, Entity& member) {
  KelAttr const index = KelAttr(&attr).indexAttr();
  bool const isStructured = !index && attr.keyType->kind == TypeKind::Struct && !attr.keyType->hasGnmiStrRep;
  if (!index && !isStructured) return;
  Ptr<GenericIf> const object = GenericIf::toObject(static_cast<PtrInterface*>(&member));
  if (index) return index.desc().access->init(index.desc(), *object, key);
  for (KelTypeBase::AttributeQIterator own(object->type()); own; ++own) {
    KelAttr const field = KelAttr(&attr).keyFieldOf(*own);
    Ptr<GenericIf const> const value =
        field ? field.genericIfGet(Ptr<GenericIf const>(&key)) : Ptr<GenericIf const>();
    if (value) (*own).desc().access->init((*own).desc(), *object, *value);
  }
}

void throwKeyType(AttrDesc const& attr, GenericIf const& key) {
  throwError(fmt::format("{} is keyed by type '{}'; found {} of type '{}'", described(attr),
                         attr.keyType->name.view(), key.strRep(), key.type().name().view()));
}

EntityRef entityRefFrom(AttrDesc const& attr, GenericIf const& key) {
  if (key.type().isEntity() && key.type().desc().isA(*attr.keyType)) {
    auto const* const entity = dynamic_cast<Entity const*>(key.object());
    return entity != nullptr ? EntityRef(*entity) : EntityRef::fromWeak(key);
  }
  throwKeyType(attr, key);
}

// --- values of structures --------------------------------------------------------------------------------

int compareStruct(TypeDesc const& type, void const* a, void const* b) {
  for (auto const& attr : type.attrs)
    if (int const order = attr->access->compare(*attr, a, b); order != 0) return order;
  return 0;
}

std::uint64_t hashStruct(TypeDesc const& type, void const* at) {
  std::uint64_t state = Tovak::Impl::HashMix::stateStart;
  for (auto const& attr : type.attrs)
    Tovak::Impl::HashMix::mixFixedLen<8>(state, attr->access->hash(*attr, at));
  return state;
}

std::uint64_t hashBytes(void const* bytes, std::size_t size) {
  std::uint64_t state = Tovak::Impl::HashMix::stateStart;
  Tovak::Impl::HashMix::mix(state, bytes, size);
  return state;
}

std::uint64_t hashMix(std::uint64_t a, std::uint64_t b) {
  Tovak::Impl::HashMix::mixFixedLen<8>(a, b);
  return a;
}

void completeArrayDesc(TypeDesc& desc) {
  desc.name = String::dedup(desc.elementType->name.str() + "[]");
  desc.module = desc.elementType->module;
  desc.complete = true;
}

// --- InPlaceAccess ---------------------------------------------------------------------------------------

namespace {

// The members of an array attribute by number; looks the array up afresh at every step. Who stands at an
// index has no other to move to: it is in one of two states, Ended or not.
class ArrayCursor final : public Cursor {
public:
  using ArrayOf = void const* (*)(AttrDesc const&, GenericIf const&);
  ArrayCursor(Ptr<GenericIf const> obj, AttrDesc const& attr, std::uint64_t start, ArrayOf arrayOf)
      : obj_(std::move(obj))
      , attr_(&attr)
      , index_(start)
      , arrayOf_(arrayOf)
      , ended_(!isThere()) {}
  bool valid() override {
    ended_ = ended_ || !isThere();
    return !ended_;
  }
  void advance() override {
    if (ended_) return;
    ++index_;
    ended_ = !isThere();
  }
  Ptr<GenericIf const> key() override { return ended_ ? nullptr : handleOf(index_); }
  Ptr<GenericIf const> value() override {
    if (ended_ || !isThere()) return nullptr;
    return attr_->type->arrayOps->at(*attr_->memberType, array(), index_);
  }

private:
  [[nodiscard]] void const* array() const { return arrayOf_(*attr_, *obj_); }
  [[nodiscard]] bool isThere() const { return index_ < attr_->type->arrayOps->size(array()); }
  Ptr<GenericIf const> obj_;
  AttrDesc const* attr_;
  std::uint64_t index_;
  ArrayOf arrayOf_;
  bool ended_;
};

void const* arrayInPlace(AttrDesc const& attr, GenericIf const& obj) {
  return &storage<unsigned char>(attr, obj);
}

} // namespace

std::uint64_t arrayIndex(AttrDesc const& attr, GenericIf const& key) {
  std::uint64_t const* const index = key.attrValPtr<std::uint64_t>();
  if (index == nullptr) throwKeyType(attr, key);
  return *index;
}

Ptr<Cursor> arrayCursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj, GenericIf const* start,
                        void const* (*arrayOf)(AttrDesc const&, GenericIf const&)) {
  return Ptr<Cursor>(new ArrayCursor(obj, attr, start == nullptr ? 0 : arrayIndex(attr, *start), arrayOf));
}

Ptr<GenericIf const> InPlaceAccess::read(AttrDesc const& attr, GenericIf const& obj,
                                         GenericIf const* key) const {
  void const* const at = &storage<unsigned char>(attr, obj);
  if (key == nullptr) [[likely]]
    return attr.type->isScalar() ? Ptr<GenericIf const>(GenericIf::copyOf(*attr.type, at))
                                 : GenericIf::inPlace(*attr.type, at, obj.owner());
  std::uint64_t const index = arrayIndex(attr, *key);
  if (index >= attr.type->arrayOps->size(at)) return nullptr;
  return attr.type->arrayOps->at(*attr.memberType, at, index);
}

bool InPlaceAccess::has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const {
  return key == nullptr || arrayIndex(attr, *key) < size(attr, obj);
}

void InPlaceAccess::store(AttrDesc const& attr, GenericIf& obj, GenericIf const*,
                          GenericIf const* value) const {
  void* const at = &storage<unsigned char>(attr, obj);
  if (attr.type->ops.compare(*attr.type, at, value->data()) == 0) return;
  attr.type->ops.assign(*attr.type, at, value->data());
  notifyOf(obj, attr, nullptr);
}

void InPlaceAccess::storeBySetter(AttrDesc const& attr, GenericIf& obj, GenericIf const* value) const {
  attr.setter(obj.object(), value->data());
}

void InPlaceAccess::assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const {
  attr.type->ops.assign(*attr.type, &storage<unsigned char>(attr, obj), value.data());
}

std::size_t InPlaceAccess::size(AttrDesc const& attr, GenericIf const& obj) const {
  return attr.type->arrayOps->size(&storage<unsigned char>(attr, obj));
}

Ptr<Cursor> InPlaceAccess::cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                                  GenericIf const* start) const {
  return arrayCursor(attr, obj, start, &arrayInPlace);
}

Ptr<GenericIf const> InPlaceAccess::keyHandle(AttrDesc const& attr, void const* rawKey) const {
  if (!attr.isArray) return nullptr;
  return handleOf(*static_cast<std::uint64_t const*>(rawKey));
}

int InPlaceAccess::compare(AttrDesc const& attr, void const* a, void const* b) const {
  return attr.type->ops.compare(*attr.type, &storage<unsigned char>(attr, a),
                                &storage<unsigned char>(attr, b));
}

std::uint64_t InPlaceAccess::hash(AttrDesc const& attr, void const* at) const {
  return attr.type->ops.hash(*attr.type, &storage<unsigned char>(attr, at));
}

} // namespace Kel::Impl
