// How the attributes of declared classes are stored: one access class per kind of storage, behind the checks
// of `AttrAccess`. For the declarations (Kel/Declare.h); users of the model never meet them. Keyed
// collections are in Kel/AccessMembers.h.
//
// Invariants
// 1. Each finds its storage at `AttrDesc::offset` of the object's raw form, and nothing else of the object.
// 2. It is asked for what the attribute permits (`AttrAccess`): it checks nothing again, but what only the
//    storage knows.
// 3. A write compares first: an equal value changes nothing and tells nobody. A class's own setter decides
//    that itself.
// 4. Observers are told after the change, by `Impl::notifyOf`, the one place from which generic writes tell
//    them; no reference into the storage is used after that, because they may change or end the object.
// 5. An entity is detached before anybody is told that it has gone, and ended after; a new one is attached
//    before it is stored, and told of when it is.
// 6. A handle of a value that the object may destroy in place (an optional one, an alternative) holds a copy;
//    one that stays where it is refers to it and keeps its owner.
#pragma once

#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "Kel/Attr.h"
#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/Error.h"

namespace Kel::Impl {

// Tells the observers of `obj`, when it is an entity that has any.
KTD_EXPORT void notifyOf(GenericIf const& obj, AttrDesc const& attr, void const* rawKey);
// Refuses a value of another type.
KTD_EXPORT void requireType(AttrDesc const& attr, TypeDesc const& expected, GenericIf const& value);
// The object of a reference value, checked against the attribute's target type.
KTD_EXPORT PtrInterface* requireTarget(AttrDesc const& attr, GenericIf const& value);
// An observer of the removal has put another entity into the place of what was to be replaced.
[[noreturn]] KTD_EXPORT void throwMadeAgain(AttrDesc const& attr);
// A detached object made from constructor arguments; raises `Kel::Error` when they do not fit.
[[nodiscard]] KTD_EXPORT Ptr<PtrInterface> construct(TypeDesc const& type, ArgList const& args);
// Gives a member that is being made what it has of its key: its index attribute, or the fields of a
// structured key that it repeats (`KelAttr::keyFieldOf`). Silently.
KTD_EXPORT void keyInto(AttrDesc const& attr, GenericIf const& key, Entity& member);
// The value of a made member's index attribute.
[[nodiscard]] KTD_EXPORT Ptr<GenericIf const> indexOf(AttrDesc const& attr, Entity& member);

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
// A cursor over the elements of an array attribute; `arrayOf` finds the array in the object, at every step
// afresh.
[[nodiscard]] Ptr<Cursor> arrayCursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                                      GenericIf const* start,
                                      void const* (*arrayOf)(AttrDesc const& attr, GenericIf const& obj));

// A scalar, struct, union or array stored in place. One class for all: the type's operations do the work.
class KTD_EXPORT InPlaceAccess final : public AttrAccess {
public:
  bool readsInPlace() const noexcept override { return true; }
  bool liesAtOffset() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    return &storage<unsigned char>(attr, object);
  }
  Ptr<GenericIf const> keyHandle(AttrDesc const& attr, void const* rawKey) const override;
  int compare(AttrDesc const& attr, void const* a, void const* b) const override;
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override;

private:
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override;
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const* key,
             GenericIf const* value) const override;
  void storeBySetter(AttrDesc const& attr, GenericIf& obj, GenericIf const* value) const override;
  void assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override;
  std::size_t size(AttrDesc const& attr, GenericIf const& obj) const override;
  Ptr<Cursor> cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                     GenericIf const* start) const override;
};

// std::optional<T>. A structure is handed out as a copy, because clearing destroys it in place.
// docs/decisions.md: "What is a handle to an optional structure?"
template <class T>
class OptionalAccess final : public AttrAccess {
public:
  bool readsInPlace() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    auto const& slot = storage<std::optional<T>>(attr, object);
    return slot ? &*slot : nullptr;
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
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    auto const& slot = storage<std::optional<T>>(attr, obj);
    return slot ? Ptr<GenericIf const>(GenericIf::copyOf(*attr.memberType, &*slot)) : nullptr;
  }
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return storage<std::optional<T>>(attr, obj).has_value();
  }
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const*, GenericIf const* value) const override {
    if (holds(attr, obj, value)) return;
    auto& slot = storage<std::optional<T>>(attr, obj);
    if (value == nullptr)
      slot.reset();
    else
      slot = *static_cast<T const*>(value->data());
    notifyOf(obj, attr, nullptr);
  }
  void storeBySetter(AttrDesc const& attr, GenericIf& obj, GenericIf const* value) const override {
    if (holds(attr, obj, value)) return;
    std::optional<T> boxed;
    if (value != nullptr) boxed = *static_cast<T const*>(value->data());
    attr.setter(obj.object(), &boxed);
  }
  void assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override {
    storage<std::optional<T>>(attr, obj) = *static_cast<T const*>(value.data());
  }
  static bool holds(AttrDesc const& attr, GenericIf const& obj, GenericIf const* value) {
    auto const& slot = storage<std::optional<T>>(attr, obj);
    if (!slot || value == nullptr) return slot.has_value() == (value != nullptr);
    return attr.memberType->ops.compare(*attr.memberType, &*slot, value->data()) == 0;
  }
};

