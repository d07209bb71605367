// How the attributes of declared classes are reached: one access class per kind of storage. For the declarations
// (Kel/Declare.h); users of the model never meet them.
//
// Each finds its storage at `AttrDesc::offset` of the object's raw form. Writes to an entity's attribute end in
// `Impl::notifyOf`, the one place from which generic writes tell the observers.
#pragma once

#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/Error.h"

namespace Kel::Impl {

// Tells the observers of `obj`, when it is an entity that has any.
KTD_EXPORT void notifyOf(GenericIf const& obj, AttrDesc const& attr, void const* rawKey);
// The entity behind `obj`; raises `Kel::Error` when there is none.
[[nodiscard]] KTD_EXPORT Entity& entityOf(AttrDesc const& attr, GenericIf const& obj);
// Refuse what the attribute does not take: a key, no key, a value of another type, a write to what is not settable.
KTD_EXPORT void requireNoKey(AttrDesc const& attr, GenericIf const* key);
KTD_EXPORT GenericIf const& requireKey(AttrDesc const& attr, GenericIf const* key);
KTD_EXPORT void requireType(AttrDesc const& attr, TypeDesc const& expected, GenericIf const& value);
KTD_EXPORT void requireSettable(AttrDesc const& attr, GenericIf const& obj);
KTD_EXPORT void requireRemovable(AttrDesc const& attr, GenericIf const& obj);
[[noreturn]] KTD_EXPORT void throwNoValue(AttrDesc const& attr);
// An observer of the removal has put another entity into the place of what was to be replaced.
[[noreturn]] KTD_EXPORT void throwMadeAgain(AttrDesc const& attr);
// The object of a reference value, checked against the attribute's target type.
KTD_EXPORT PtrInterface* requireTarget(AttrDesc const& attr, GenericIf const& value);
// A detached object made from constructor arguments; raises `Kel::Error` when they do not fit.
[[nodiscard]] KTD_EXPORT Ptr<PtrInterface> construct(TypeDesc const& type, ArgList const& args);
// A member made from constructor arguments, checked to be an entity of the member type.
[[nodiscard]] KTD_EXPORT Ptr<Entity> makeMember(AttrDesc const& attr, ArgList const& args);
// The value of a made member's index attribute.
[[nodiscard]] KTD_EXPORT Ptr<GenericIf const> indexOf(AttrDesc const& attr, Entity& member);
// An internal key must equal the value's own index attribute.
KTD_EXPORT void requireIndex(AttrDesc const& attr, GenericIf const& key, GenericIf const& value);

template <class T>
[[nodiscard]] T& storage(AttrDesc const& attr, GenericIf const& obj) {
  return *reinterpret_cast<T*>(static_cast<unsigned char*>(obj.data()) + attr.offset);
}
template <class T>
[[nodiscard]] T const& storage(AttrDesc const& attr, void const* raw) {
  return *reinterpret_cast<T const*>(static_cast<unsigned char const*>(raw) + attr.offset);
}

// The index that a key of an array attribute is.
[[nodiscard]] std::uint64_t arrayIndex(AttrDesc const& attr, GenericIf const& key);
// A cursor over the elements of an array attribute; `arrayOf` finds the array in the object, at every step afresh.
[[nodiscard]] Ptr<Cursor> arrayCursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                                      GenericIf const* start,
                                      void const* (*arrayOf)(AttrDesc const& attr, GenericIf const& obj));

// A scalar, struct, union or array stored in place. One class for all: the type's operations do the work.
class KTD_EXPORT InPlaceAccess final : public AttrAccess {
public:
  Ptr<GenericIf const> get(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  bool exist(AttrDesc const&, GenericIf const&, GenericIf const* key) const override;
  bool readsInPlace() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    return &storage<unsigned char>(attr, object);
  }
  void set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key, GenericIf const* value) const override;
  void init(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override;
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override;
  std::size_t count(AttrDesc const& attr, GenericIf const& obj) const override;
  Ptr<Cursor> iterate(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                      GenericIf const* start) const override;
  Ptr<GenericIf const> keyHandle(AttrDesc const& attr, void const* rawKey) const override;
  int compare(AttrDesc const& attr, void const* a, void const* b) const override;
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override;

private:
  void write(AttrDesc const& attr, GenericIf& obj, void const* value) const;
};

