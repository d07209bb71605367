// The model that the benchmarks of walks and of changes share, the router they push to, and hand-written
// code's parts.
//
// The model: /bench/net/ports/port[name=...], each with 12 counters, 4 texts of 12 characters (the key among
// them) and 4 booleans, sent as one notification with a prefix of 4 elements.
#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "Kel/Declare.h"
#include "Kel/Dir.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/responses/WireWriter.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Bench {

inline constexpr std::size_t kLeavesPerPort = 20;
inline constexpr std::array<char const*, 12> kCounterNames = {
    "in-octets", "in-pkts",   "in-errors", "in-discard", "out-octets", "out-pkts",
    "out-errs",  "out-drops", "unicast",   "multicast",  "bcast-in",   "bcast-out"};
inline constexpr std::array<char const*, 4> kTextNames = {"name", "type", "description", "alias"};
inline constexpr std::array<char const*, 4> kFlagNames = {"enabled", "loopback", "tagged", "up-state"};

class Port final : public Kel::EntityOf<Port> {
public:
  void counterIs(std::uint64_t value) { valueIs(c0, value); }

  Kel::String name;
  std::uint64_t c0 = 1'234'567'890'123, c1 = 2'234'567'890, c2 = 3, c3 = 0, c4 = 5'234'567'890'123,
                c5 = 6'234'567'890, c6 = 7, c7 = 8, c8 = 9'234'567'890, c9 = 10'234'567, c10 = 11'234,
                c11 = 12'234'567;
  Kel::String type{"ethernetCsma"}, description{"abcdefghijkl"}, alias{"mnopqrstuvwx"};
  bool enabled = true, loopback = false, tagged = true, upState = true;
};

class Ports final : public Kel::EntityOf<Ports> {
public:
  Kel::Ptr<Port> portIs(Kel::String const& name) { return memberIs(ports, name); }
  Kel::KeyedEntities<Kel::String, Port> ports;
};

inline void declarePorts() {
  static bool const once = [] {
    auto port = Kel::entityType<Port>("BenchPort");
    port.attr("name", &Port::name).ctorArg().keyField();
    constexpr std::array<std::uint64_t Port::*, 12> counters = {&Port::c0, &Port::c1, &Port::c2,  &Port::c3,
                                                                &Port::c4, &Port::c5, &Port::c6,  &Port::c7,
                                                                &Port::c8, &Port::c9, &Port::c10, &Port::c11};
    for (std::size_t i = 0; i < counters.size(); ++i)
      port.attr(kCounterNames[i], counters[i]);
    port.attr("type", &Port::type).attr("description", &Port::description).attr("alias", &Port::alias);
    port.attr("enabled", &Port::enabled).attr("loopback", &Port::loopback).attr("tagged", &Port::tagged);
    port.attr("up-state", &Port::upState).done();
    Kel::entityType<Ports>("BenchPorts").instantiating("port", &Ports::ports).index("name").done();
    return true;
  }();
  static_cast<void>(once);
}

inline std::string portName(std::size_t i) { return fmt::format("ethernet{:04}", i); }

class Tree {
public:
  explicit Tree(std::size_t leaves) {
    declarePorts();
    ports_ = Kel::Ptr<Ports>(new Ports());
    Kel::globalDir()->dirIs("bench")->dirIs("net")->entityIs("ports", ports_);
    for (std::size_t i = 0; i < leaves / kLeavesPerPort; ++i)
      ports_->portIs(Kel::String(portName(i)));
  }
  ~Tree() {
    Ondra::FullKelTypeWalker::flushWalkMap();
    Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees();
    Kel::globalDir()->entityDel("bench");
  }
  [[nodiscard]] Ports& ports() { return *ports_; }

private:
  Kel::Ptr<Ports> ports_;
};

class CountingRouter final : public Ondra::BaseRouter {
public:
  explicit CountingRouter(bool serialize) : serialize_(serialize) {}
  bool push(Ondra::SyncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& response) override {
    ++pushes;
    if (serialize_) {
      std::size_t const size = response->response->ByteSizeLong();
      if (bytes_.size() < size) bytes_.resize(size);
      response->response->SerializeWithCachedSizesToArray(bytes_.data());
      bytes += size;
      benchmark::DoNotOptimize(bytes_.data());
    }
    return refuseAfter == 0 || pushes < refuseAfter;
  }
  std::size_t pushes = 0;
  std::size_t bytes = 0; // of all pushes
  std::size_t refuseAfter = 0;

private:
  bool serialize_;
  std::vector<std::uint8_t> bytes_;
};

// Takes bytes, and reads the first of them.
class CountingByteRouter final : public Ondra::ByteRouter {
public:
  bool pushBytes(Ondra::SyncId, Ondra::WalkId, Ondra::WireResponse const& response) override {
    benchmark::DoNotOptimize(response.bytes.data());
    ++pushes;
    bytes += response.bytes.size();
    return true;
  }
  std::size_t pushes = 0;
  std::size_t bytes = 0; // of all pushes
};

inline void addElem(gnmi::Path& path, char const* name) { path.add_elem()->mutable_name()->assign(name); }

// The prefix of a port's notification.
inline void addPrefix(gnmi::Notification& notification, std::string const& port) {
  gnmi::Path& prefix = *notification.mutable_prefix();
  addElem(prefix, "bench");
  addElem(prefix, "net");
  addElem(prefix, "ports");
  addElem(prefix, "port");
  (*prefix.mutable_elem(3)->mutable_key())["name"].assign(port);
}

inline gnmi::TypedValue& addLeaf(gnmi::Notification& notification, char const* name) {
  gnmi::Update& update = *notification.add_update();
  addElem(*update.mutable_path(), name);
  return *update.mutable_val();
}

// --- the same, in wire bytes, written from their end to their beginning -----------------------------

template <class Out> // a WireWriter or a WireRun, as below
[[gnu::always_inline]] inline void putWireElem(Out& out, std::string_view name, std::string_view key = {}) {
  std::size_t const before = out.size();
  if (!key.empty()) {
    std::size_t const beforeEntry = out.size();
    out.textField(0x12, key);
    out.textField(0x0a, "name");
    out.enclose(0x12, beforeEntry);
  }
  out.textField(0x0a, name);
  out.enclose(0x1a, before);
}

template <class Out, class Value>
[[gnu::always_inline]] inline void putWireLeaf(Out& out, char const* name, Value const& value) {
  std::size_t const before = out.size();
  value();
  out.enclose(0x1a, before);
  std::size_t const beforePath = out.size();
  putWireElem(out, name);
  out.enclose(0x0a, beforePath);
  out.enclose(0x22, before);
}

// What comes before the leaves of a port's notification.
template <class Out>
[[gnu::always_inline]] inline void putWireHead(Out& out, std::string_view port, std::uint64_t timestamp) {
  std::size_t const before = out.size();
  putWireElem(out, "port", port);
  putWireElem(out, "ports");
  putWireElem(out, "net");
  putWireElem(out, "bench");
  out.enclose(0x12, before);
  out.varintField(0x08, timestamp);
  out.enclose(0x0a, 0);
}

} // namespace Bench
