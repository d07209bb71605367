// The collections that attributes of declared classes are made of: keyed entities, keyed values, keyed
// references, stacks.
//
// Invariants
// 1. Members are kept and iterated in key order: `<` for text and integers, the type's own total order
//    otherwise.
// 2. Every change moves the stamp, the assignment of a whole collection too; a cursor that sees another stamp
//    than its own finds its place again by the key where it stands.
// 3. Members live in counted objects of their own (the entity, a `ValueNode`): erasing detaches a member and
//    never frees it under a handle.
// A collection inside an entity is changed through the entity (`Entity::memberIs`, `memberDel`) or through
// its attribute, so that the observers are told; the operations here tell nobody and serve values that stand
// alone.
#pragma once

#include <absl/container/btree_map.h>

#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"

namespace Kel {

// A reference to an entity by weak identity, as a key: told apart and ordered by the entity's serial number.
class KTD_EXPORT EntityRef {
public:
  EntityRef() = default;
  explicit EntityRef(Entity const& entity); // does not keep it alive
  // The identity that a weak handle carries.
  [[nodiscard]] static EntityRef fromWeak(GenericIf const& handle);
  // Null once the entity has gone.
  [[nodiscard]] Entity* entity() const noexcept;
  [[nodiscard]] Ptr<GenericIf const> handle() const;   // a weak one
  [[nodiscard]] std::uint64_t serial() const noexcept; // 0: refers to nothing
  friend bool operator==(EntityRef const& a, EntityRef const& b) noexcept { return a.serial() == b.serial(); }
  friend bool operator<(EntityRef const& a, EntityRef const& b) noexcept { return a.serial() < b.serial(); }

private:
  Ptr<PtrInterface const> anchor_;
};

// `EntityRef` to an E, so that the key type of a collection is known.
template <class E>
class RefTo : public EntityRef {
public:
  using Target = E; // the class of the entities
  using EntityRef::EntityRef;
};

// Ordering of keys, see invariant 1.
template <class K>
struct KeyLess {
  bool operator()(K const& a, K const& b) const {
    if constexpr (std::is_same_v<K, String> || std::is_integral_v<K> || std::is_base_of_v<EntityRef, K>) {
      return a < b;
    } else {
      TypeDesc const& type = descOf<K>();
      return type.ops.compare(type, &a, &b) < 0;
    }
  }
};

// How a key becomes a handle and back.
template <class K>
struct KeyTraits {
  static TypeDesc& type() { return descOf<K>(); }                            // of the key
  static Ptr<GenericIf const> handle(K const& key) { return handleOf(key); } // a detached copy
  // Raises `Kel::Error` when the handle is of another type.
  static K from(AttrDesc const& attr, GenericIf const& key);
};
// Of references as keys.
template <class E>
struct KeyTraits<RefTo<E>> {
  static TypeDesc& type() { return descOf<E>(); } // of what the key refers to
  static Ptr<GenericIf const> handle(RefTo<E> const& key) { return key.handle(); } // a weak one
  // Likewise.
  static RefTo<E> from(AttrDesc const& attr, GenericIf const& key);
};

// The common part: an ordered map that counts its changes.
template <class K, class M>
class KeyedMembers {
public:
  using Key = K;    // of a member
  using Member = M; // what is stored under a key
  using Map = absl::btree_map<K, M, KeyLess<K>, EndingAllocator<std::pair<K const, M>>>; // see invariant 1

  KeyedMembers() = default;
  // Copies the members; the stamp is the copy's own.
  KeyedMembers(KeyedMembers const& other) : map_(other.map_) {}
  KeyedMembers& operator=(KeyedMembers const& other) {
    ++stamp_;
    map_ = other.map_;
    return *this;
  }

  [[nodiscard]] std::size_t size() const noexcept { return map_.size(); }   // members
  [[nodiscard]] bool empty() const noexcept { return map_.empty(); }        // no member
  [[nodiscard]] auto begin() const { return map_.begin(); }                 // in key order
  [[nodiscard]] auto end() const { return map_.end(); }                     // behind the last
  [[nodiscard]] bool has(K const& key) const { return map_.contains(key); } // a member is there
  [[nodiscard]] Map const& map() const noexcept { return map_; }            // all members
  [[nodiscard]] std::uint64_t stamp() const noexcept { return stamp_; }     // see invariant 2