// std::optional<T>. A structure is handed out as a copy, because clearing destroys it in place.
// docs/decisions.md: "What is a handle to an optional structure?"
template <class T>
class OptionalAccess final : public AttrAccess {
public:
  Ptr<GenericIf const> get(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    requireNoKey(attr, key);
    auto const& slot = storage<std::optional<T>>(attr, obj);
    return slot ? Ptr<GenericIf const>(GenericIf::copyOf(*attr.memberType, &*slot)) : nullptr;
  }
  bool exist(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return storage<std::optional<T>>(attr, obj).has_value();
  }
  bool readsInPlace() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    auto const& slot = storage<std::optional<T>>(attr, object);
    return slot ? &*slot : nullptr;
  }
  void set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
           GenericIf const* value) const override {
    requireNoKey(attr, key);
    requireSettable(attr, obj);
    if (value == nullptr) return clear(attr, obj);
    requireType(attr, *attr.memberType, *value);
    auto& slot = storage<std::optional<T>>(attr, obj);
    T const& wanted = *static_cast<T const*>(value->data());
    if (slot && attr.memberType->ops.compare(*attr.memberType, &*slot, &wanted) == 0) return;
    if (attr.setter && obj.object() != nullptr) {
      std::optional<T> const boxed(wanted);
      attr.setter(obj.object(), &boxed);
      return;
    }
    slot = wanted;
    notifyOf(obj, attr, nullptr);
  }
  void init(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override {
    requireType(attr, *attr.memberType, value);
    storage<std::optional<T>>(attr, obj) = *static_cast<T const*>(value.data());
  }
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    requireNoKey(attr, key);
    requireSettable(attr, obj);
    clear(attr, obj);
  }
  int compare(AttrDesc const& attr, void const* a, void const* b) const override {
    auto const& left = storage<std::optional<T>>(attr, a);
    auto const& right = storage<std::optional<T>>(attr, b);
    if (!left || !right) return static_cast<int>(left.has_value()) - static_cast<int>(right.has_value());
    return attr.memberType->ops.compare(*attr.memberType, &*left, &*right);
  }
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override {
    auto const& slot = storage<std::optional<T>>(attr, at);
    return slot ? attr.memberType->ops.hash(*attr.memberType, &*slot) : 0;
  }

private:
  static void clear(AttrDesc const& attr, GenericIf& obj) {
    auto& slot = storage<std::optional<T>>(attr, obj);
    if (!slot) return;
    if (attr.setter && obj.object() != nullptr) {
      std::optional<T> const none;
      attr.setter(obj.object(), &none);
      return;
    }
    slot.reset();
    notifyOf(obj, attr, nullptr);
  }
};

// Ptr<E>: a reference to an entity that lives elsewhere.
template <class E>
class PointerAccess final : public AttrAccess {
public:
  Ptr<GenericIf const> get(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    requireNoKey(attr, key);
    return GenericIf::toObject(static_cast<PtrInterface*>(storage<Ptr<E>>(attr, obj).get()));
  }
  bool exist(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return static_cast<bool>(storage<Ptr<E>>(attr, obj));
  }
  void set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
           GenericIf const* value) const override {
    requireNoKey(attr, key);
    requireSettable(attr, obj);
    write(attr, obj, value == nullptr ? nullptr : static_cast<E*>(requireTarget(attr, *value)));
  }
  void init(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override {
    storage<Ptr<E>>(attr, obj) = Ptr<E>(static_cast<E*>(requireTarget(attr, value)));
  }
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    requireNoKey(attr, key);
    requireSettable(attr, obj);
    write(attr, obj, nullptr);
  }
  int compare(AttrDesc const& attr, void const* a, void const* b) const override {
    auto const left = serial(attr, a), right = serial(attr, b);
    return left < right ? -1 : left > right ? 1 : 0;
  }
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override { return serial(attr, at); }
  void dropReferences(AttrDesc const& attr, Entity& owner) const override {
    const_cast<Ptr<E>&>(storage<Ptr<E>>(attr, static_cast<void const*>(static_cast<PtrInterface*>(&owner))))
        .reset();
  }

private:
  static std::uint64_t serial(AttrDesc const& attr, void const* raw) {
    auto const& target = storage<Ptr<E>>(attr, raw);
    return target ? target->serial() : 0;
  }
  static void write(AttrDesc const& attr, GenericIf& obj, E* target) {
    auto& slot = storage<Ptr<E>>(attr, obj);
    if (slot.get() == target) return;
    Ptr<E> const wanted(target);
    if (attr.setter && obj.object() != nullptr) {
      attr.setter(obj.object(), &wanted);
      return;
    }
    slot = wanted;
    notifyOf(obj, attr, nullptr);
  }
};

