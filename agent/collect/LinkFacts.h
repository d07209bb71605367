// What the kernel tells of a link, an address, a neighbour: plain facts between the netlink messages and the
// model.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/model/Values.h"

namespace Agent {

struct LinkFact {
  int index = 0;
  std::string name;
  InterfaceType type = InterfaceType::Other;
  bool isEthernet = false; // carries Ethernet frames
  bool isUp = false;       // administratively
  OperStatus operStatus = OperStatus::Unknown;
  std::uint32_t mtu = 0;
  std::string description; // empty: none
  std::string macAddress;  // empty: none
  std::optional<std::uint32_t> carrierChanges;
};

struct AddressFact {
  int index = 0; // of the link
  bool isV6 = false;
  std::string ip;
  std::uint8_t prefixLength = 0;
  AddressOrigin origin = AddressOrigin::Other;
  Ipv6AddressType type = Ipv6AddressType::GlobalUnicast;
  AddressStatus status = AddressStatus::Unknown;
};

struct NeighborFact {
  int index = 0; // of the link
  bool isV6 = false;
  std::string ip;
  std::string linkLayerAddress; // empty: not resolved
  NeighborOrigin origin = NeighborOrigin::Other;
  bool isRouter = false;
  std::optional<NeighborState> state = std::nullopt;
};

// Where facts go. Links come before what belongs to them.
class FactSink {
public:
  virtual ~FactSink() = default;
  virtual void linkIs(LinkFact const& link) = 0;
  virtual void linkDel(int index) = 0;
  virtual void addressIs(AddressFact const& address) = 0;
  virtual void addressDel(int index, bool isV6, std::string const& ip) = 0;
  virtual void neighborIs(NeighborFact const& neighbor) = 0;
  virtual void neighborDel(int index, bool isV6, std::string const& ip) = 0;
  // Between the two every fact that holds is told again; what has not been told by the end holds no more.
  virtual void resyncBegin() = 0;
  virtual void resyncEnd() = 0;
};

} // namespace Agent
