// A subinterface with its addresses and neighbours: .../subinterfaces/subinterface[index]. Number 0 is the
// interface itself.
#pragma once

#include <cstdint>
#include <optional>

#include "agent/model/Node.h"
#include "agent/model/Values.h"

namespace Agent {

// What interfaces and subinterfaces count. An entity of its own, so that a change tells of one counter and
// not of all.
class CommonCounters : public Node<CommonCounters> {
public:
  std::optional<std::uint64_t> inOctets;
  std::optional<std::uint64_t> inPkts;
  std::optional<std::uint64_t> inUnicastPkts;
  std::optional<std::uint64_t> inBroadcastPkts;
  std::optional<std::uint64_t> inMulticastPkts;
  std::optional<std::uint64_t> inErrors;
  std::optional<std::uint64_t> inDiscards;
  std::optional<std::uint64_t> outOctets;
  std::optional<std::uint64_t> outPkts;
  std::optional<std::uint64_t> outUnicastPkts;
  std::optional<std::uint64_t> outBroadcastPkts;
  std::optional<std::uint64_t> outMulticastPkts;
  std::optional<std::uint64_t> outDiscards;
  std::optional<std::uint64_t> outErrors;
  std::optional<std::uint64_t> lastClear; // ns since the Unix epoch
};

// --- addresses ---------------------------------------------------------------------------------------------
class AddressConfig final : public Node<AddressConfig> {
public:
  void handleParent() override;
  void ipIs(Kel::String const&) {} // always the key of its list entry

  Kel::String ip;
  std::optional<std::uint8_t> prefixLength;
};
class Ipv4AddressState final : public Node<Ipv4AddressState> {
public:
  Kel::String ip;
  std::optional<std::uint8_t> prefixLength;
  std::optional<AddressOrigin> origin;
};
class Ipv4Address final : public Node<Ipv4Address> {
public:
  void handleParent() override;

  Kel::String ip;                 // the key
  Kel::Ptr<AddressConfig> config; // null once its configuration was deleted
  Kel::Ptr<Ipv4AddressState> state;
};
class Ipv6AddressConfig final : public Node<Ipv6AddressConfig> {
public:
  void handleParent() override;
  void ipIs(Kel::String const&) {}
  // Without value it is a global unicast address.
  void typeIs(std::optional<Ipv6AddressType> const& kind) {
    leafIs(&Ipv6AddressConfig::type, kind.value_or(Ipv6AddressType::GlobalUnicast));
  }

  Kel::String ip;
  std::optional<std::uint8_t> prefixLength;
  std::optional<Ipv6AddressType> type = Ipv6AddressType::GlobalUnicast;
};
class Ipv6AddressState final : public Node<Ipv6AddressState> {
public:
  Kel::String ip;
  std::optional<std::uint8_t> prefixLength;
  std::optional<Ipv6AddressType> type;
  std::optional<AddressOrigin> origin;
  std::optional<AddressStatus> status;
};
class Ipv6Address final : public Node<Ipv6Address> {
public:
  void handleParent() override;

  Kel::String ip;                     // the key
  Kel::Ptr<Ipv6AddressConfig> config; // null once its configuration was deleted
  Kel::Ptr<Ipv6AddressState> state;
};
class Ipv4Addresses final : public Node<Ipv4Addresses> {
public:
  Kel::KeyedEntities<Kel::String, Ipv4Address> address;
};
class Ipv6Addresses final : public Node<Ipv6Addresses> {
public:
  Kel::KeyedEntities<Kel::String, Ipv6Address> address;
};

// --- neighbours --------------------------------------------------------------------------------------------
class Ipv4NeighborState final : public Node<Ipv4NeighborState> {
public:
  Kel::String ip;
  std::optional<Kel::String> linkLayerAddress;
  std::optional<NeighborOrigin> origin;
};
class Ipv4Neighbor final : public Node<Ipv4Neighbor> {
public:
  void handleParent() override;