// Ptr<E>: the one entity of a singular instantiating attribute.
template <class E>
class ChildAccess final : public AttrAccess {
public:
  Ptr<GenericIf const> get(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    requireNoKey(attr, key);
    return GenericIf::toObject(static_cast<PtrInterface*>(storage<Ptr<E>>(attr, obj).get()));
  }
  bool exist(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return static_cast<bool>(storage<Ptr<E>>(attr, obj));
  }
  Ptr<GenericIf> create(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
                        ArgList const& args) const override {
    requireNoKey(attr, key);
    Entity& owner = entityOf(attr, obj);
    Ptr<E> const made = staticPtrCast<E>(makeMember(attr, args));
    remove(attr, obj);
    if (storage<Ptr<E>>(attr, obj)) throwMadeAgain(attr);
    Entity::attach(owner, attr, nullptr, *made);
    storage<Ptr<E>>(attr, obj) = made;
    Entity::placed(*made);
    notifyOf(obj, attr, nullptr);
    return GenericIf::toObject(static_cast<PtrInterface*>(made.get()));
  }
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    requireNoKey(attr, key);
    requireRemovable(attr, obj);
    remove(attr, obj);
  }
  void visitChildren(AttrDesc const& attr, Entity& owner,
                     std::function<void(Entity&)> const& visit) const override {
    Ptr<E> const child = storage<Ptr<E>>(attr, static_cast<void const*>(static_cast<PtrInterface*>(&owner)));
    if (child) visit(*child);
  }

private:
  static void remove(AttrDesc const& attr, GenericIf& obj) {
    Ptr<E> const old = std::move(storage<Ptr<E>>(attr, obj));
    storage<Ptr<E>>(attr, obj).reset();
    if (!old) return;
    Entity::detach(*old);
    notifyOf(obj, attr, nullptr);
    Entity::end(*old);
  }
};

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

private:
  enum class State : std::uint8_t { Fresh, Given, Moved, Ended };

  [[nodiscard]] typename C::Map const& map() const noexcept { return members_->map(); }
  [[nodiscard]] bool isStale() const noexcept { return stamp_ != members_->stamp(); }
  // Stands at that member from now on, or has ended.
  void settle(typename C::Map::const_iterator at) {
    stamp_ = members_->stamp();
    at_ = at;
    if (at == map().end()) {
      state_ = State::Ended;
    } else {
      key_ = at->first;
    }
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

// Each member in key order, whatever a visit does to the collection. Takes no storage: the end of a tree does not fail half-way.
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

  Ptr<GenericIf const> get(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    C const& members = storage<C>(attr, obj);
    auto const found = members.map().find(KeyTraits<K>::from(attr, requireKey(attr, key)));
    return found == members.map().end() ? nullptr : ToHandle{}(attr, found->second);
  }
  bool exist(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    return storage<C>(attr, obj).has(KeyTraits<K>::from(attr, requireKey(attr, key)));
  }
  std::size_t count(AttrDesc const& attr, GenericIf const& obj) const override {
    return storage<C>(attr, obj).size();
  }
  Ptr<Cursor> iterate(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                      GenericIf const* start) const override {
    return Ptr<Cursor>(new MembersCursor<C, ToHandle>(obj, storage<C>(attr, *obj), attr, start));
  }
  Ptr<GenericIf const> keyHandle(AttrDesc const&, void const* rawKey) const override {
    return KeyTraits<K>::handle(*static_cast<K const*>(rawKey));
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
  Ptr<GenericIf> create(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
                        ArgList const& args) const override {
    Entity& owner = entityOf(attr, obj);
    Ptr<E> const made = staticPtrCast<E>(makeMember(attr, args));
    Ptr<GenericIf const> const index = attr.indexName.empty() ? nullptr : indexOf(attr, *made);
    GenericIf const& keyHandle = index ? *index : requireKey(attr, key);
    K const wanted = KeyTraits<K>::from(attr, keyHandle);
    remove(attr, obj, wanted);
    if (storage<C>(attr, obj).has(wanted)) throwMadeAgain(attr);
    Entity::attach(owner, attr, index ? nullptr : KeyTraits<K>::handle(wanted), *made);
    storage<C>(attr, obj).put(wanted, made);
    Entity::placed(*made);
    notifyOf(obj, attr, &wanted);
    return GenericIf::toObject(static_cast<PtrInterface*>(made.get()));
  }
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    requireRemovable(attr, obj);
    remove(attr, obj, KeyTraits<K>::from(attr, requireKey(attr, key)));
  }
  void visitChildren(AttrDesc const& attr, Entity& owner,
                     std::function<void(Entity&)> const& visit) const override {
    visitMembers(storage<C>(attr, static_cast<void const*>(static_cast<PtrInterface*>(&owner))),
                 [&visit](Ptr<E> const& child) { visit(*child); });
  }

private:
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
  void set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
           GenericIf const* value) const override {
    requireSettable(attr, obj);
    if (value == nullptr) return del(attr, obj, key);
    requireType(attr, *attr.memberType, *value);
    if (!attr.indexName.empty()) requireIndex(attr, requireKey(attr, key), *value);
    K const wanted = KeyTraits<K>::from(attr, requireKey(attr, key));
    V const& member = *static_cast<V const*>(value->data());
    C& members = storage<C>(attr, obj);
    V const* const old = members.find(wanted);
    if (old != nullptr && attr.memberType->ops.compare(*attr.memberType, old, &member) == 0) return;
    members.memberIs(wanted, member);
    notifyOf(obj, attr, &wanted);
  }
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    requireSettable(attr, obj);
    K const wanted = KeyTraits<K>::from(attr, requireKey(attr, key));
    if (storage<C>(attr, obj).memberDel(wanted)) notifyOf(obj, attr, &wanted);
  }
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
};

