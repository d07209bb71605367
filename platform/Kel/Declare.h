// Declaring C++ classes as types of the model: one fluent expression a type, one line an attribute, from
// member pointers.
//
//   struct AddrKey { Kel::String vrf; std::uint32_t addr; };
//   auto const kAddrKey = Kel::valueType<AddrKey>("AddrKey")
//       .attr("vrf", &AddrKey::vrf).ctorArg()
//       .attr("addr", &AddrKey::addr).ctorArg().done();
//
//   auto const kInterface = Kel::entityType<Interface>("Interface")
//       .attr("name", &Interface::name).ctorArg().keyField()      // without a setter: generic writers may not write it
//       .attr("mtu", &Interface::mtu, &Interface::mtuIs)          // generic writes go through the setter
//       .attr("speed", &Interface::speed).settable()              // generic writes store and notify
//       .pointer("peer", &Interface::peer).settable()
//       .array("tags", &Interface::tags).settable()
//       .keyed("addr", &Interface::addrs).settable()
//       .done();
//
// A type is declared once, before its first object is made. `done()` raises `Kel::Error` when a rule of
// registration is broken; the text names the type, the attribute and the rule.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Kel/AccessMembers.h"
#include "Kel/TypeBuilder.h"

namespace Kel {

namespace Impl {

template <class T>
inline constexpr bool kIsVariant = false;
template <class... A>
inline constexpr bool kIsVariant<std::variant<A...>> = true;
template <class T>
inline constexpr bool kIsVector = false;
template <class E>
inline constexpr bool kIsVector<std::vector<E>> = true;
template <class T>
inline constexpr bool kIsOptional = false;
template <class T>
inline constexpr bool kIsOptional<std::optional<T>> = true;

// Structures are compared and hashed attribute by attribute.
KTD_EXPORT int compareStruct(TypeDesc const& type, void const* a, void const* b);
KTD_EXPORT std::uint64_t hashStruct(TypeDesc const& type, void const* at);
KTD_EXPORT std::uint64_t hashBytes(void const* bytes, std::size_t size);
KTD_EXPORT std::uint64_t hashMix(std::uint64_t a, std::uint64_t b);

template <class T>
int compareValue(TypeDesc const& type, void const* a, void const* b) {
  T const& left = *static_cast<T const*>(a);
  T const& right = *static_cast<T const*>(b);
  if constexpr (std::is_enum_v<T>) {
    return left < right ? -1 : right < left ? 1 : 0;
  } else if constexpr (kIsVariant<T>) {
    if (left.index() != right.index()) return left.index() < right.index() ? -1 : 1;
    return std::visit(
        [&right](auto const& x) {
          using X = std::remove_cvref_t<decltype(x)>;
          TypeDesc const& member = descOf<X>();
          return member.ops.compare(member, &x, &std::get<X>(right));
        },
        left);
  } else if constexpr (kIsVector<T>) {
    if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
    for (std::size_t i = 0; i < left.size(); ++i) {
      typename T::value_type const x = left[i], y = right[i];
      if (int const order = type.elementType->ops.compare(*type.elementType, &x, &y); order != 0)
        return order;
    }
    return 0;
  } else {
    return compareStruct(type, a, b);
  }
}

template <class T>
std::uint64_t hashValue(TypeDesc const& type, void const* at) {
  T const& value = *static_cast<T const*>(at);
  if constexpr (std::is_enum_v<T>) {
    return hashBytes(at, sizeof(T));
  } else if constexpr (kIsVariant<T>) {
    return std::visit(
        [&value](auto const& x) {
          TypeDesc const& member = descOf<std::remove_cvref_t<decltype(x)>>();
          return hashMix(value.index(), member.ops.hash(member, &x));
        },
        value);
  } else if constexpr (kIsVector<T>) {
    std::uint64_t h = value.size();
    for (std::size_t i = 0; i < value.size(); ++i) {
      typename T::value_type const x = value[i];
      h = hashMix(h, type.elementType->ops.hash(*type.elementType, &x));
    }
    return h;
  } else {
    return hashStruct(type, at);
  }
}

template <class T>
ValueOps valueOps() {
  return ValueOps{
      .size = sizeof(T),
      .align = alignof(T),
      .trivial = std::is_trivially_copyable_v<T>,
      .construct = [](TypeDesc const&, void* at) { new (at) T(); },
      .copy = [](TypeDesc const&, void* at, void const* from) { new (at) T(*static_cast<T const*>(from)); },
      .assign = [](TypeDesc const&, void* to,
                   void const* from) { *static_cast<T*>(to) = *static_cast<T const*>(from); },
      .destroy = [](TypeDesc const&, void* at) { std::destroy_at(static_cast<T*>(at)); },
      .compare = &compareValue<T>,
      .hash = &hashValue<T>,
  };
}

template <class E>
TypeDesc::ArrayOps const& arrayOps() {
  using A = std::vector<E>;
  static constexpr TypeDesc::ArrayOps ops{
      .append =
          [](void* array, GenericIf const& value) {
            static_cast<A*>(array)->push_back(*static_cast<E const*>(value.data()));
          },
      .clear = [](void* array) { static_cast<A*>(array)->clear(); },
      .size = [](void const* array) { return static_cast<A const*>(array)->size(); },
      .at =
          [](TypeDesc const& element, void const* array, std::size_t index) {
            E const value = (*static_cast<A const*>(array))[index];
            return Ptr<GenericIf const>(GenericIf::copyOf(element, &value));
          },
  };
  return ops;
}

KTD_EXPORT void completeArrayDesc(TypeDesc& desc);

// The descriptor of a C++ type before its declaration: what the language itself tells of it.
template <class T>
TypeDesc* makeShell() {
  auto* const desc = new TypeDesc();
  if constexpr (std::is_base_of_v<PtrInterface, T>) {
    desc->kind = std::is_base_of_v<Entity, T> ? TypeKind::Entity : TypeKind::Object;
  } else {
    desc->isValueType = true;
    desc->ops = valueOps<T>();
    if constexpr (std::is_same_v<T, CollectionControl>) {
      desc->kind = TypeKind::CollectionControl;
      desc->name = String::dedup("CollectionControl");
      desc->complete = true;
    } else if constexpr (std::is_enum_v<T>) {
      desc->kind = TypeKind::Enum;
    } else if constexpr (kIsVariant<T>) {
      desc->kind = TypeKind::Union;
    } else if constexpr (kIsVector<T>) {
      desc->kind = TypeKind::Array;
      desc->elementType = &descOf<typename T::value_type>();
      desc->arrayOps = &arrayOps<typename T::value_type>();
      completeArrayDesc(*desc);
    }
  }
  return desc;
}

// Where a data member lies within the raw form of its class.
template <class C, class M>
__attribute__((no_sanitize("undefined"))) std::size_t offsetOf(M C::*member) {
  alignas(C) static unsigned char space[sizeof(C)];
  C* const object = reinterpret_cast<C*>(space);
  auto const* const at = reinterpret_cast<unsigned char*>(&(object->*member));
  if constexpr (std::is_base_of_v<PtrInterface, C>) {
    return static_cast<std::size_t>(at -
                                    reinterpret_cast<unsigned char*>(static_cast<PtrInterface*>(object)));
  } else {
    return static_cast<std::size_t>(at - space);
  }
}

} // namespace Impl

template <class T>
[[gnu::noinline]] TypeDesc& Impl::DeclaredType<T>::desc() {
  static TypeDesc* const desc = makeShell<T>();
  return *desc;
}

// The declaration of a class; see the head of this file. T is a structure or a class derived from `EntityOf`.
template <class T>
class Declaration {
public:
  // REQUIRES that T is not declared yet: `Kel::Error`.
  Declaration(std::string_view module, std::string_view name) : builder_(module, name, descOf<T>()) {
    if constexpr (std::is_base_of_v<Entity, T>)
      builder_.desc().makeObject = [] { return Ptr<PtrInterface>(new T()); };
  }