  Kel::String ip; // the key
  Kel::Ptr<Ipv4NeighborState> state;
};
class Ipv6NeighborState final : public Node<Ipv6NeighborState> {
public:
  Kel::String ip;
  std::optional<Kel::String> linkLayerAddress;
  std::optional<NeighborOrigin> origin;
  std::optional<bool> isRouter;
  std::optional<NeighborState> neighborState;
};
class Ipv6Neighbor final : public Node<Ipv6Neighbor> {
public:
  void handleParent() override;

  Kel::String ip; // the key
  Kel::Ptr<Ipv6NeighborState> state;
};
class Ipv4Neighbors final : public Node<Ipv4Neighbors> {
public:
  Kel::KeyedEntities<Kel::String, Ipv4Neighbor> neighbor;
};
class Ipv6Neighbors final : public Node<Ipv6Neighbors> {
public:
  Kel::KeyedEntities<Kel::String, Ipv6Neighbor> neighbor;
};

// --- the two protocols -------------------------------------------------------------------------------------
class IpConfig final : public Node<IpConfig> {
public:
  std::optional<bool> enabled;
  std::optional<std::uint16_t> mtu; // octets
};
class Ipv6Config final : public Node<Ipv6Config> {
public:
  // Without value it is true.
  void enabledIs(std::optional<bool> const& on) { leafIs(&Ipv6Config::enabled, on.value_or(true)); }

  std::optional<bool> enabled = true;
  std::optional<std::uint32_t> mtu; // octets
};
class IpState final : public Node<IpState> {
public:
  std::optional<bool> enabled;
  std::optional<std::uint16_t> mtu;
};
class Ipv6State final : public Node<Ipv6State> {
public:
  std::optional<bool> enabled;
  std::optional<std::uint32_t> mtu;
};
class Ipv4 final : public Node<Ipv4> {
public:
  void handleParent() override;

  Kel::Ptr<IpConfig> config;
  Kel::Ptr<IpState> state;
  Kel::Ptr<Ipv4Addresses> addresses;
  Kel::Ptr<Ipv4Neighbors> neighbors;
};
class Ipv6 final : public Node<Ipv6> {
public:
  void handleParent() override;

  Kel::Ptr<Ipv6Config> config;
  Kel::Ptr<Ipv6State> state;
  Kel::Ptr<Ipv6Addresses> addresses;
  Kel::Ptr<Ipv6Neighbors> neighbors;
};

// --- the subinterface --------------------------------------------------------------------------------------
class SubinterfaceConfig final : public Node<SubinterfaceConfig> {
public:
  void handleParent() override;
  void indexIs(std::uint32_t) {} // always the key of its list entry
  void enabledIs(std::optional<bool> const& on) { leafIs(&SubinterfaceConfig::enabled, on.value_or(true)); }

  std::uint32_t index = 0;
  std::optional<Kel::String> description;
  std::optional<bool> enabled = true;
};
class SubinterfaceState final : public Node<SubinterfaceState> {
public:
  std::uint32_t index = 0;
  std::optional<Kel::String> description;
  std::optional<bool> enabled;
  std::optional<Kel::String> name;
  std::optional<std::uint32_t> ifindex;
  std::optional<AdminStatus> adminStatus;
  std::optional<OperStatus> operStatus;
  std::optional<std::uint64_t> lastChange; // ns since the Unix epoch
  Kel::Ptr<CommonCounters> counters;       // once they have been read
};
class Subinterface final : public Node<Subinterface> {
public:
  void handleParent() override;

  std::uint32_t index = 0;             // the key
  Kel::Ptr<SubinterfaceConfig> config; // null once its configuration was deleted
  Kel::Ptr<SubinterfaceState> state;
  Kel::Ptr<Ipv4> ipv4;
  Kel::Ptr<Ipv6> ipv6;
};
class Subinterfaces final : public Node<Subinterfaces> {
public:
  Kel::KeyedEntities<std::uint32_t, Subinterface> subinterface;
};

} // namespace Agent