template <class K, class E>
class RefsAccess final : public MembersAccess<KeyedRefs<K, E>, ObjectToHandle<E>> {
public:
  using C = KeyedRefs<K, E>;
  void set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
           GenericIf const* value) const override {
    requireSettable(attr, obj);
    if (value == nullptr) return del(attr, obj, key);
    K const wanted = KeyTraits<K>::from(attr, requireKey(attr, key));
    Ptr<E> const target(static_cast<E*>(requireTarget(attr, *value)));
    C& members = storage<C>(attr, obj);
    if (members.find(wanted) == target.get()) return;
    members.put(wanted, target);
    notifyOf(obj, attr, &wanted);
  }
  void del(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    requireSettable(attr, obj);
    K const wanted = KeyTraits<K>::from(attr, requireKey(attr, key));
    if (storage<C>(attr, obj).take(wanted)) notifyOf(obj, attr, &wanted);
  }
  void dropReferences(AttrDesc const& attr, Entity& owner) const override {
    auto& members =
        const_cast<C&>(storage<C>(attr, static_cast<void const*>(static_cast<PtrInterface*>(&owner))));
    while (!members.empty()) {
      K const key = members.begin()->first;
      static_cast<void>(members.take(key));
    }
  }
};

// A stack: can be listed, and is otherwise the owner's own business.
template <class T>
class StackAccess final : public AttrAccess {
public:
  std::size_t count(AttrDesc const& attr, GenericIf const& obj) const override {
    return storage<Stack<T>>(attr, obj).values().size();
  }
  int compare(AttrDesc const& attr, void const* a, void const* b) const override {
    auto const& left = storage<Stack<T>>(attr, a).values();
    auto const& right = storage<Stack<T>>(attr, b).values();
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    for (std::size_t i = 0; i < left.size(); ++i) {
      if (int const order = attr.memberType->ops.compare(*attr.memberType, &left[i], &right[i]); order != 0)
        return order;
    }
    return 0;
  }
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override {
    return storage<Stack<T>>(attr, at).values().size();
  }
};

// The alternative number I of a std::variant.
template <class V, std::size_t I>
class AlternativeAccess final : public AttrAccess {
public:
  using T = std::variant_alternative_t<I, V>;
  Ptr<GenericIf const> get(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    T const* const active = std::get_if<I>(static_cast<V const*>(obj.data()));
    return active == nullptr ? nullptr : Ptr<GenericIf const>(GenericIf::copyOf(*attr.memberType, active));
  }
  bool exist(AttrDesc const&, GenericIf const& obj, GenericIf const*) const override {
    return static_cast<V const*>(obj.data())->index() == I;
  }
  void set(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
           GenericIf const* value) const override {
    requireNoKey(attr, key);
    if (value == nullptr) throwError("a union alternative cannot be set to nothing");
    requireType(attr, *attr.memberType, *value);
    static_cast<V*>(obj.data())->template emplace<I>(*static_cast<T const*>(value->data()));
  }
};

} // namespace Kel::Impl