  // A value: any scalar kind, a structure, a union; a std::optional of one can be left without value.
  template <class C, class M>
  Declaration& attr(std::string_view name, M C::*member) {
    if constexpr (Impl::kIsOptional<M>) {
      using V = typename M::value_type;
      add(name, descOf<V>(), std::make_unique<Impl::OptionalAccess<V>>(), member);
      builder_.optional();
    } else {
      static_assert(!std::is_base_of_v<PtrInterface, M>,
                    "objects are held by Ptr: use pointer() or instantiating()");
      add(name, descOf<M>(), std::make_unique<Impl::InPlaceAccess>(), member);
    }
    return *this;
  }
  template <class C, class M, class S, class R, class A>
  Declaration& attr(std::string_view name, M C::*member, R (S::*setter)(A)) {
    attr(name, member);
    setterIs<S, M>(setter);
    return *this;
  }

  // A reference to an entity that lives elsewhere.
  template <class C, class E>
  Declaration& pointer(std::string_view name, Ptr<E> C::*member) {
    add(name, descOf<E>(), std::make_unique<Impl::PointerAccess<E>>(), member).isPointer = true;
    builder_.optional();
    return *this;
  }
  template <class C, class E, class S, class R, class A>
  Declaration& pointer(std::string_view name, Ptr<E> C::*member, R (S::*setter)(A)) {
    pointer(name, member);
    setterIs<S, Ptr<E>>(setter);
    return *this;
  }

