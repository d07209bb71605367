// The interfaces of the agent's model in two flavours: as the C++ classes that they are, and described once
// more at run time. Both are made, filled and changed by the same generic code, so that the kind of the types
// is all that differs.
//
// An interface has the 11 leaves in 7 objects of Interfaces.h, with the same values.
#pragma once

#include <string>

#include "Interfaces.h"
#include "Kel/Attr.h"
#include "Kel/Dir.h"
#include "Kel/Error.h"
#include "agent/model/Interface.h"
#include "fixture/Device.h"
#include "fixture/Types.h"

namespace Bench {

enum class Flavour { Declared, Runtime };

// An entity made from its declared type, or from its twin.
class TwinTree {
public:
  using Handle = Kel::Ptr<Kel::GenericIf>;
  using ConstHandle = Kel::Ptr<Kel::GenericIf const>;

  TwinTree(Flavour flavour, std::size_t leaves) {
    static_cast<void>(InterfaceTree(0)); // sets the clock and declares the types
    Kel::KelType const declared = Kel::typeOf<Agent::Interfaces>();
    type_ = flavour == Flavour::Declared ? declared : Fixture::runtimeTwin(declared);
    auto const root = type_.genericIf(Kel::ArgList());
    root_ = Kel::entityAt(ConstHandle(root));
    Kel::globalDir()->dirIs(Agent::kOrigin)->entityIs("interfaces", root_, false);
    fill(root, leaves);
  }
  ~TwinTree() {
    Ondra::FullKelTypeWalker::flushWalkMap();
    Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees();
    Kel::globalDir()->entityDel(Agent::kOrigin);
  }
  TwinTree(TwinTree const&) = delete;
  TwinTree& operator=(TwinTree const&) = delete;

  [[nodiscard]] std::size_t size() const { return list().genericIfCount(Kel::handleTo(root_)); }
  [[nodiscard]] std::size_t leaves() const { return size() * kLeavesPerInterface; }
  // The configurations, in the order of the interfaces.
  [[nodiscard]] std::vector<Handle> configs() const {
    std::vector<Handle> all;
    for (auto at = list().genericIfIterator(Kel::handleTo(root_)); at; ++at)
      all.push_back(child(Kel::handleTo(Kel::entityAt(at.ptr())), "config"));
    return all;
  }
  void clear() {
    std::vector<ConstHandle> keys;
    for (auto at = list().genericIfIterator(Kel::handleTo(root_)); at; ++at)
      keys.push_back(at.key());
    for (ConstHandle const& key : keys)
      list().genericIfDel(Kel::handleTo(root_), key);
  }

  // Makes so many leaves' interfaces in a container of them.
  static void fill(Handle const& root, std::size_t leaves) {
    for (std::size_t i = 0; i < leaves / kLeavesPerInterface; ++i)
      fillOne(attr(root, "interface").genericIfSet(root, {text(interfaceName(i))}), i);
  }

  void walk(Ondra::BaseRouter& router, Ondra::WalkerFlags flags) {
    auto info =
        Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(1)},
                                    Ondra::Path::strToPathIs("/openconfig/interfaces"), root_.get(), flags);
    Ondra::FullKelTypeWalker::walkObject(info);
  }

