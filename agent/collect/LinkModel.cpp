// Facts in, leaves out: where each fact is written, what becomes configuration, and what goes at the end of a
// resync.
#include "agent/collect/LinkModel.h"

#include <fmt/format.h>

#include <vector>

namespace Agent {
namespace {

// Some links have larger ones, the loopback among them: they stay without value.
std::optional<std::uint16_t> mtuLeaf(std::uint32_t mtu) {
  return mtu <= UINT16_MAX ? std::optional(static_cast<std::uint16_t>(mtu)) : std::nullopt;
}

std::optional<Kel::String> textLeaf(std::string const& text) {
  return text.empty() ? std::nullopt : std::optional<Kel::String>(text);
}

Subinterface& unitOf(Interface& entry) {
  return *entry.subinterfaces->entryIs(&Subinterfaces::subinterface, 0);
}

} // namespace

// --- the entry ---------------------------------------------------------------------------------------------

Kel::Ptr<Interface> LinkModel::entryOf(Link const& link) {
  Kel::String const name(link.fact.name);
  Interface* const there = interfaces_->interface.find(name);
  bool const isOurs = there != nullptr && there->state->ifindex.has_value();
  auto entry = interfaces_->entryIs(&Interfaces::interface, name);
  if (there == nullptr) seed(*entry, link); // an entry that a client made keeps the client's configuration
  if (!isOurs) writeAll(*entry, link);
  return entry;
}

void LinkModel::seed(Interface& entry, Link const& link) {
  InterfaceConfig& config = *entry.config;
  config.leafIs(&InterfaceConfig::type, link.fact.type);
  config.leafIs(&InterfaceConfig::mtu, mtuLeaf(link.fact.mtu));
  config.leafIs(&InterfaceConfig::description, textLeaf(link.fact.description));
  config.leafIs(&InterfaceConfig::enabled, link.fact.isUp);
}

void LinkModel::writeAll(Interface& entry, Link const& link) {
  writeLink(entry, link);
  Subinterface& unit = unitOf(entry);
  for (auto const& [key, address] : link.addresses)
    writeAddress(unit, address.fact);
  for (auto const& [key, neighbor] : link.neighbors)
    writeNeighbor(unit, neighbor.fact);
}

// --- links -------------------------------------------------------------------------------------------------

void LinkModel::linkIs(LinkFact const& link) {
  if (auto const owner = byName_.find(link.name); owner != byName_.end() && owner->second != link.index)
    linkDel(owner->second);
  auto at = links_.find(link.index);
  bool const isNew = at == links_.end();
  if (!isNew && at->second.fact.name != link.name) { // a rename is a removal and an addition
    interfaces_->entryDel(&Interfaces::interface, Kel::String(at->second.fact.name));
    byName_.erase(at->second.fact.name);
  }
  if (isNew) at = links_.try_emplace(link.index).first;
  Link& known = at->second;
  if (!isNew && (known.fact.operStatus != link.operStatus || known.fact.isUp != link.isUp))
    known.lastChange = static_cast<std::uint64_t>(clock_.wallNs());
  known.fact = link;
  known.round = round_;
  bool const hasCome = byName_.insert_or_assign(link.name, link.index).second;
  writeLink(*entryOf(known), known);
  if (hasCome && hasCome_) hasCome_(link.name);
}

void LinkModel::linkDel(int index) {
  auto const at = links_.find(index);
  if (at == links_.end()) return;
  interfaces_->entryDel(&Interfaces::interface, Kel::String(at->second.fact.name));
  byName_.erase(at->second.fact.name);
  links_.erase(at);
}

void LinkModel::writeLink(Interface& entry, Link const& link) {
  LinkFact const& fact = link.fact;
  InterfaceState& state = *entry.state;
  state.leafIs(&InterfaceState::type, fact.type);
  state.leafIs(&InterfaceState::mtu, mtuLeaf(fact.mtu));
  state.leafIs(&InterfaceState::description, textLeaf(fact.description));
  state.leafIs(&InterfaceState::enabled, fact.isUp);
  state.leafIs(&InterfaceState::ifindex, static_cast<std::uint32_t>(fact.index));
  state.leafIs(&InterfaceState::adminStatus, fact.isUp ? AdminStatus::Up : AdminStatus::Down);
  state.leafIs(&InterfaceState::operStatus, fact.operStatus);
  state.leafIs(&InterfaceState::lastChange, link.lastChange);
  // A link of hardware has a device behind it.
  if (host_.sys.exists(fmt::format("class/net/{}", fact.name)))
    state.leafIs(&InterfaceState::logical, !host_.sys.exists(fmt::format("class/net/{}/device", fact.name)));
  if (fact.carrierChanges) {
    state.containerIs(&InterfaceState::counters)
        ->leafIs(&InterfaceCounters::linkTransitions, std::uint64_t{*fact.carrierChanges});
  }
  if (fact.isEthernet) writeEthernet(entry, fact);
  writeUnit(unitOf(entry), link);
}

void LinkModel::writeEthernet(Interface& entry, LinkFact const& link) {
  EthernetState& state = *entry.containerIs(&Interface::ethernet)->state;
  std::string const folder = fmt::format("class/net/{}", link.name);
  state.leafIs(&EthernetState::macAddress, textLeaf(link.macAddress));
  bool const isPermanent = host_.sys.number(folder + "/addr_assign_type") == 0;
  state.leafIs(&EthernetState::hwMacAddress, isPermanent ? textLeaf(link.macAddress) : std::nullopt);
  // Known while there is a carrier.
  auto const speed = host_.sys.number(folder + "/speed");
  state.leafIs(&EthernetState::negotiatedPortSpeed,
               speed && *speed > 0 ? std::optional(portSpeedOf(*speed)) : std::nullopt);
  auto const duplex = host_.sys.value(folder + "/duplex");
  state.leafIs(&EthernetState::negotiatedDuplexMode, duplex == "full"   ? std::optional(DuplexMode::Full)
                                                     : duplex == "half" ? std::optional(DuplexMode::Half)
                                                                        : std::nullopt);
}

void LinkModel::writeUnit(Subinterface& unit, Link const& link) {
  LinkFact const& fact = link.fact;
  SubinterfaceState& state = *unit.state;
  state.leafIs(&SubinterfaceState::description, textLeaf(fact.description));
  state.leafIs(&SubinterfaceState::enabled, fact.isUp);
  state.leafIs(&SubinterfaceState::name, Kel::String(fact.name));
  state.leafIs(&SubinterfaceState::ifindex, static_cast<std::uint32_t>(fact.index));
  state.leafIs(&SubinterfaceState::adminStatus, fact.isUp ? AdminStatus::Up : AdminStatus::Down);
  state.leafIs(&SubinterfaceState::operStatus, fact.operStatus);
  state.leafIs(&SubinterfaceState::lastChange, link.lastChange);
  writeProtocols(unit, link);
}

void LinkModel::writeProtocols(Subinterface& unit, Link const& link) {
  // IPv4 begins with the first address and takes the link's MTU; IPv6 has settings of its own.
  bool const hasV4 = !link.addresses.empty() && !link.addresses.begin()->first.first;
  IpState& v4 = *unit.ipv4->state;
  v4.leafIs(&IpState::enabled, hasV4);
  v4.leafIs(&IpState::mtu, hasV4 ? mtuLeaf(link.fact.mtu) : std::nullopt);
  std::string const folder = fmt::format("sys/net/ipv6/conf/{}", link.fact.name);
  auto const disabled = host_.proc.number(folder + "/disable_ipv6");
  auto const mtu = host_.proc.number(folder + "/mtu");
  Ipv6State& v6 = *unit.ipv6->state;
  v6.leafIs(&Ipv6State::enabled, disabled ? std::optional(*disabled == 0) : std::nullopt);
  v6.leafIs(&Ipv6State::mtu, mtu ? std::optional(static_cast<std::uint32_t>(*mtu)) : std::nullopt);
}

// --- addresses and neighbours ------------------------------------------------------------------------------

void LinkModel::addressIs(AddressFact const& address) {
  auto const at = links_.find(address.index);
  if (at == links_.end()) return; // the link has gone already
  at->second.addresses[{address.isV6, address.ip}] = {address, round_};
  Subinterface& unit = unitOf(*entryOf(at->second));
  writeAddress(unit, address);
  writeProtocols(unit, at->second);
}

void LinkModel::addressDel(int index, bool isV6, std::string const& ip) {
  auto const at = links_.find(index);
  if (at == links_.end()) return;
  at->second.addresses.erase({isV6, ip});
  Subinterface& unit = unitOf(*entryOf(at->second));
  if (isV6)
    unit.ipv6->addresses->entryDel(&Ipv6Addresses::address, Kel::String(ip));
  else
    unit.ipv4->addresses->entryDel(&Ipv4Addresses::address, Kel::String(ip));
  writeProtocols(unit, at->second);
}

void LinkModel::writeAddress(Subinterface& unit, AddressFact const& address) {
  Kel::String const ip(address.ip);
  bool const seeds = address.origin == AddressOrigin::Static;
  if (address.isV6) {
    Ipv6Addresses& list = *unit.ipv6->addresses;
    bool const isNew = !list.address.has(ip);
    auto const entry = list.entryIs(&Ipv6Addresses::address, ip);
    entry->state->leafIs(&Ipv6AddressState::prefixLength, address.prefixLength);
    entry->state->leafIs(&Ipv6AddressState::type, address.type);
    entry->state->leafIs(&Ipv6AddressState::origin, address.origin);
    entry->state->leafIs(&Ipv6AddressState::status, address.status);
    if (!isNew || !seeds) return;
    entry->config->leafIs(&Ipv6AddressConfig::prefixLength, address.prefixLength);
    entry->config->leafIs(&Ipv6AddressConfig::type, address.type);
    return;
  }
  Ipv4Addresses& list = *unit.ipv4->addresses;
  bool const isNew = !list.address.has(ip);
  auto const entry = list.entryIs(&Ipv4Addresses::address, ip);
  entry->state->leafIs(&Ipv4AddressState::prefixLength, address.prefixLength);
  entry->state->leafIs(&Ipv4AddressState::origin, address.origin);
  if (isNew && seeds) entry->config->leafIs(&AddressConfig::prefixLength, address.prefixLength);
}

void LinkModel::neighborIs(NeighborFact const& neighbor) {
  auto const at = links_.find(neighbor.index);
  if (at == links_.end()) return;
  at->second.neighbors[{neighbor.isV6, neighbor.ip}] = {neighbor, round_};
  writeNeighbor(unitOf(*entryOf(at->second)), neighbor);
}

void LinkModel::neighborDel(int index, bool isV6, std::string const& ip) {
  auto const at = links_.find(index);
  if (at == links_.end() || at->second.neighbors.erase({isV6, ip}) == 0) return;
  Subinterface& unit = unitOf(*entryOf(at->second));
  if (isV6)
    unit.ipv6->neighbors->entryDel(&Ipv6Neighbors::neighbor, Kel::String(ip));
  else
    unit.ipv4->neighbors->entryDel(&Ipv4Neighbors::neighbor, Kel::String(ip));
}

void LinkModel::writeNeighbor(Subinterface& unit, NeighborFact const& neighbor) {
  Kel::String const ip(neighbor.ip);
  if (neighbor.isV6) {
    Ipv6NeighborState& state = *unit.ipv6->neighbors->entryIs(&Ipv6Neighbors::neighbor, ip)->state;
    state.leafIs(&Ipv6NeighborState::linkLayerAddress, textLeaf(neighbor.linkLayerAddress));
    state.leafIs(&Ipv6NeighborState::origin, neighbor.origin);
    state.leafIs(&Ipv6NeighborState::isRouter, neighbor.isRouter);
    state.leafIs(&Ipv6NeighborState::neighborState, neighbor.state);
    return;
  }
  Ipv4NeighborState& state = *unit.ipv4->neighbors->entryIs(&Ipv4Neighbors::neighbor, ip)->state;
  state.leafIs(&Ipv4NeighborState::linkLayerAddress, textLeaf(neighbor.linkLayerAddress));
  state.leafIs(&Ipv4NeighborState::origin, neighbor.origin);
}

// --- keeping up --------------------------------------------------------------------------------------------

void LinkModel::resyncEnd() {
  std::vector<int> goneLinks;
  std::vector<std::pair<int, IpKey>> goneAddresses, goneNeighbors;
  for (auto const& [index, link] : links_) {
    if (link.round != round_) {
      goneLinks.push_back(index);
      continue;
    }
    for (auto const& [key, address] : link.addresses)
      if (address.round != round_) goneAddresses.emplace_back(index, key);
    for (auto const& [key, neighbor] : link.neighbors)
      if (neighbor.round != round_) goneNeighbors.emplace_back(index, key);
  }
  for (int const index : goneLinks)
    linkDel(index);
  for (auto const& [index, key] : goneAddresses)
    addressDel(index, key.first, key.second);
  for (auto const& [index, key] : goneNeighbors)
    neighborDel(index, key.first, key.second);
}

} // namespace Agent
