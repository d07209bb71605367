// How keyed collections of declared classes are stored, see Kel/Access.h.
#pragma once

#include <iterator>
#include <optional>
#include <utility>

#include "Kel/Access.h"

namespace Kel::Impl {

// The cursor over any of the keyed collections; its states are those of `Cursor`.
template <class C, class ToHandle>
class MembersCursor final : public Cursor {
public:
  using K = typename C::Key;
  MembersCursor(Ptr<GenericIf const> obj, C const& members, AttrDesc const& attr, GenericIf const* start)
      : obj_(std::move(obj))
      , members_(&members)
      , attr_(&attr) {
    settle(start == nullptr ? map().begin() : map().lower_bound(KeyTraits<K>::from(attr, *start)));
  }
  bool valid() override {
    if (state_ != State::Ended && isStale()) [[unlikely]]
      findAgain();
    return state_ != State::Ended;
  }
  void advance() override {
    if (state_ == State::Ended) return;
    if (isStale() || state_ == State::Moved) [[unlikely]]
      return advanceAnew();
    ++at_;
    state_ = at_ == map().end() ? State::Ended : State::Fresh;
    if (state_ != State::Ended) key_ = at_->first;
  }
  Ptr<GenericIf const> key() override {
    if (state_ == State::Ended) return nullptr;
    state_ = State::Given;
    return KeyTraits<K>::handle(*key_);
  }
  Ptr<GenericIf const> value() override {
    if (state_ == State::Ended) return nullptr;
    state_ = State::Given;
    if (!isStale()) [[likely]]
      return ToHandle{}(*attr_, at_->second);
    auto const found = map().find(*key_);
    return found == map().end() ? nullptr : Ptr<GenericIf const>(ToHandle{}(*attr_, found->second));
  }
  PtrInterface const* objectAhead(std::size_t steps) const noexcept override {
    if constexpr (requires { ToHandle::object(at_->second); }) {
      if (state_ == State::Ended || state_ == State::Moved || isStale()) return nullptr;
      auto at = at_;
      for (; at != map().end() && steps > 0; --steps)
        ++at;
      return at == map().end() ? nullptr : ToHandle::object(at->second);
    } else {
      return nullptr;
    }
  }
  void objectsAhead(std::span<PtrInterface const*> objects) const noexcept override {
    if constexpr (requires { ToHandle::object(at_->second); }) {
      bool const isHere = state_ != State::Ended && state_ != State::Moved && !isStale();
      auto at = isHere ? at_ : map().end();
      for (PtrInterface const*& object : objects) {
        bool const isThere = at != map().end();
        object = isThere ? ToHandle::object(at->second) : nullptr;
        if (isThere) ++at;
      }
    } else {
      Cursor::objectsAhead(objects);
    }
  }

private:
  enum class State : std::uint8_t { Fresh, Given, Moved, Ended };

  [[nodiscard]] typename C::Map const& map() const noexcept { return members_->map(); }
  [[nodiscard]] bool isStale() const noexcept { return stamp_ != members_->stamp(); }
  // Stands at that member from now on, or has ended.
  void settle(typename C::Map::const_iterator at) {
    stamp_ = members_->stamp();
    at_ = at;
    if (at == map().end())
      state_ = State::Ended;
    else
      key_ = at->first;
  }
  // Goes on after a change, or from a member that was not given.
  [[gnu::noinline]] void advanceAnew() {
    bool const stays = state_ == State::Moved;
    state_ = State::Fresh;
    if (isStale()) settle(stays ? map().lower_bound(*key_) : map().upper_bound(*key_));
  }
  // After a change: at the member where it stood, or at the next one.
  [[gnu::noinline]] void findAgain() {
    auto const at = map().lower_bound(*key_);
    bool const isThere = at != map().end() && !KeyLess<K>{}(*key_, at->first);
    if (!isThere && state_ == State::Given) state_ = State::Moved;
    settle(at);
  }

  Ptr<GenericIf const> obj_;
  C const* members_;
  AttrDesc const* attr_;
  std::uint64_t stamp_ = 0;
  typename C::Map::const_iterator at_; // of the collection of this stamp
  std::optional<K> key_;               // where it stands; none when it has never stood anywhere
  State state_ = State::Fresh;
};

// Each member in key order, whatever a visit does to the collection. Takes no storage: the end of a tree does
// not fail half-way.
template <class C, class Visit>
void visitMembers(C const& members, Visit const& visit) {
  for (auto at = members.map().begin(); at != members.map().end();) {
    auto const key = at->first;
    auto const member = at->second;
    std::uint64_t const stamp = members.stamp();
    visit(member);
    at = stamp == members.stamp() ? std::next(at) : members.map().upper_bound(key);
  }
}

// What the collections have in common; `ToHandle` makes a handle of a member.
template <class C, class ToHandle>
class MembersAccess : public AttrAccess {
public:
  using K = typename C::Key;
  bool readsInPlace() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    C const& members = storage<C>(attr, object);
    return members.empty() ? nullptr : &members;
  }
  Ptr<GenericIf const> keyHandle(AttrDesc const&, void const* rawKey) const override {
    return KeyTraits<K>::handle(*static_cast<K const*>(rawKey));
  }

protected:
  static K keyOf(AttrDesc const& attr, GenericIf const* key) { return KeyTraits<K>::from(attr, *key); }

private:
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    C const& members = storage<C>(attr, obj);
    auto const found = members.map().find(keyOf(attr, key));
    return found == members.map().end() ? nullptr : ToHandle{}(attr, found->second);
  }
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    return storage<C>(attr, obj).has(keyOf(attr, key));
  }
  std::size_t size(AttrDesc const& attr, GenericIf const& obj) const override {
    return storage<C>(attr, obj).size();
  }
  Ptr<Cursor> cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                     GenericIf const* start) const override {
    return Ptr<Cursor>(new MembersCursor<C, ToHandle>(obj, storage<C>(attr, *obj), attr, start));
  }
};

