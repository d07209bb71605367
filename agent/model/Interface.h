// An interface: /interfaces/interface[name]. What the host does not know is left without value.
#pragma once

#include <cstdint>
#include <optional>

#include "agent/model/Node.h"
#include "agent/model/Subinterface.h"
#include "agent/model/Values.h"

namespace Agent {

class InterfaceConfig final : public Node<InterfaceConfig> {
public:
  void handleParent() override;
  // Always the key of its list entry, whatever a writer says.
  void nameIs(Kel::String const&) {}
  // Without value it is true.
  void enabledIs(std::optional<bool> const& on) { leafIs(&InterfaceConfig::enabled, on.value_or(true)); }

  Kel::String name;
  std::optional<InterfaceType> type;
  std::optional<std::uint16_t> mtu; // octets
  LoopbackMode loopbackMode = LoopbackMode::None;
  std::optional<Kel::String> description;
  std::optional<bool> enabled = true;
};

class InterfaceCounters final : public Node<InterfaceCounters, CommonCounters> {
public:
  std::optional<std::uint64_t> inUnknownProtos;
  std::optional<std::uint64_t> inFcsErrors;
  std::optional<std::uint64_t> interfaceTransitions;
  std::optional<std::uint64_t> linkTransitions;
  std::optional<std::uint64_t> resets;
};

class InterfaceState final : public Node<InterfaceState> {
public:
  Kel::String name;
  std::optional<InterfaceType> type;
  std::optional<std::uint16_t> mtu;
  std::optional<LoopbackMode> loopbackMode;
  std::optional<Kel::String> description;
  std::optional<bool> enabled;
  std::optional<std::uint32_t> ifindex;
  std::optional<AdminStatus> adminStatus;
  std::optional<OperStatus> operStatus;
  std::optional<std::uint64_t> lastChange; // ns since the Unix epoch
  std::optional<bool> logical;
  std::optional<bool> management;
  std::optional<bool> cpu;
  Kel::Ptr<InterfaceCounters> counters; // once they have been read
};

// Milliseconds. The kernel reports state changes at once, so that the state is 0.
class HoldTimeValues final : public Node<HoldTimeValues> {
public:
  std::uint32_t up = 0;
  std::uint32_t down = 0;
};
class HoldTimeState final : public Node<HoldTimeState> {
public:
  std::uint32_t up = 0;
  std::uint32_t down = 0;
};
class HoldTime final : public Node<HoldTime> {
public:
  void handleParent() override;

  Kel::Ptr<HoldTimeValues> config;
  Kel::Ptr<HoldTimeState> state;
};

class EthernetConfig final : public Node<EthernetConfig> {
public:
  std::optional<Kel::String> macAddress;
  std::optional<bool> autoNegotiate;
  std::optional<DuplexMode> duplexMode;
  std::optional<PortSpeed> portSpeed;
};
class EthernetState final : public Node<EthernetState> {
public:
  std::optional<Kel::String> macAddress;
  std::optional<bool> autoNegotiate;
  std::optional<DuplexMode> duplexMode;
  std::optional<PortSpeed> portSpeed;
  std::optional<Kel::String> hwMacAddress;
  std::optional<DuplexMode> negotiatedDuplexMode;
  std::optional<PortSpeed> negotiatedPortSpeed;
};
class Ethernet final : public Node<Ethernet> {
public:
  void handleParent() override;

  Kel::Ptr<EthernetConfig> config;
  Kel::Ptr<EthernetState> state;
};

class Interface final : public Node<Interface> {
public:
  void handleParent() override;

  Kel::String name;                 // the key
  Kel::Ptr<InterfaceConfig> config; // null once its configuration was deleted
  Kel::Ptr<InterfaceState> state;
  Kel::Ptr<HoldTime> holdTime;
  Kel::Ptr<Subinterfaces> subinterfaces;
  Kel::Ptr<Ethernet> ethernet; // of Ethernet links
};

class Interfaces final : public Node<Interfaces> {
public:
  Kel::KeyedEntities<Kel::String, Interface> interface;
};

} // namespace Agent