// Ptr<E>: a reference to an entity that lives elsewhere.
template <class E>
class PointerAccess final : public AttrAccess {
public:
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
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return GenericIf::toObject(static_cast<PtrInterface*>(storage<Ptr<E>>(attr, obj).get()));
  }
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return static_cast<bool>(storage<Ptr<E>>(attr, obj));
  }
  void store(AttrDesc const& attr, GenericIf& obj, GenericIf const*, GenericIf const* value) const override {
    Ptr<E> wanted(targetOf(value));
    auto& slot = storage<Ptr<E>>(attr, obj);
    if (slot == wanted) return;
    slot.swap(wanted);
    notifyOf(obj, attr, nullptr);
  }
  void storeBySetter(AttrDesc const& attr, GenericIf& obj, GenericIf const* value) const override {
    Ptr<E> const wanted(targetOf(value));
    if (storage<Ptr<E>>(attr, obj) != wanted) attr.setter(obj.object(), &wanted);
  }
  void assign(AttrDesc const& attr, GenericIf& obj, GenericIf const& value) const override {
    storage<Ptr<E>>(attr, obj) = Ptr<E>(targetOf(&value));
  }
  static E* targetOf(GenericIf const* value) {
    return value == nullptr ? nullptr : static_cast<E*>(value->object());
  }
  static std::uint64_t serial(AttrDesc const& attr, void const* raw) {
    auto const& target = storage<Ptr<E>>(attr, raw);
    return target ? target->serial() : 0;
  }
};

// Ptr<E>: the one entity of a singular instantiating attribute.
template <class E>
class ChildAccess final : public AttrAccess {
public:
  bool readsInPlace() const noexcept override { return true; }
  void const* valueAt(AttrDesc const& attr, void const* object) const noexcept override {
    return static_cast<PtrInterface const*>(storage<Ptr<E>>(attr, object).get());
  }
  void visitChildren(AttrDesc const& attr, Entity& owner,
                     std::function<void(Entity&)> const& visit) const override {
    Ptr<E> const child = storage<Ptr<E>>(attr, static_cast<void const*>(static_cast<PtrInterface*>(&owner)));
    if (child) visit(*child);
  }

private:
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return GenericIf::toObject(static_cast<PtrInterface*>(storage<Ptr<E>>(attr, obj).get()));
  }
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    return static_cast<bool>(storage<Ptr<E>>(attr, obj));
  }
  void place(AttrDesc const& attr, GenericIf& obj, Entity& owner, GenericIf const* key,
             Ptr<Entity> const& made) const override {
    erase(attr, obj, key);
    if (storage<Ptr<E>>(attr, obj)) throwMadeAgain(attr);
    Entity::attach(owner, attr, nullptr, *made);
    storage<Ptr<E>>(attr, obj) = staticPtrCast<E>(made);
    Entity::placed(*made);
    notifyOf(obj, attr, nullptr);
  }
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const*) const override {
    Ptr<E> const old = std::move(storage<Ptr<E>>(attr, obj));
    storage<Ptr<E>>(attr, obj).reset();
    if (!old) return;
    Entity::detach(*old);
    notifyOf(obj, attr, nullptr);
    Entity::end(*old);
  }
};

// A stack: can be listed, and is otherwise the owner's own business.
template <class T>
class StackAccess final : public AttrAccess {
public:
  int compare(AttrDesc const& attr, void const* a, void const* b) const override {
    auto const& left = storage<Stack<T>>(attr, a).values();
    auto const& right = storage<Stack<T>>(attr, b).values();
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    for (std::size_t i = 0; i < left.size(); ++i)
      if (int const order = attr.memberType->ops.compare(*attr.memberType, &left[i], &right[i]); order != 0)
        return order;
    return 0;
  }
  std::uint64_t hash(AttrDesc const& attr, void const* at) const override {
    return storage<Stack<T>>(attr, at).values().size();
  }

private:
  std::size_t size(AttrDesc const& attr, GenericIf const& obj) const override {
    return storage<Stack<T>>(attr, obj).values().size();
  }
};

// The alternative number I of a std::variant.
template <class V, std::size_t I>
class AlternativeAccess final : public AttrAccess {
  using T = std::variant_alternative_t<I, V>;
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const*) const override {
    T const* const active = std::get_if<I>(static_cast<V const*>(obj.data()));
    return active == nullptr ? nullptr : Ptr<GenericIf const>(GenericIf::copyOf(*attr.memberType, active));
  }
  bool has(AttrDesc const&, GenericIf const& obj, GenericIf const*) const override {
    return static_cast<V const*>(obj.data())->index() == I;
  }
  void store(AttrDesc const&, GenericIf& obj, GenericIf const*, GenericIf const* value) const override {
    static_cast<V*>(obj.data())->template emplace<I>(*static_cast<T const*>(value->data()));
  }
};

} // namespace Kel::Impl