  // A sequence of values, indexed by number.
  template <class C, class E>
  Declaration& array(std::string_view name, std::vector<E> C::*member) {
    AttrDesc& attr = add(name, descOf<std::vector<E>>(), std::make_unique<Impl::InPlaceAccess>(), member);
    attr.memberType = &descOf<E>();
    attr.keyType = &builtinDesc(BuiltinKind::U64);
    attr.isCollection = attr.isOrdered = attr.isArray = true;
    return *this;
  }
  template <class C, class E, class S, class R, class A>
  Declaration& array(std::string_view name, std::vector<E> C::*member, R (S::*setter)(A)) {
    array(name, member);
    setterIs<S, std::vector<E>>(setter);
    return *this;
  }

  // Values by key, and references to entities by key.
  template <class C, class K, class V>
  Declaration& keyed(std::string_view name, KeyedValues<K, V> C::*member) {
    keyedBy<K>(add(name, descOf<V>(), std::make_unique<Impl::ValuesAccess<K, V>>(), member));
    return *this;
  }
  template <class C, class K, class E>
  Declaration& keyed(std::string_view name, KeyedRefs<K, E> C::*member) {
    AttrDesc& attr = add(name, descOf<E>(), std::make_unique<Impl::RefsAccess<K, E>>(), member);
    keyedBy<K>(attr);
    attr.isPointer = true;
    return *this;
  }

  // One owned entity, and owned entities by key.
  template <class C, class E>
  Declaration& instantiating(std::string_view name, Ptr<E> C::*member) {
    add(name, descOf<E>(), std::make_unique<Impl::ChildAccess<E>>(), member).isInstantiating = true;
    builder_.optional();
    return *this;
  }
  template <class C, class K, class E>
  Declaration& instantiating(std::string_view name, KeyedEntities<K, E> C::*member) {
    AttrDesc& attr = add(name, descOf<E>(), std::make_unique<Impl::EntitiesAccess<K, E>>(), member);
    keyedBy<K>(attr);
    attr.isInstantiating = true;
    return *this;
  }

  // A stack, which is never walked.
  template <class C, class X>
  Declaration& stack(std::string_view name, Stack<X> C::*member) {
    AttrDesc& attr = add(name, descOf<X>(), std::make_unique<Impl::StackAccess<X>>(), member);
    attr.isCollection = attr.isStack = true;
    return *this;
  }

  // Starts from the attributes of the declared entity class that T extends; before the first attribute.
  template <class Base>
  Declaration& extends() {
    static_assert(std::is_base_of_v<Base, T>);
    builder_.extends(descOf<Base>());
    return *this;
  }

  // Modifiers of the last attribute, see `TypeBuilder`:
  Declaration& id(AttributeId id) { return builder_.id(id), *this; }
  Declaration& ctorArg() { return builder_.ctorArg(), *this; }
  Declaration& keyField() { return builder_.keyField(), *this; }
  Declaration& index(std::string_view member) { return builder_.index(member), *this; }
  Declaration& settable(bool yes = true) { return builder_.settable(yes), *this; }
  Declaration& removable(bool yes = true) { return builder_.removable(yes), *this; }
  Declaration& embedded() { return builder_.embedded(), *this; }
  Declaration& gnmiJson() { return builder_.gnmiJson(), *this; }
  Declaration& asOneValue() { return builder_.asOneValue(), *this; }
  Declaration& keyScalarNode() { return builder_.keyScalarNode(), *this; }
  Declaration& walkAlways() { return builder_.walkAlways(), *this; }

  // Properties of the type, see `TypeBuilder`. `print` and `parse` take T:
  template <class Print, class Parse>
  Declaration& gnmiStrRep(Print print, Parse parse) {
    builder_.gnmiStrRep(
        [print](void const* at) { return std::string(print(*static_cast<T const*>(at))); },
        [parse](std::string_view text, void* to) { return parse(text, *static_cast<T*>(to)); });
    return *this;
  }
  template <class Print>
  Declaration& gnmiByteRep(Print print) {
    builder_.gnmiByteRep([print](void const* at) { return std::string(print(*static_cast<T const*>(at))); });
    return *this;
  }
  Declaration& reportsDelete(bool yes) { return builder_.reportsDelete(yes), *this; }

