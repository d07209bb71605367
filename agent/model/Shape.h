// How the model's classes are declared: `Kel::Declaration` with the published properties of each node
// (agent/model/Schema.h).
//
//   configShape<InterfaceConfig>("InterfaceConfig", kInterfacesModule)     leaves are configuration and settable
//       .keyCopy("name", &InterfaceConfig::name, &InterfaceConfig::nameIs)
//       .leaf("mtu", &InterfaceConfig::mtu)
//       .done();
//   eventShape<InterfaceState>(...)      leaves are state, told when they change
//   sampledShape<InterfaceCounters>(...) leaves are state that changes all the time
//
// A container or list whose nodes another module adds says so with `.module(...)`; the types beneath name
// that module themselves.
#pragma once

#include <string_view>
#include <vector>

#include "Kel/Declare.h"
#include "agent/model/Schema.h"

namespace Agent {

template <class T>
class Shape {
public:
  // `module` must live for the process.
  Shape(std::string_view name, std::string_view module, bool isConfig, bool isSampled)
      : declaration_(Kel::entityType<T>(name, module))
      , module_(module)
      , isConfig_(isConfig)
      , isSampled_(isSampled) {}

  template <class Base>
  Shape& extends() {
    declaration_.template extends<Base>();
    for (Kel::KelTypeBase::AttributeQIterator attr(Kel::typeOf<Base>()); attr; ++attr)
      nodes_.push_back(*Impl::nodeRecord(*attr));
    return *this;
  }
  // The key of a list entry.
  template <class M>
  Shape& key(std::string_view name, M T::*member) {
    declaration_.attr(name, member).ctorArg().keyField();
    return leafNode<M>();
  }
  // A leaf that repeats the key of the list entry above.
  template <class M>
  Shape& keyCopy(std::string_view name, M T::*member) {
    declaration_.attr(name, member);
    leafNode<M>();
    nodes_.back().leaf.isKeyCopy = true;
    return *this;
  }
  template <class M, class Setter>
  Shape& keyCopy(std::string_view name, M T::*member, Setter setter) {
    leaf(name, member, setter);
    nodes_.back().leaf.isKeyCopy = true;
    return *this;
  }
  template <class M>
  Shape& leaf(std::string_view name, M T::*member) {
    declaration_.attr(name, member).settable(isConfig_);
    return leafNode<M>();
  }
  template <class M, class Setter>
  Shape& leaf(std::string_view name, M T::*member, Setter setter) {
    declaration_.attr(name, member, setter);
    return leafNode<M>();
  }
  template <class E>
  Shape& leafList(std::string_view name, std::vector<E> T::*member) {
    declaration_.array(name, member).settable(isConfig_);
    leafNode<E>();
    nodes_.back().leaf.isLeafList = true;
    return *this;
  }
  // A container that is there for as long as its parent.
  template <class E>
  Shape& container(std::string_view name, Kel::Ptr<E> T::*member) {
    declaration_.instantiating(name, member).removable(false).embedded();
    return node();
  }
  // A container that may be missing.
  template <class E>
  Shape& presence(std::string_view name, Kel::Ptr<E> T::*member) {
    declaration_.instantiating(name, member).removable(isConfig_);
    return node();
  }
  template <class K, class E>
  Shape& list(std::string_view name, Kel::KeyedEntities<K, E> T::*member, std::string_view key) {
    declaration_.instantiating(name, member).index(key).removable(isConfig_);
    return node();
  }

  // --- modifiers of the last node ------------------------------------------------------------------
  Shape& module(std::string_view name) {
    nodes_.back().module = name;
    return *this;
  }
  // A container that may be missing comes with its parent nevertheless.
  Shape& embedded() {
    declaration_.embedded();
    return *this;
  }
  // Its names are identities of that module; empty: they carry their prefix already.
  Shape& identity(std::string_view module) {
    LeafInfo& leaf = nodes_.back().leaf;
    if (leaf.type == LeafType::Enumeration) leaf.type = LeafType::Identity;
    leaf.identityModule = module;
    return *this;
  }
  // Its numbers lie there.
  Shape& range(std::uint64_t min, std::uint64_t max = UINT64_MAX) {
    nodes_.back().leaf.range = {min, max};
    return *this;
  }
  // It is published as a union of types that are all written as its own.
  Shape& isUnion() {
    nodes_.back().leaf.isUnion = true;
    return *this;
  }
  // Its texts are such ones.
  Shape& text(TextRules const& rules) {
    nodes_.back().leaf.text = &rules;
    return *this;
  }
  Shape& sampled() {
    nodes_.back().leaf.isSampled = true;
    return *this;
  }

  Kel::KelType done() {
    Kel::KelType const type = declaration_.done();
    for (std::size_t i = 0; i < nodes_.size(); ++i)
      Impl::nodeRecordIs(type.attrAt(i), nodes_[i]);
    return type;
  }

private:
  Shape& node() {
    nodes_.push_back({.module = module_, .isLeaf = false, .leaf = {}});
    return *this;
  }
  template <class M>
  Shape& leafNode() {
    LeafInfo leaf{.isConfig = isConfig_, .isSampled = isSampled_, .identityModule = {}};
    if constexpr (Kel::Impl::kIsOptional<M>)
      leaf.type = Impl::leafTypeOf(Kel::typeOf<typename M::value_type>());
    else
      leaf.type = Impl::leafTypeOf(Kel::typeOf<M>());
    nodes_.push_back({.module = module_, .isLeaf = true, .leaf = leaf});
    return *this;
  }

  Kel::Declaration<T> declaration_;
  std::string_view module_;
  bool isConfig_;
  bool isSampled_;
  std::vector<Impl::NodeRecord> nodes_; // by position in the type
};

template <class T>
[[nodiscard]] Shape<T> configShape(std::string_view name, std::string_view module) {
  return Shape<T>(name, module, true, false);
}
template <class T>
[[nodiscard]] Shape<T> eventShape(std::string_view name, std::string_view module) {
  return Shape<T>(name, module, false, false);
}
template <class T>
[[nodiscard]] Shape<T> sampledShape(std::string_view name, std::string_view module) {
  return Shape<T>(name, module, false, true);
}

} // namespace Agent
