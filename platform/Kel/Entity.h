// Kel::Entity: an object with identity, a name and a parent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Collections.h"
#include "Kel/GenericIf.h"
#include "Kel/Notifiee.h"
#include "Kstd/Export.h"

namespace Kel {

class Dir;

// Owned by its parent (a directory, or another entity's instantiating attribute) and by whoever holds a `Ptr`
// to it. Removal from the parent ends its place in the tree, whoever still holds it: it is detached and an
// orphan from then on, the parent's observers are told, then its own observers learn `onZeroReferences`, and
// so do those of everything beneath it. It is never attached again, and takes no children any more
// (`Kel::Error`). Lives on the scheduler thread.
//
// A class of the model derives from `EntityOf<Itself>`, keeps its attributes as public data members and
// changes them only through the protected operations below, each of which tells the observers when it changed
// something.
class KTD_EXPORT Entity : public PtrInterface {
public:
  ~Entity() override;

  // The name within the parent: in a directory the entry's name; else the attribute's name, followed for a
  // member of a collection by its key, field by field as "[field=text]", with a backslash before each bracket
  // and backslash of the text.
  [[nodiscard]] virtual String name() const;
  // The absolute name in the directory tree: the names of the places from the root on (whatever `name` of a
  // class says), each after a "/". As a path's text it leads back to the entity, whatever its keys are. Empty
  // for the root directory.
  [[nodiscard]] String fullName() const;
  // It has been removed from its parent (or an ancestor of it has).
  [[nodiscard]] bool isOrphan() const noexcept { return orphan_; }

  // The parent entity; null at the root, before attachment and after removal.
  [[nodiscard]] Entity* parent() const noexcept { return parent_; }
  // The parent's attribute that holds it; invalid without a parent.
  [[nodiscard]] KelAttr parentAttr() const noexcept;
  // Its key there; null for a singular attribute.
  [[nodiscard]] Ptr<GenericIf const> parentKey() const;
  // A number that no other entity of this process ever has.
  [[nodiscard]] std::uint64_t serial() const noexcept {
    return (identity_ & 1) != 0 ? identity_ >> 1 : apart()->serial;
  }

  [[nodiscard]] NotifieeList* notifieeList() const override { return &notifiees_; }
  // Called when it has got or lost its place, before the observers are told. What it raises is traced and
  // goes no further.
  virtual void handleParent() {}

  // The process-wide singleton entities, by type name. They live until `singletonDel`. `singletonIs` makes
  // what is not there; it raises `Kel::Error` when the type makes no entity, or when there is one of another
  // type:
  [[nodiscard]] static bool singletonExists(std::string_view name);
  static Ptr<Entity> singletonIs(KelType type, std::string_view name);
  static void singletonDel(std::string_view name); // a missing one is no matter
  // By the type's own name.
  template <class T>
  static Ptr<T> singleton() {
    KelType const type = typeOf<T>();
    return staticPtrCast<T>(singletonIs(type, type.name()));
  }

  // --- for the attribute descriptors, and `notify` for classes with hooks; not for users ------------
  // Sets the parent link; the caller puts the child where it belongs, says `placed`, and tells the observers,
  // in this order.
  static void attach(Entity& parent, AttrDesc const& attr, Ptr<GenericIf const> outsideKey, Entity& child);
  static void placed(Entity& child);          // it has its place: calls `handleParent`
  static void detach(Entity& child) noexcept; // takes the parent link away
  // Ends the subtree of a detached entity: its observers and those beneath it learn of it.
  static void end(Entity& entity);
  // Somebody is to be told.
  [[nodiscard]] bool isObserved() const noexcept { return hasNotificationActive() && !notifiees_.empty(); }
  // Tells the observers.
  void notify(AttributeId id, void const* key) const {
    if (isObserved()) notifiees_.visit(*this, id, key);
  }
  [[nodiscard]] PtrInterface const& anchor() const; // the weak identity, made on first use

protected:
  Entity();
  void handleZeroRef() const noexcept override;

  // Sets an attribute of a class; equal values are silent.
  template <class M, class V>
  void valueIs(M& member, V&& value);
  // The member of that key, made if missing. Deleting what is not there is silent, here and below:
  template <class K, class E>
  Ptr<E> memberIs(KeyedEntities<K, E>& members, std::type_identity_t<K> const& key);
  template <class K, class E>
  void memberDel(KeyedEntities<K, E>& members, std::type_identity_t<K> const& key);
  // Sets the value under a key, and removes it:
  template <class K, class V>
  void memberIs(KeyedValues<K, V>& members, std::type_identity_t<K> const& key,
                std::type_identity_t<V> const& value);
  template <class K, class V>
  void memberDel(KeyedValues<K, V>& members, std::type_identity_t<K> const& key);
  // Sets the reference under a key, and removes it. A null target removes it too:
  template <class K, class E>
  void memberIs(KeyedRefs<K, E>& members, std::type_identity_t<K> const& key, Ptr<E> const& target);
  template <class K, class E>
  void memberDel(KeyedRefs<K, E>& members, std::type_identity_t<K> const& key);
  // Removes the members there are, telling of each.
  template <class Members>
  void memberDelAll(Members& members);
  // The one entity of a singular instantiating attribute, made if missing, and its removal:
  template <class E>
  Ptr<E> childIs(Ptr<E>& child);
  template <class E>
  void childDel(Ptr<E>& child);

  // The attribute whose storage this member is.
  [[nodiscard]] AttrDesc const& attrOf(void const* member) const;

private:
  // What most entities do without.
  struct Apart {
    std::uint64_t serial;
    Ptr<GenericIf const> parentKey; // only where the key lies outside the member
    Ptr<PtrInterface> anchor;
  };