template <class E>
struct ObjectToHandle {
  static PtrInterface const* object(Ptr<E> const& member) noexcept { return member.get(); }
  Ptr<GenericIf const> operator()(AttrDesc const&, Ptr<E> const& member) const {
    return GenericIf::toObject(static_cast<PtrInterface*>(member.get()));
  }
};
template <class V>
struct NodeToHandle {
  Ptr<GenericIf const> operator()(AttrDesc const& attr, Ptr<ValueNode<V>> const& node) const {
    return GenericIf::inPlace(*attr.memberType, &node->value, *node);
  }
};

template <class K, class E>
class EntitiesAccess final : public MembersAccess<KeyedEntities<K, E>, ObjectToHandle<E>> {
public:
  using C = KeyedEntities<K, E>;
  void visitChildren(AttrDesc const& attr, Entity& owner,
                     std::function<void(Entity&)> const& visit) const override {
    visitMembers(storage<C>(attr, static_cast<void const*>(static_cast<PtrInterface*>(&owner))),
                 [&visit](Ptr<E> const& child) { visit(*child); });
  }

private:
  void place(AttrDesc const& attr, GenericIf& obj, Entity& owner, GenericIf const* key,
             Ptr<Entity> const& made) const override {
    K const wanted = this->keyOf(attr, key);
    remove(attr, obj, wanted);
    if (storage<C>(attr, obj).has(wanted)) throwMadeAgain(attr);
    Entity::attach(owner, attr, attr.indexName.empty() ? KeyTraits<K>::handle(wanted) : nullptr, *made);
    storage<C>(attr, obj).put(wanted, staticPtrCast<E>(made));
    Entity::placed(*made);
    notifyOf(obj, attr, &wanted);
  }
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    remove(attr, obj, this->keyOf(attr, key));
  }
  static void remove(AttrDesc const& attr, GenericIf& obj, K const& key) {
    Ptr<E> const old = storage<C>(attr, obj).take(key);
    if (!old) return;
    Entity::detach(*old);
    notifyOf(obj, attr, &key);
    Entity::end(*old);
  }
};

template <class K, class V>
class ValuesAccess final : public MembersAccess<KeyedValues<K, V>, NodeToHandle<V>> {
public:
  using C = KeyedValues<K, V>;
  int compare(AttrDesc const& attr, void const* a, void const* b) const override {
    auto const& left = storage<C>(attr, a);
    auto const& right = storage<C>(attr, b);
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    auto other = right.begin();
    for (auto const& [key, node] : left) {
      if (KeyLess<K>{}(key, other->first)) return -1;
      if (KeyLess<K>{}(other->first, key)) return 1;
      int const order = attr.memberType->ops.compare(*attr.memberType, &node->value, &other->second->value);
      if (order != 0) return order;
      ++other;
    }
    return 0;
  }
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override {
    return storage<C>(attr, at).size();
  }

private:
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override {
    K const wanted = this->keyOf(attr, key);
    V const& member = *static_cast<V const*>(value->data());
    C& members = storage<C>(attr, obj);
    V const* const old = members.find(wanted);
    if (old != nullptr && attr.memberType->ops.compare(*attr.memberType, old, &member) == 0) return;
    members.memberIs(wanted, member);
    notifyOf(obj, attr, &wanted);
  }
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    K const wanted = this->keyOf(attr, key);
    if (storage<C>(attr, obj).memberDel(wanted)) notifyOf(obj, attr, &wanted);
  }
};

template <class K, class E>
class RefsAccess final : public MembersAccess<KeyedRefs<K, E>, ObjectToHandle<E>> {
public:
  using C = KeyedRefs<K, E>;
  void dropReferences(AttrDesc const& attr, Entity& owner) const override {
    auto& members =
        const_cast<C&>(storage<C>(attr, static_cast<void const*>(static_cast<PtrInterface*>(&owner))));
    while (!members.empty()) {
      K const key = members.begin()->first;
      static_cast<void>(members.take(key));
    }
  }

private:
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override {
    K const wanted = this->keyOf(attr, key);
    Ptr<E> const target(static_cast<E*>(value->object()));
    C& members = storage<C>(attr, obj);
    if (members.find(wanted) == target.get()) return;
    members.put(wanted, target);
    notifyOf(obj, attr, &wanted);
  }
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    K const wanted = this->keyOf(attr, key);
    if (storage<C>(attr, obj).take(wanted)) notifyOf(obj, attr, &wanted);
  }
};

} // namespace Kel::Impl
