// What an attribute permits: the checks before any kind of storage is asked.
#include <fmt/format.h>

#include "Kel/Access.h"
#include "Kel/Attr.h"
#include "Kel/Entity.h"
#include "Kel/Error.h"

namespace Kel {
namespace {

std::string described(AttrDesc const& attr) {
  return fmt::format("attribute '{}' of type '{}'", attr.name.view(), attr.owner->name.view());
}

void requireNoKey(AttrDesc const& attr, GenericIf const* key) {
  if (key != nullptr) [[unlikely]]
    throwError(described(attr) + " is singular and takes no key; found " + key->strRep());
}

void requireKey(AttrDesc const& attr, GenericIf const* key) {
  if (key == nullptr) [[unlikely]]
    throwError(described(attr) + " is a collection and needs a key");
}

// A keyed collection has members only, everything else is one value.
void checkKey(AttrDesc const& attr, GenericIf const* key) {
  attr.isKeyed ? requireKey(attr, key) : requireNoKey(attr, key);
}

// An array is read by index, too.
void checkKeyToRead(AttrDesc const& attr, GenericIf const* key) {
  if (attr.isKeyed != (key != nullptr) && !attr.isArray) [[unlikely]]
    checkKey(attr, key);
}

// A value of a value type is its holder's to change.
void requireSettable(AttrDesc const& attr, GenericIf const& obj) {
  if (!attr.isSettable && obj.object() != nullptr) throwError(described(attr) + " cannot be written");
}

void requireRemovable(AttrDesc const& attr) {
  if (!attr.isRemovable) throwError(described(attr) + " keeps its members: they cannot be removed");
}

void requireValue(AttrDesc const& attr, GenericIf const& value) {
  if (attr.isPointer)
    Impl::requireTarget(attr, value);
  else
    Impl::requireType(attr, attr.isKeyed ? *attr.memberType : *attr.type, value);
}

// An internal key must equal the value's own index attribute.
void requireIndex(AttrDesc const& attr, GenericIf const& key, GenericIf const& value) {
  Ptr<GenericIf const> const own = KelAttr(&attr).indexAttr().genericIfGet(Ptr<GenericIf const>(&value));
  if (own && own->equals(key)) return;
  throwError(fmt::format("{}: the member's own key {} differs from the key {}", described(attr),
                         own ? own->strRep() : "null", key.strRep()));
}

Entity& ownerOf(AttrDesc const& attr, GenericIf const& obj) {
  auto* const entity = dynamic_cast<Entity*>(obj.object());
  if (entity == nullptr) throwError(described(attr) + " needs an entity as its owner");
  return *entity;
}

bool holdsValues(AttrDesc const& attr) { return !attr.isInstantiating && !attr.isStack && !attr.isOperation; }

} // namespace

Ptr<GenericIf const> AttrAccess::get(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const {
  checkKeyToRead(attr, key);
  return read(attr, obj, key);
}

bool AttrAccess::exist(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const {
  checkKeyToRead(attr, key);
  return has(attr, obj, key);
}

void AttrAccess::set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
                     GenericIf const* value) const {
  if (attr.isPlainlySet && key == nullptr && value != nullptr) [[likely]] {
    Impl::requireType(attr, *attr.type, *value);
    return write(attr, obj, value);
  }
  if (!holdsValues(attr)) notSupported(attr, "set");
  checkKey(attr, key);
  requireSettable(attr, obj);
  if (value != nullptr)
    requireValue(attr, *value);
  else if (!attr.isKeyed && !attr.isOptional)
    throwError(described(attr) + " cannot be left without a value");
  if (!attr.isKeyed) return write(attr, obj, value);
  if (value == nullptr) return erase(attr, obj, key);
  if (!attr.indexName.empty()) requireIndex(attr, *key, *value);
  store(attr, obj, key, value);
}

void AttrAccess::init(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const {
  requireValue(attr, value);
  assign(attr, obj, value);
}

Ptr<GenericIf> AttrAccess::create(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
                                  ArgList const& args) const {
  if (!attr.isInstantiating || attr.owner->isDir) notSupported(attr, "set from constructor arguments");
  if (attr.indexName.empty()) checkKey(attr, key);
  Entity& owner = ownerOf(attr, obj);
  Ptr<Entity> const made = dynamicPtrCast<Entity>(Impl::construct(*attr.memberType, args));
  if (!made) throwError(described(attr) + ": the member type makes no entity");
  if (key != nullptr && attr.indexName.empty() && &key->type().desc() == attr.keyType)
    Impl::keyInto(attr, *key, *made);
  Ptr<GenericIf const> const index = attr.indexName.empty() ? nullptr : Impl::indexOf(attr, *made);
  place(attr, obj, owner, index ? index.get() : key, made);
  return GenericIf::toObject(static_cast<PtrInterface*>(made.get()));
}

void AttrAccess::del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const {
  if (attr.isStack || attr.isOperation) notSupported(attr, "delete");
  checkKey(attr, key);
  attr.isInstantiating ? requireRemovable(attr) : requireSettable(attr, obj);
  if (attr.isInstantiating || attr.isKeyed) return erase(attr, obj, key);
  reset(attr, obj);
}

// One value, by the class's own setter where it has one.
void AttrAccess::write(AttrDesc const& attr, GenericIf& obj, GenericIf const* value) const {
  attr.setter&& obj.object() != nullptr ? storeBySetter(attr, obj, value) : store(attr, obj, nullptr, value);
}

void AttrAccess::reset(AttrDesc const& attr, GenericIf& obj) const {
  write(attr, obj, attr.isOptional ? nullptr : GenericIf::defaultOf(*attr.type).get());
}

std::size_t AttrAccess::count(AttrDesc const& attr, GenericIf const& obj) const {
  if (!attr.isCollection) notSupported(attr, "count");
  return size(attr, obj);
}

Ptr<Cursor> AttrAccess::iterate(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                                GenericIf const* start) const {
  if (!attr.isCollection) notSupported(attr, "iterate");
  return cursor(attr, obj, start);
}

Ptr<GenericIf const> AttrAccess::call(AttrDesc const& attr, GenericIf const& obj, ArgList const& args) const {
  return invoke(attr, obj, args);
}

// --- what an attribute does not have -------------------------------------------------------------------

void AttrAccess::notSupported(AttrDesc const& attr, char const* operation) {
  throwError(described(attr) + fmt::format(" does not support the operation '{}'", operation));
}

void const* AttrAccess::valueAt(AttrDesc const&, void const*) const noexcept { return nullptr; }
Ptr<GenericIf const> AttrAccess::keyHandle(AttrDesc const&, void const*) const { return nullptr; }
int AttrAccess::compare(AttrDesc const& attr, void const*, void const*) const {
  notSupported(attr, "compare");
}
std::uint64_t AttrAccess::hash(AttrDesc const& attr, void const*) const { notSupported(attr, "hash"); }
void AttrAccess::visitChildren(AttrDesc const&, Entity&, std::function<void(Entity&)> const&) const {}
void AttrAccess::dropReferences(AttrDesc const&, Entity&) const {}

Ptr<GenericIf const> AttrAccess::read(AttrDesc const& attr, GenericIf const&, GenericIf const*) const {
  notSupported(attr, "get");
}
bool AttrAccess::has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const {
  return static_cast<bool>(read(attr, obj, key));
}
void AttrAccess::store(AttrDesc const& attr, GenericIf&, GenericIf const*, GenericIf const*) const {
  notSupported(attr, "set");
}
void AttrAccess::storeBySetter(AttrDesc const& attr, GenericIf&, GenericIf const*) const {
  notSupported(attr, "set");
}
void AttrAccess::assign(AttrDesc const& attr, GenericIf&, GenericIf const&) const {
  notSupported(attr, "init");
}
void AttrAccess::place(AttrDesc const& attr, GenericIf&, Entity&, GenericIf const*,
                       Ptr<Entity> const&) const {
  notSupported(attr, "set from constructor arguments");
}
void AttrAccess::erase(AttrDesc const& attr, GenericIf&, GenericIf const*) const {
  notSupported(attr, "delete");
}
std::size_t AttrAccess::size(AttrDesc const& attr, GenericIf const&) const { notSupported(attr, "count"); }
Ptr<Cursor> AttrAccess::cursor(AttrDesc const& attr, Ptr<GenericIf const> const&, GenericIf const*) const {
  notSupported(attr, "iterate");
}
Ptr<GenericIf const> AttrAccess::invoke(AttrDesc const& attr, GenericIf const&, ArgList const&) const {
  notSupported(attr, "call");
}

} // namespace Kel
