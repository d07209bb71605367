// The second model of the benchmarks, and what it should cost: small objects, as real trees have them
// (InterfaceModel.h). The hand-written code makes the same responses from a flat array.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "InterfaceModel.h"
#include "Kel/ActivityClock.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/KelTypeWalker.h"
#include "Ports.h"
#include "agent/model/Tree.h"

namespace Bench {

class InterfaceTree {
public:
  explicit InterfaceTree(std::size_t leaves) : tree_(Agent::treeIn(*Kel::globalDir())) {
    // As in a process that has read its clock: a time takes as many bytes as it does there.
    auto const clock = Kel::activityManagerStatus();
    if (clock->activityLoopExecNsTime() < kTime) clock->activityLoopExecNsTimeInc(kTime);
    makeInterfaces(tree_, leaves);
  }
  ~InterfaceTree() {
    Ondra::FullKelTypeWalker::flushWalkMap();
    Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees();
    Kel::globalDir()->entityDel(Agent::kOrigin);
  }
  InterfaceTree(InterfaceTree const&) = delete;
  InterfaceTree& operator=(InterfaceTree const&) = delete;

  [[nodiscard]] Agent::Interfaces& interfaces() { return *tree_.interfaces; }
  [[nodiscard]] std::size_t size() const { return tree_.interfaces->interface.size(); }
  // How many leaves it has.
  [[nodiscard]] std::size_t leaves() const { return size() * kLeavesPerInterface; }

  void walk(Ondra::BaseRouter& router, Ondra::WalkerFlags flags) {
    auto info = Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(1)},
                                            Ondra::Path::strToPathIs("/openconfig/interfaces"),
                                            tree_.interfaces.get(), flags);
    Ondra::FullKelTypeWalker::walkObject(info);
  }

private:
  Agent::Tree tree_;
};

// --- the same, flat ---------------------------------------------------------------------------------

struct FlatInterface {
  std::string name, description, loopbackMode;
  std::uint64_t mtu, up, down, stateUp, stateDown;
  bool enabled;
};

inline std::vector<FlatInterface> flatInterfaces(std::size_t leaves) {
  std::vector<FlatInterface> flat(leaves / kLeavesPerInterface);
  for (std::size_t i = 0; i < flat.size(); ++i)
    flat[i] = {interfaceName(i), kDescription, "NONE", 9000, 0, 0, 0, 0, true};
  return flat;
}

using Below = std::initializer_list<char const*>; // the elements of a response's prefix below the interface

inline void addInterfacePrefix(gnmi::Notification& notification, std::string const& name, Below below) {
  gnmi::Path& prefix = *notification.mutable_prefix();
  addElem(prefix, "openconfig");
  addElem(prefix, "interfaces");
  addElem(prefix, "interface");
  (*prefix.mutable_elem(2)->mutable_key())["name"].assign(name);
  for (char const* const elem : below)
    addElem(prefix, elem);
}

// The responses of an interface, one after the other: `make(below, fill)` makes one, and calls
// `fill(notification)`.
template <class Make>
void interfaceMessages(FlatInterface const& flat, Make const& make) {
  make({}, [&](gnmi::Notification& one) { addLeaf(one, "name").mutable_string_val()->assign(flat.name); });
  make({"config"}, [&](gnmi::Notification& one) {
    one.mutable_update()->Reserve(5);
    addLeaf(one, "name").mutable_string_val()->assign(flat.name);
    addLeaf(one, "mtu").set_uint_val(flat.mtu);
    addLeaf(one, "loopback-mode").mutable_string_val()->assign(flat.loopbackMode);
    addLeaf(one, "description").mutable_string_val()->assign(flat.description);
    addLeaf(one, "enabled").set_bool_val(flat.enabled);
  });
  make({"state"},
       [&](gnmi::Notification& one) { addLeaf(one, "name").mutable_string_val()->assign(flat.name); });
  make({"hold-time", "config"}, [&](gnmi::Notification& one) {
    addLeaf(one, "up").set_uint_val(flat.up);
    addLeaf(one, "down").set_uint_val(flat.down);
  });
  make({"hold-time", "state"}, [&](gnmi::Notification& one) {
    addLeaf(one, "up").set_uint_val(flat.stateUp);
    addLeaf(one, "down").set_uint_val(flat.stateDown);
  });
}

