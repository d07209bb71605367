// The types of /interfaces down to an interface's own containers; those of its subinterfaces are in
// DeclareSubinterfaces.cpp.
#include "agent/model/Declarations.h"
#include "agent/model/Interface.h"
#include "agent/model/Shape.h"

namespace Agent::Impl {

// One line a node.
// clang-format off
void declareInterfaces() {
  configShape<InterfaceConfig>("InterfaceConfig", kInterfacesModule)
      .keyCopy("name", &InterfaceConfig::name, &InterfaceConfig::nameIs)
      .leaf("type", &InterfaceConfig::type).identity("")
      .leaf("mtu", &InterfaceConfig::mtu)
      .leaf("loopback-mode", &InterfaceConfig::loopbackMode)
      .leaf("description", &InterfaceConfig::description)
      .leaf("enabled", &InterfaceConfig::enabled, &InterfaceConfig::enabledIs)
      .done();
  sampledShape<InterfaceCounters>("InterfaceCounters", kInterfacesModule)
      .extends<CommonCounters>()
      .leaf("in-unknown-protos", &InterfaceCounters::inUnknownProtos)
      .leaf("in-fcs-errors", &InterfaceCounters::inFcsErrors)
      .leaf("interface-transitions", &InterfaceCounters::interfaceTransitions)
      .leaf("link-transitions", &InterfaceCounters::linkTransitions)
      .leaf("resets", &InterfaceCounters::resets)
      .done();
  eventShape<InterfaceState>("InterfaceState", kInterfacesModule)
      .keyCopy("name", &InterfaceState::name)
      .leaf("type", &InterfaceState::type).identity("")
      .leaf("mtu", &InterfaceState::mtu)
      .leaf("loopback-mode", &InterfaceState::loopbackMode)
      .leaf("description", &InterfaceState::description)
      .leaf("enabled", &InterfaceState::enabled)
      .leaf("ifindex", &InterfaceState::ifindex)
      .leaf("admin-status", &InterfaceState::adminStatus)
      .leaf("oper-status", &InterfaceState::operStatus)
      .leaf("last-change", &InterfaceState::lastChange)
      .leaf("logical", &InterfaceState::logical)
      .leaf("management", &InterfaceState::management)
      .leaf("cpu", &InterfaceState::cpu)
      .presence("counters", &InterfaceState::counters)
      .done();
  configShape<HoldTimeValues>("HoldTimeConfig", kInterfacesModule)
      .leaf("up", &HoldTimeValues::up)
      .leaf("down", &HoldTimeValues::down)
      .done();
  eventShape<HoldTimeState>("HoldTimeState", kInterfacesModule)
      .leaf("up", &HoldTimeState::up)
      .leaf("down", &HoldTimeState::down)
      .done();
  configShape<HoldTime>("HoldTime", kInterfacesModule)
      .container("config", &HoldTime::config)
      .container("state", &HoldTime::state)
      .done();
  configShape<EthernetConfig>("EthernetConfig", kEthernetModule)
      .leaf("mac-address", &EthernetConfig::macAddress).text(macAddress())
      .leaf("auto-negotiate", &EthernetConfig::autoNegotiate)
      .leaf("duplex-mode", &EthernetConfig::duplexMode)
      .leaf("port-speed", &EthernetConfig::portSpeed).identity(kEthernetModule)
      .done();
  eventShape<EthernetState>("EthernetState", kEthernetModule)
      .leaf("mac-address", &EthernetState::macAddress).text(macAddress())
      .leaf("auto-negotiate", &EthernetState::autoNegotiate)
      .leaf("duplex-mode", &EthernetState::duplexMode)
      .leaf("port-speed", &EthernetState::portSpeed).identity(kEthernetModule)
      .leaf("hw-mac-address", &EthernetState::hwMacAddress).text(macAddress())
      .leaf("negotiated-duplex-mode", &EthernetState::negotiatedDuplexMode)
      .leaf("negotiated-port-speed", &EthernetState::negotiatedPortSpeed).identity(kEthernetModule)
      .done();
  configShape<Ethernet>("Ethernet", kEthernetModule)
      .container("config", &Ethernet::config)
      .container("state", &Ethernet::state)
      .done();
  configShape<Interface>("Interface", kInterfacesModule)
      .key("name", &Interface::name)
      .presence("config", &Interface::config).embedded()
      .container("state", &Interface::state)
      .container("hold-time", &Interface::holdTime)
      .container("subinterfaces", &Interface::subinterfaces)
      .presence("ethernet", &Interface::ethernet).module(kEthernetModule)
      .done();
  configShape<Interfaces>("Interfaces", kInterfacesModule)
      .list("interface", &Interfaces::interface, "name")
      .done();
}
// clang-format on

} // namespace Agent::Impl
