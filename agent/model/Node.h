// The base of the model's classes: entities whose leaves and children are public members, read directly and
// written through the operations here, which tell the observers of what changed.
#pragma once

#include <type_traits>
#include <utility>

#include "Kel/Entity.h"

namespace Agent {

// `T` derives from `Node<T>` (or, extending `Base`, from `Node<T, Base>`). Scheduler thread only. Pointers to
// members name what is written: `state->leafIs(&InterfaceState::mtu, 1500)`.
template <class T, class Base = Kel::Entity>
class Node : public Kel::EntityOf<T, Base> {
public:
  // Writes a leaf; an equal value is silent.
  template <class M, class C>
  void leafIs(M C::*member, std::type_identity_t<M> const& value) {
    this->valueIs(self().*member, value);
  }
  // The one container, made if missing.
  template <class E, class C>
  Kel::Ptr<E> containerIs(Kel::Ptr<E> C::*member) {
    return this->childIs(self().*member);
  }
  template <class E, class C>
  void containerDel(Kel::Ptr<E> C::*member) {
    this->childDel(self().*member);
  }
  // The list entry of that key, made if missing.
  template <class K, class E, class C>
  Kel::Ptr<E> entryIs(Kel::KeyedEntities<K, E> C::*member, std::type_identity_t<K> const& key) {
    return this->memberIs(self().*member, key);
  }
  template <class K, class E, class C>
  void entryDel(Kel::KeyedEntities<K, E> C::*member, std::type_identity_t<K> const& key) {
    this->memberDel(self().*member, key);
  }

private:
  T& self() { return static_cast<T&>(*this); }
};

} // namespace Agent
