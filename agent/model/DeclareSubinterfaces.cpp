// The types below an interface's subinterfaces, IP addresses and neighbours among them, and the counters that
// interfaces share with them.
#include "agent/model/Declarations.h"
#include "agent/model/Shape.h"
#include "agent/model/Subinterface.h"

namespace Agent::Impl {
namespace {

// One line a node.
// clang-format off
void declareAddresses() {
  configShape<AddressConfig>("Ipv4AddressConfig", kIpModule)
      .keyCopy("ip", &AddressConfig::ip, &AddressConfig::ipIs).text(ipv4Address())
      .leaf("prefix-length", &AddressConfig::prefixLength).range(0, 32)
      .done();
  eventShape<Ipv4AddressState>("Ipv4AddressState", kIpModule)
      .keyCopy("ip", &Ipv4AddressState::ip).text(ipv4Address())
      .leaf("prefix-length", &Ipv4AddressState::prefixLength).range(0, 32)
      .leaf("origin", &Ipv4AddressState::origin)
      .done();
  configShape<Ipv4Address>("Ipv4Address", kIpModule)
      .key("ip", &Ipv4Address::ip).text(ipv4Address())
      .presence("config", &Ipv4Address::config).embedded()
      .container("state", &Ipv4Address::state)
      .done();
  configShape<Ipv6AddressConfig>("Ipv6AddressConfig", kIpModule)
      .keyCopy("ip", &Ipv6AddressConfig::ip, &Ipv6AddressConfig::ipIs).text(ipv6Address())
      .leaf("prefix-length", &Ipv6AddressConfig::prefixLength).range(0, 128)
      .leaf("type", &Ipv6AddressConfig::type, &Ipv6AddressConfig::typeIs)
      .done();
  eventShape<Ipv6AddressState>("Ipv6AddressState", kIpModule)
      .keyCopy("ip", &Ipv6AddressState::ip).text(ipv6Address())
      .leaf("prefix-length", &Ipv6AddressState::prefixLength).range(0, 128)
      .leaf("type", &Ipv6AddressState::type)
      .leaf("origin", &Ipv6AddressState::origin)
      .leaf("status", &Ipv6AddressState::status)
      .done();
  configShape<Ipv6Address>("Ipv6Address", kIpModule)
      .key("ip", &Ipv6Address::ip).text(ipv6Address())
      .presence("config", &Ipv6Address::config).embedded()
      .container("state", &Ipv6Address::state)
      .done();
  configShape<Ipv4Addresses>("Ipv4Addresses", kIpModule)
      .list("address", &Ipv4Addresses::address, "ip")
      .done();
  configShape<Ipv6Addresses>("Ipv6Addresses", kIpModule)
      .list("address", &Ipv6Addresses::address, "ip")
      .done();
}

void declareNeighbors() {
  eventShape<Ipv4NeighborState>("Ipv4NeighborState", kIpModule)
      .keyCopy("ip", &Ipv4NeighborState::ip).text(ipv4Address())
      .leaf("link-layer-address", &Ipv4NeighborState::linkLayerAddress).text(physAddress())
      .leaf("origin", &Ipv4NeighborState::origin)
      .done();
  eventShape<Ipv4Neighbor>("Ipv4Neighbor", kIpModule)
      .key("ip", &Ipv4Neighbor::ip).text(ipv4Address())
      .container("state", &Ipv4Neighbor::state)
      .done();
  eventShape<Ipv6NeighborState>("Ipv6NeighborState", kIpModule)
      .keyCopy("ip", &Ipv6NeighborState::ip).text(ipv6Address())
      .leaf("link-layer-address", &Ipv6NeighborState::linkLayerAddress).text(physAddress())
      .leaf("origin", &Ipv6NeighborState::origin)
      .leaf("is-router", &Ipv6NeighborState::isRouter)
      .leaf("neighbor-state", &Ipv6NeighborState::neighborState)
      .done();
  eventShape<Ipv6Neighbor>("Ipv6Neighbor", kIpModule)
      .key("ip", &Ipv6Neighbor::ip).text(ipv6Address())
      .container("state", &Ipv6Neighbor::state)
      .done();
  eventShape<Ipv4Neighbors>("Ipv4Neighbors", kIpModule)
      .list("neighbor", &Ipv4Neighbors::neighbor, "ip")
      .done();
  eventShape<Ipv6Neighbors>("Ipv6Neighbors", kIpModule)
      .list("neighbor", &Ipv6Neighbors::neighbor, "ip")
      .done();
}

void declareProtocols() {
  configShape<IpConfig>("Ipv4Config", kIpModule)
      .leaf("enabled", &IpConfig::enabled)
      .leaf("mtu", &IpConfig::mtu).range(68, UINT16_MAX)
      .done();
  configShape<Ipv6Config>("Ipv6Config", kIpModule)
      .leaf("enabled", &Ipv6Config::enabled, &Ipv6Config::enabledIs)
      .leaf("mtu", &Ipv6Config::mtu).range(1280, UINT32_MAX)
      .done();
  eventShape<IpState>("Ipv4State", kIpModule)
      .leaf("enabled", &IpState::enabled)
      .leaf("mtu", &IpState::mtu).range(68, UINT16_MAX)
      .done();
  eventShape<Ipv6State>("Ipv6State", kIpModule)
      .leaf("enabled", &Ipv6State::enabled)
      .leaf("mtu", &Ipv6State::mtu).range(1280, UINT32_MAX)
      .done();
  configShape<Ipv4>("Ipv4", kIpModule)
      .container("config", &Ipv4::config)
      .container("state", &Ipv4::state)
      .container("addresses", &Ipv4::addresses)
      .container("neighbors", &Ipv4::neighbors)
      .done();
  configShape<Ipv6>("Ipv6", kIpModule)
      .container("config", &Ipv6::config)
      .container("state", &Ipv6::state)
      .container("addresses", &Ipv6::addresses)
      .container("neighbors", &Ipv6::neighbors)
      .done();
}

void declareSubinterface() {
  sampledShape<CommonCounters>("CommonCounters", kInterfacesModule)
      .leaf("in-octets", &CommonCounters::inOctets)
      .leaf("in-pkts", &CommonCounters::inPkts)
      .leaf("in-unicast-pkts", &CommonCounters::inUnicastPkts)
      .leaf("in-broadcast-pkts", &CommonCounters::inBroadcastPkts)
      .leaf("in-multicast-pkts", &CommonCounters::inMulticastPkts)
      .leaf("in-errors", &CommonCounters::inErrors)
      .leaf("in-discards", &CommonCounters::inDiscards)
      .leaf("out-octets", &CommonCounters::outOctets)
      .leaf("out-pkts", &CommonCounters::outPkts)
      .leaf("out-unicast-pkts", &CommonCounters::outUnicastPkts)
      .leaf("out-broadcast-pkts", &CommonCounters::outBroadcastPkts)
      .leaf("out-multicast-pkts", &CommonCounters::outMulticastPkts)
      .leaf("out-discards", &CommonCounters::outDiscards)
      .leaf("out-errors", &CommonCounters::outErrors)
      .leaf("last-clear", &CommonCounters::lastClear)
      .done();
  configShape<SubinterfaceConfig>("SubinterfaceConfig", kInterfacesModule)
      .keyCopy("index", &SubinterfaceConfig::index, &SubinterfaceConfig::indexIs)
      .leaf("description", &SubinterfaceConfig::description)
      .leaf("enabled", &SubinterfaceConfig::enabled, &SubinterfaceConfig::enabledIs)
      .done();
  eventShape<SubinterfaceState>("SubinterfaceState", kInterfacesModule)
      .keyCopy("index", &SubinterfaceState::index)
      .leaf("description", &SubinterfaceState::description)
      .leaf("enabled", &SubinterfaceState::enabled)
      .leaf("name", &SubinterfaceState::name)
      .leaf("ifindex", &SubinterfaceState::ifindex)
      .leaf("admin-status", &SubinterfaceState::adminStatus)
      .leaf("oper-status", &SubinterfaceState::operStatus)
      .leaf("last-change", &SubinterfaceState::lastChange)
      .presence("counters", &SubinterfaceState::counters)
      .done();
  configShape<Subinterface>("Subinterface", kInterfacesModule)
      .key("index", &Subinterface::index)
      .presence("config", &Subinterface::config).embedded()
      .container("state", &Subinterface::state)
      .container("ipv4", &Subinterface::ipv4).module(kIpModule)
      .container("ipv6", &Subinterface::ipv6).module(kIpModule)
      .done();
  configShape<Subinterfaces>("Subinterfaces", kInterfacesModule)
      .list("subinterface", &Subinterfaces::subinterface, "index")
      .done();
}
// clang-format on

} // namespace

void declareSubinterfaces() {
  declareAddresses();
  declareNeighbors();
  declareProtocols();
  declareSubinterface();
}

} // namespace Agent::Impl