  // Adds the member, or replaces the one under its key. Tells nobody. Does not throw once it has its
  // arguments.
  void put(K key, M member) {
    ++stamp_;
    map_.insert_or_assign(std::move(key), std::move(member));
  }
  // The member that was under the key, or an empty one.
  M take(K const& key) {
    auto const found = map_.find(key);
    if (found == map_.end()) return M();
    M member = std::move(found->second);
    ++stamp_;
    map_.erase(found);
    return member;
  }

protected:
  Map map_;                 // the members
  std::uint64_t stamp_ = 0; // counts changes
};

// Entities that their owner makes and owns, by key.
template <class K, class E>
class KeyedEntities : public KeyedMembers<K, Ptr<E>> {
public:
  using Target = E; // the class of the entities
  // The entity under the key; null when there is none.
  [[nodiscard]] E* find(K const& key) const {
    auto const found = this->map_.find(key);
    return found == this->map_.end() ? nullptr : found->second.get();
  }
};

// References to entities that live elsewhere, by key.
template <class K, class E>
class KeyedRefs : public KeyedMembers<K, Ptr<E>> {
public:
  using Target = E; // the class of the entities
  // The entity under the key; null when there is none.
  [[nodiscard]] E* find(K const& key) const {
    auto const found = this->map_.find(key);
    return found == this->map_.end() ? nullptr : found->second.get();
  }
};

// One value of a keyed collection, alive as long as the collection or a handle holds it.
template <class V>
class ValueNode final : public PtrInterface {
public:
  explicit ValueNode(V const& v) : value(v) {} // a copy
  V value;                                     // lies here for as long as the node lives
};

// Values by key. Copying copies the values.
template <class K, class V>
class KeyedValues : public KeyedMembers<K, Ptr<ValueNode<V>>> {
public:
  using Value = V; // of a member
  KeyedValues() = default;
  // Copies the values.
  KeyedValues(KeyedValues const& other) : KeyedMembers<K, Ptr<ValueNode<V>>>() { *this = other; }
  KeyedValues& operator=(KeyedValues const& other) {
    if (this == &other) return *this;
    ++this->stamp_;
    this->map_.clear();
    for (auto const& [key, node] : other)
      this->map_.emplace(key, Ptr(new ValueNode<V>(node->value)));
    return *this;
  }
  // The value under the key; null when there is none. Valid until the member changes.
  [[nodiscard]] V const* find(K const& key) const {
    auto const found = this->map_.find(key);
    return found == this->map_.end() ? nullptr : &found->second->value;
  }
  // Tells nobody.
  void memberIs(K const& key, V const& value) { this->put(key, Ptr(new ValueNode<V>(value))); }
  // Whether it was there; tells nobody.
  bool memberDel(K const& key) { return static_cast<bool>(this->take(key)); }
};

// A last-in, first-out sequence of values.
template <class T>
class Stack {
public:
  void push(T value) { values_.push_back(std::move(value)); }                     // on top
  void pop() { values_.pop_back(); }                                              // REQUIRES a value
  [[nodiscard]] std::vector<T> const& values() const noexcept { return values_; } // the top is the last

private:
  std::vector<T> values_;
};

namespace Impl {
[[noreturn]] KTD_EXPORT void throwKeyType(AttrDesc const& attr, GenericIf const& key);
KTD_EXPORT EntityRef entityRefFrom(AttrDesc const& attr, GenericIf const& key);
} // namespace Impl

template <class K>
K KeyTraits<K>::from(AttrDesc const& attr, GenericIf const& key) {
  if (!(key.type() == KelType(&descOf<K>()))) Impl::throwKeyType(attr, key);
  return *static_cast<K const*>(key.data());
}

template <class E>
RefTo<E> KeyTraits<RefTo<E>>::from(AttrDesc const& attr, GenericIf const& key) {
  RefTo<E> ref;
  static_cast<EntityRef&>(ref) = Impl::entityRefFrom(attr, key);
  return ref;
}

} // namespace Kel