  void attachMember(void const* member, Ptr<GenericIf const> keyHandle, Entity& child);
  void told(void const* member, void const* rawKey) const;
  [[nodiscard]] Apart* apart() const noexcept { // null when there is none
    return (identity_ & 1) != 0 ? nullptr : reinterpret_cast<Apart*>(identity_);
  }
  Apart& apartMade() const;

  bool orphan_ = false; // lies in what the base leaves over
  Entity* parent_ = nullptr;
  AttrDesc const* parentAttr_ = nullptr;
  mutable NotifieeList notifiees_;
  mutable std::uint64_t identity_; // twice the serial and 1, or where it lies apart
};

// Trees are made of small objects: whatever each of them has counts.
static_assert(sizeof(void*) != 8 || sizeof(Entity) == 48);

// Gives a class of the model its type. `Base` is `Entity` or the class that it extends.
template <class T, class Base = Entity>
class EntityOf : public Base {
public:
  using Base::Base;
  [[nodiscard]] KelType fwkType() const override { return typeOf<T>(); }
};

// A handle to an entity, for generic access; of an entity that may not be changed, one that only reads. Keeps
// the entity alive. Null gives null.
template <class E>
requires std::is_base_of_v<Entity, E>
[[nodiscard]] auto handleTo(Ptr<E> const& entity) {
  using Object = std::conditional_t<std::is_const_v<E>, PtrInterface const, PtrInterface>;
  return GenericIf::toObject(static_cast<Object*>(entity.get()));
}

// The entity behind a handle. Null for a null handle, a handle to a value, to an entity that is no E, and for
// a weak one whose entity has gone. Given out of a handle that only reads, too, as by `GenericIf::object`:
// generic reads give no others.
template <class E = Entity>
requires std::is_base_of_v<Entity, E>
[[nodiscard]] Ptr<E> entityAt(Ptr<GenericIf const> const& handle) {
  return Ptr<E>(handle ? dynamic_cast<E*>(handle->object()) : nullptr);
}

namespace Impl {

// Equality of attribute values: floating-point numbers by their bits, everything else by ==.
template <class A, class B>
bool sameValue(A const& a, B const& b) {
  if constexpr (std::is_floating_point_v<A> && std::is_same_v<A, B>)
    return __builtin_memcmp(&a, &b, sizeof(A)) == 0;
  else
    return a == b;
}

} // namespace Impl

template <class M, class V>
void Entity::valueIs(M& member, V&& value) {
  if constexpr (requires { member == value; }) {
    if (Impl::sameValue(member, value)) return;
  } else {
    TypeDesc const& type = descOf<M>();
    if (type.ops.compare(type, &member, &value) == 0) return;
  }
  member = std::forward<V>(value);
  if (isObserved()) told(&member, nullptr);
}

template <class K, class E>
Ptr<E> Entity::memberIs(KeyedEntities<K, E>& members, std::type_identity_t<K> const& key) {
  if (E* const existing = members.find(key)) return Ptr<E>(existing);
  K const copy = key;
  Ptr<E> made(new E());
  attachMember(&members, KeyTraits<K>::handle(copy), *made);
  members.put(copy, made);
  placed(*made);
  if (isObserved()) told(&members, &copy);
  return made;
}

template <class K, class E>
void Entity::memberDel(KeyedEntities<K, E>& members, std::type_identity_t<K> const& key) {
  K const copy = key; // `key` may lie inside the member
  Ptr<E> const taken = members.take(copy);
  if (!taken) return;
  detach(*taken);
  if (isObserved()) told(&members, &copy);
  end(*taken);
}

template <class K, class V>
void Entity::memberIs(KeyedValues<K, V>& members, std::type_identity_t<K> const& key,
                      std::type_identity_t<V> const& value) {
  if (V const* const existing = members.find(key)) {
    TypeDesc const& type = descOf<V>();
    if (type.ops.compare(type, existing, &value) == 0) return;
  }
  K const copy = key;
  members.memberIs(copy, value);
  if (isObserved()) told(&members, &copy);
}

template <class K, class V>
void Entity::memberDel(KeyedValues<K, V>& members, std::type_identity_t<K> const& key) {
  K const copy = key;
  if (members.memberDel(copy) && isObserved()) told(&members, &copy);
}

template <class K, class E>
void Entity::memberIs(KeyedRefs<K, E>& members, std::type_identity_t<K> const& key, Ptr<E> const& target) {
  if (!target) return memberDel(members, key);
  if (members.find(key) == target.get()) return;
  K const copy = key;
  members.put(copy, target);
  if (isObserved()) told(&members, &copy);
}

template <class K, class E>
void Entity::memberDel(KeyedRefs<K, E>& members, std::type_identity_t<K> const& key) {
  K const copy = key;
  if (members.take(copy) && isObserved()) told(&members, &copy);
}

template <class Members>
void Entity::memberDelAll(Members& members) {
  std::vector<typename Members::Key> keys; // observers may put members there again
  keys.reserve(members.size());
  for (auto const& [key, member] : members)
    keys.push_back(key);
  Ptr<Entity> const pin(this);
  for (auto const& key : keys)
    memberDel(members, key);
}

template <class E>
Ptr<E> Entity::childIs(Ptr<E>& child) {
  if (child) return child;
  Ptr<E> made(new E());
  attachMember(&child, nullptr, *made);
  child = made;
  placed(*made);
  if (isObserved()) told(&child, nullptr);
  return made;
}

template <class E>
void Entity::childDel(Ptr<E>& child) {
  Ptr<E> const taken = std::exchange(child, nullptr);
  if (!taken) return;
  detach(*taken);
  if (isObserved()) told(&child, nullptr);
  end(*taken);
}

} // namespace Kel