template <class Out>
[[gnu::always_inline]] inline void putInterfaceHead(Out& out, std::string_view name, Below below,
                                                    std::uint64_t timestamp) {
  std::size_t const before = out.size();
  for (auto elem = std::rbegin(below); elem != std::rend(below); ++elem)
    putWireElem(out, *elem);
  putWireElem(out, "interface", name);
  putWireElem(out, "interfaces");
  putWireElem(out, "openconfig");
  out.enclose(0x12, before);
  out.varintField(0x08, timestamp);
  out.enclose(0x0a, 0);
}

template <class Out>
[[gnu::always_inline]] inline void putText(Out& out, char const* name, std::string_view text) {
  putWireLeaf(out, name, [&] { out.textField(0x0a, text); });
}
template <class Out>
[[gnu::always_inline]] inline void putNumber(Out& out, char const* name, std::uint64_t number) {
  putWireLeaf(out, name, [&] { out.varintField(0x18, number); });
}

// The same in wire bytes, each response from its end to its beginning; `make(below, fill)` calls `fill` with
// what is to be written to.
template <class Make>
void interfaceBytes(FlatInterface const& flat, Make const& make) {
  make({}, [&](auto& out) { putText(out, "name", flat.name); });
  make({"config"}, [&](auto& out) {
    putWireLeaf(out, "enabled", [&] { out.varintField(0x20, flat.enabled ? 1 : 0); });
    putText(out, "description", flat.description);
    putText(out, "loopback-mode", flat.loopbackMode);
    putNumber(out, "mtu", flat.mtu);
    putText(out, "name", flat.name);
  });
  make({"state"}, [&](auto& out) { putText(out, "name", flat.name); });
  make({"hold-time", "config"}, [&](auto& out) {
    putNumber(out, "down", flat.down);
    putNumber(out, "up", flat.up);
  });
  make({"hold-time", "state"}, [&](auto& out) {
    putNumber(out, "down", flat.stateDown);
    putNumber(out, "up", flat.stateUp);
  });
}

// --- Sets -----------------------------------------------------------------------------------------------

// Leaves that a client gives an interface: its name, a description, an MTU, whether it is enabled.
inline constexpr std::size_t kWrittenPerInterface = 4;

inline void addInterfaceUpdate(gnmi::SetRequest& request, std::string const& name, char const* leaf,
                               auto const& value) {
  gnmi::Update& update = *request.add_update();
  addElem(*update.mutable_path(), "interfaces");
  addElem(*update.mutable_path(), "interface");
  (*update.mutable_path()->mutable_elem(1)->mutable_key())["name"] = name;
  addElem(*update.mutable_path(), "config");
  addElem(*update.mutable_path(), leaf);
  value(*update.mutable_val());
}

// Of all leaves that a client gives to so many interfaces, from the `first` on.
inline std::string interfaceSet(std::size_t first, std::size_t count, std::uint64_t mtu) {
  gnmi::SetRequest request;
  for (std::size_t i = first; i < first + count; ++i) {
    std::string const name = interfaceName(i);
    addInterfaceUpdate(request, name, "name", [&](gnmi::TypedValue& value) { value.set_string_val(name); });
    addInterfaceUpdate(request, name, "description",
                       [&](gnmi::TypedValue& value) { value.set_string_val(kDescription); });
    addInterfaceUpdate(request, name, "mtu", [&](gnmi::TypedValue& value) { value.set_uint_val(mtu); });
    addInterfaceUpdate(request, name, "enabled",
                       [&](gnmi::TypedValue& value) { value.set_bool_val(mtu % 2 == 0); });
  }
  return request.SerializeAsString();
}

} // namespace Bench