private:
  [[nodiscard]] Kel::KelAttr list() const { return type_.attr("interface"); }
  static Kel::KelAttr attr(ConstHandle const& object, char const* name) { return object->type().attr(name); }
  static ConstHandle text(std::string const& value) { return Kel::handleOf(Kel::String(value)); }
  // The container, made if missing.
  static Handle child(Handle const& object, char const* name) {
    Kel::KelAttr const at = attr(object, name);
    ConstHandle const there = at.genericIfGet(object);
    return there ? Kel::handleTo(Kel::entityAt(there)) : at.genericIfSet(object, Kel::ArgList());
  }
  static void set(Handle const& object, char const* name, ConstHandle const& value) {
    attr(object, name).desc().access->init(attr(object, name).desc(), *object, *value);
  }

  static void fillOne(Handle const& interface, std::size_t i) {
    Handle const config = child(interface, "config");
    set(config, "name", text(interfaceName(i)));
    set(config, "description", text(kDescription));
    set(config, "mtu", Kel::handleOf(std::uint16_t{9000}));
    set(config, "enabled", Kel::handleOf(true));
    set(config, "loopback-mode", attr(config, "loopback-mode").type().genericIf(nullptr)); // NONE
    set(child(interface, "state"), "name", text(interfaceName(i)));
    for (char const* const half : {"config", "state"})
      child(child(interface, "hold-time"), half);
    child(interface, "subinterfaces");
  }

  Kel::KelType type_;
  Kel::Ptr<Kel::Entity> root_;
};

// Objects whose leaves are of types that are made of others: each has a union, a structure, and four values
// under structured keys.
class ValueTwin {
public:
  using Handle = TwinTree::Handle;
  static constexpr std::size_t kValues = 4;

  ValueTwin(Flavour flavour, std::size_t objects) {
    Kel::KelType const runtime = Fixture::runtimeTypes().rack; // declares both
    Kel::KelType const type = flavour == Flavour::Declared ? Kel::typeOf<Fixture::Rack>() : runtime;
    auto const root = type.genericIf(Kel::ArgList());
    root_ = Kel::entityAt(Kel::Ptr<Kel::GenericIf const>(root));
    Kel::globalDir()->dirIs("twin")->entityIs("rack", root_, false);
    for (std::size_t i = 0; i < objects; ++i) {
      Handle const one =
          type.attr("interface").genericIfSet(root, {Kel::handleOf(Kel::String(interfaceName(i)))});
      set(one, "selector",
          valueOf(one->type().attr("selector").type(), Fixture::Selector(Kel::String("by name"))));
      Kel::KelType const contact = one->type().attr("contact").type(), phone = contact.attr("phone").type();
      set(one, "contact",
          contact.genericIf({text("Ada"), phone.genericIf({number<std::uint16_t>(44), text("555")})}));
      Kel::KelAttr const addr = one->type().attr("addr");
      for (std::uint32_t which = 0; which < kValues; ++which)
        addr.genericIfSet(one, addr.keyType().genericIf({text("red"), number(which)}),
                          addr.memberType().genericIf(nullptr));
      objects_.push_back(one);
    }
  }
  ~ValueTwin() {
    Ondra::FullKelTypeWalker::flushWalkMap();
    Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees();
    Kel::globalDir()->entityDel("twin");
  }
  ValueTwin(ValueTwin const&) = delete;
  ValueTwin& operator=(ValueTwin const&) = delete;

  [[nodiscard]] std::vector<Handle> const& objects() const { return objects_; }
  // A union of the flavour's own type.
  static Handle valueOf(Kel::KelType type, Fixture::Selector const& value) {
    auto made = type.genericIf(Kel::handleOf(value)->strRep());
    if (!made) Kel::throwError(made.error());
    return std::move(*made);
  }
  void walk(Ondra::BaseRouter& router, Ondra::WalkerFlags flags) {
    auto info = Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(1)},
                                            Ondra::Path::strToPathIs("/twin/rack"), root_.get(), flags);
    Ondra::FullKelTypeWalker::walkObject(info);
  }

private:
  static TwinTree::ConstHandle text(char const* value) { return Kel::handleOf(Kel::String(value)); }
  template <class Number>
  static TwinTree::ConstHandle number(Number value) {
    return Kel::handleOf(value);
  }
  static void set(Handle const& object, char const* name, Handle const& value) {
    object->type().attr(name).genericIfSet(object, nullptr, value);
  }

  Kel::Ptr<Kel::Entity> root_;
  std::vector<Handle> objects_;
};

} // namespace Bench