  // Completes the type. Raises `Kel::Error`, which names the type, the attribute and the rule that is broken.
  KelType done() {
    auto type = builder_.done();
    if (!type) throwError(type.error());
    return type.value();
  }

private:
  template <class C, class M>
  AttrDesc& add(std::string_view name, TypeDesc& type, std::unique_ptr<AttrAccess> access, M C::*member) {
    static_assert(std::is_base_of_v<C, T>);
    AttrDesc& attr = builder_.add(name, &type, std::move(access));
    attr.offset = Impl::offsetOf(static_cast<M T::*>(member));
    return attr;
  }
  template <class K>
  void keyedBy(AttrDesc& attr) {
    attr.keyType = &KeyTraits<K>::type();
    attr.isCollection = attr.isKeyed = attr.isOrdered = true;
  }
  template <class S, class M, class Setter>
  void setterIs(Setter setter) {
    builder_.settable();
    lastAttr().setter = [setter](PtrInterface* object, void const* value) {
      (static_cast<S*>(static_cast<T*>(object))->*setter)(*static_cast<M const*>(value));
    };
  }
  AttrDesc& lastAttr() { return *builder_.desc().attrs.back(); }

  TypeBuilder builder_;
};

// --- the kinds ---------------------------------------------------------------------------------------

// Of a structure. REQUIRES T to be default-constructible and copyable.
template <class T>
[[nodiscard]] Declaration<T> valueType(std::string_view name, std::string_view module = {}) {
  return Declaration<T>(module, name);
}

// Of a class that derives from `EntityOf<T>`.
template <class T>
[[nodiscard]] Declaration<T> entityType(std::string_view name, std::string_view module = {}) {
  return Declaration<T>(module, name);
}

// An enumeration, complete at once; its default is the first enumerator. Raises `Kel::Error` as `done` does,
// and so do those below.
template <class E>
requires std::is_enum_v<E> KelType enumType(std::string_view name,
                                            std::initializer_list<std::pair<char const*, E>> enumerators,
                                            std::string_view module = {}) {
  TypeBuilder builder(module, name, descOf<E>());
  builder.desc().underlying = Impl::kBuiltinOf<std::underlying_type_t<E>>;
  for (auto const& [text, value] : enumerators)
    builder.desc().enumerators.push_back({String::dedup(text), static_cast<std::int64_t>(value)});
  auto type = builder.done();
  if (!type) throwError(type.error());
  return type.value();
}

// A structure of one member that gives a builtin or an enumeration a name of its own.
template <class T, class M>
KelType nominalType(std::string_view name, std::string_view attr, M T::*member,
                    std::string_view module = {}) {
  descOf<T>().kind = TypeKind::Nominal;
  return Declaration<T>(module, name).attr(attr, member).ctorArg().done();
}

// A structure of one `Ptr` that serves as a key.
template <class T, class E>
KelType keyPtrType(std::string_view name, std::string_view attr, Ptr<E> T::*member,
                   std::string_view module = {}) {
  descOf<T>().kind = TypeKind::KeyPtr;
  return Declaration<T>(module, name).pointer(attr, member).ctorArg().done();
}

// A std::variant; one attribute name for each alternative, in order.
template <class V>
requires Impl::kIsVariant<V>
    KelType unionType(std::string_view name,
                      std::array<char const*, std::variant_size_v<V>> const& alternatives,
                      std::string_view module = {}) {
  TypeBuilder builder(module, name, descOf<V>());
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    (static_cast<void>(builder.add(alternatives[I], &descOf<std::variant_alternative_t<I, V>>(),
                                   std::make_unique<Impl::AlternativeAccess<V, I>>())),
     ...);
  }
  (std::make_index_sequence<std::variant_size_v<V>>());
  // The default is that of the first alternative, which for an enumeration is another than the language's.
  builder.desc().ops.construct = [](TypeDesc const&, void* at) {
    using First = std::variant_alternative_t<0, V>;
    Ptr<GenericIf> const first = GenericIf::defaultOf(descOf<First>());
    new (at) V(std::in_place_index<0>, *static_cast<First const*>(first->data()));
  };
  builder.desc().activeAlternative = [](TypeDesc const& type, void const* at) -> AttrDesc const* {
    std::size_t const index = static_cast<V const*>(at)->index();
    return index == std::variant_npos ? nullptr : type.attrs[index].get();
  };
  auto type = builder.done();
  if (!type) throwError(type.error());
  return type.value();
}

} // namespace Kel
