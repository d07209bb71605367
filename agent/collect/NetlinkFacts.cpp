// How libnl's objects map to the published enumerations: types and states of links, origins of addresses,
// states of neighbours.
#include "agent/collect/NetlinkFacts.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/neighbour.h>

#include <array>
#include <string_view>

#include "agent/collect/IpText.h"
#include "agent/collect/Utf8.h"

namespace Agent {
namespace {

// The address alone, without the prefix length that libnl appends.
std::string addressText(nl_addr const* address) {
  if (address == nullptr || nl_addr_get_len(address) == 0) return {};
  std::array<char, 128> text{};
  nl_addr2str(address, text.data(), text.size());
  std::string_view const whole(text.data());
  return std::string(whole.substr(0, whole.find('/')));
}

std::string macText(nl_addr const* address) {
  return address != nullptr && nl_addr_get_len(address) == 6 ? addressText(address) : std::string();
}

std::string text(char const* chars) {
  std::string made = chars == nullptr ? std::string() : std::string(chars);
  utf8Is(made);
  return made;
}

OperStatus operStatusOf(std::uint8_t state) {
  switch (state) {
  case IF_OPER_NOTPRESENT: return OperStatus::NotPresent;
  case IF_OPER_DOWN: return OperStatus::Down;
  case IF_OPER_LOWERLAYERDOWN: return OperStatus::LowerLayerDown;
  case IF_OPER_TESTING: return OperStatus::Testing;
  case IF_OPER_DORMANT: return OperStatus::Dormant;
  case IF_OPER_UP: return OperStatus::Up;
  default: return OperStatus::Unknown;
  }
}

InterfaceType typeOf(unsigned hardware, std::string_view kind) {
  if (kind == "bond" || kind == "team") return InterfaceType::Lag;
  if (kind == "bridge") return InterfaceType::Bridge;
  if (kind == "vlan") return InterfaceType::Vlan;
  switch (hardware) {
  case ARPHRD_LOOPBACK: return InterfaceType::Loopback;
  case ARPHRD_ETHER: return InterfaceType::Ethernet;
  case ARPHRD_PPP: return InterfaceType::Ppp;
  case ARPHRD_TUNNEL:
  case ARPHRD_TUNNEL6:
  case ARPHRD_SIT:
  case ARPHRD_IPGRE: return InterfaceType::Tunnel;
  case ARPHRD_NONE: return InterfaceType::Virtual;
  default: return InterfaceType::Other;
  }
}

void tellLink(FactSink& sink, rtnl_link* link, bool isDel) {
  LinkFact fact;
  fact.index = rtnl_link_get_ifindex(link);
  if (isDel) return sink.linkDel(fact.index);
  fact.name = text(rtnl_link_get_name(link));
  if (fact.index <= 0 || fact.name.empty()) return;
  unsigned const hardware = rtnl_link_get_arptype(link);
  fact.type = typeOf(hardware, text(rtnl_link_get_type(link)));
  fact.isEthernet = hardware == ARPHRD_ETHER;
  fact.isUp = (rtnl_link_get_flags(link) & IFF_UP) != 0;
  fact.operStatus = operStatusOf(rtnl_link_get_operstate(link));
  fact.mtu = rtnl_link_get_mtu(link);
  fact.description = text(rtnl_link_get_ifalias(link));
  fact.macAddress = macText(rtnl_link_get_addr(link));
  std::uint32_t changes = 0;
  if (rtnl_link_get_carrier_changes(link, &changes) == 0) fact.carrierChanges = changes;
  sink.linkIs(fact);
}

AddressOrigin originOf(AddressFact const& fact, unsigned flags, int scope) {
  bool const isPermanent = (flags & IFA_F_PERMANENT) != 0;
  if (scope == RT_SCOPE_HOST) return AddressOrigin::Other;
  if (!fact.isV6) return isPermanent ? AddressOrigin::Static : AddressOrigin::Dhcp;
  if ((flags & IFA_F_TEMPORARY) != 0) return AddressOrigin::Random;
  if (scope == RT_SCOPE_LINK) return AddressOrigin::LinkLayer;
  if (isPermanent) return AddressOrigin::Static;
  return fact.prefixLength == 128 ? AddressOrigin::Dhcp : AddressOrigin::LinkLayer;
}

AddressStatus statusOf(unsigned flags) {
  if ((flags & IFA_F_DADFAILED) != 0) return AddressStatus::Duplicate;
  if ((flags & IFA_F_OPTIMISTIC) != 0) return AddressStatus::Optimistic;
  if ((flags & IFA_F_TENTATIVE) != 0) return AddressStatus::Tentative;
  if ((flags & IFA_F_DEPRECATED) != 0) return AddressStatus::Deprecated;
  return AddressStatus::Preferred;
}

void tellAddress(FactSink& sink, rtnl_addr* address, bool isDel) {
  int const family = rtnl_addr_get_family(address);
  nl_addr* const local = rtnl_addr_get_local(address);
  if ((family != AF_INET && family != AF_INET6) || local == nullptr) return;
  AddressFact fact;
  fact.index = rtnl_addr_get_ifindex(address);
  fact.isV6 = family == AF_INET6;
  fact.ip = ipText(addressText(local)).value_or(std::string());
  if (isDel) return sink.addressDel(fact.index, fact.isV6, fact.ip);
  unsigned const flags = rtnl_addr_get_flags(address);
  int const scope = rtnl_addr_get_scope(address);
  fact.prefixLength = static_cast<std::uint8_t>(rtnl_addr_get_prefixlen(address));
  fact.origin = originOf(fact, flags, scope);
  fact.type = scope == RT_SCOPE_LINK ? Ipv6AddressType::LinkLocalUnicast : Ipv6AddressType::GlobalUnicast;
  fact.status = statusOf(flags);
  sink.addressIs(fact);
}

std::optional<NeighborState> stateOf(int state) {
  switch (state) {
  case NUD_INCOMPLETE: return NeighborState::Incomplete;
  case NUD_REACHABLE: return NeighborState::Reachable;
  case NUD_STALE: return NeighborState::Stale;
  case NUD_DELAY: return NeighborState::Delay;
  case NUD_PROBE: return NeighborState::Probe;
  default: return std::nullopt; // permanent entries have none
  }
}

void tellNeighbor(FactSink& sink, rtnl_neigh* neighbor, bool isDel) {
  int const family = rtnl_neigh_get_family(neighbor);
  nl_addr* const destination = rtnl_neigh_get_dst(neighbor);
  if ((family != AF_INET && family != AF_INET6) || destination == nullptr) return;
  NeighborFact fact;
  fact.index = rtnl_neigh_get_ifindex(neighbor);
  fact.isV6 = family == AF_INET6;
  fact.ip = ipText(addressText(destination)).value_or(std::string());
  int const state = rtnl_neigh_get_state(neighbor);
  // Mappings that need no resolution (multicast, broadcast) are no neighbours, nor are those that did not
  // answer.
  bool const isNone = state <= NUD_NONE || (state & (NUD_NOARP | NUD_FAILED)) != 0;
  if (isDel || isNone) return sink.neighborDel(fact.index, fact.isV6, fact.ip);
  fact.linkLayerAddress = macText(rtnl_neigh_get_lladdr(neighbor));
  fact.origin = (state & NUD_PERMANENT) != 0 ? NeighborOrigin::Static : NeighborOrigin::Dynamic;
  fact.isRouter = (rtnl_neigh_get_flags(neighbor) & NTF_ROUTER) != 0;
  fact.state = stateOf(state);
  sink.neighborIs(fact);
}

} // namespace

void tellFact(FactSink& sink, nl_object* object, bool isDel) {
  std::string_view const type = nl_object_get_type(object);
  if (type == "route/link")
    tellLink(sink, reinterpret_cast<rtnl_link*>(object), isDel);
  else if (type == "route/addr")
    tellAddress(sink, reinterpret_cast<rtnl_addr*>(object), isDel);
  else if (type == "route/neigh")
    tellNeighbor(sink, reinterpret_cast<rtnl_neigh*>(object), isDel);
}

} // namespace Agent
