// Links, addresses and neighbours in the model: /interfaces.
//
// Invariants
// 1. `links_` holds exactly what the kernel told last; an entry of the tree that stands for a link carries
//    its ifindex. A name belongs to one link at a time: who takes it over ends the other one.
// 2. A fact that was told before the present resync carries an older `round` than `round_`; `resyncEnd`
//    removes those.
// 3. Configuration leaves are written when the entry is made, never again: from then on they belong to the
//    clients. A client that deletes an entry of the machine's deletes its configuration: the rest stands as
//    long as the machine has it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "Tovak/Clock.h"
#include "agent/collect/Host.h"
#include "agent/collect/LinkFacts.h"
#include "agent/model/Interface.h"

namespace Agent {

// Writes only what changed. Scheduler thread; owned by the collectors.
class LinkModel final : public FactSink {
public:
  // Told of a link that the kernel had not told of before under this name, once the tree has it; may be null.
  using HasCome = std::function<void(std::string const& link)>;

  LinkModel(Host& host, Kel::Ptr<Interfaces> interfaces, Tovak::Clock const& clock, HasCome hasCome = nullptr)
      : host_(host)
      , interfaces_(std::move(interfaces))
      , clock_(clock)
      , hasCome_(std::move(hasCome)) {}

  void linkIs(LinkFact const& link) override;
  void linkDel(int index) override;
  void addressIs(AddressFact const& address) override;
  void addressDel(int index, bool isV6, std::string const& ip) override;
  void neighborIs(NeighborFact const& neighbor) override;
  void neighborDel(int index, bool isV6, std::string const& ip) override;
  void resyncBegin() override { ++round_; }
  void resyncEnd() override;

private:
  using IpKey = std::pair<bool, std::string>; // version 6, address
  template <class Fact>
  struct Dated {
    Fact fact;
    std::uint64_t round = 0;
  };
  struct Link {
    LinkFact fact;
    std::uint64_t round = 0;
    std::optional<std::uint64_t> lastChange; // ns since the Unix epoch
    std::map<IpKey, Dated<AddressFact>> addresses;
    std::map<IpKey, Dated<NeighborFact>> neighbors;
  };

  // The entry of a link, made and filled when the tree has none.
  Kel::Ptr<Interface> entryOf(Link const& link);
  void seed(Interface& entry, Link const& link);
  void writeAll(Interface& entry, Link const& link);
  void writeLink(Interface& entry, Link const& link);
  void writeUnit(Subinterface& unit, Link const& link);
  void writeEthernet(Interface& entry, LinkFact const& link);
  void writeProtocols(Subinterface& unit, Link const& link);
  void writeAddress(Subinterface& unit, AddressFact const& address);
  void writeNeighbor(Subinterface& unit, NeighborFact const& neighbor);

  Host& host_;
  Kel::Ptr<Interfaces> interfaces_;
  Tovak::Clock const& clock_;
  HasCome const hasCome_;
  std::map<int, Link> links_;         // by ifindex
  std::map<std::string, int> byName_; // ifindex
  std::uint64_t round_ = 0;
};

} // namespace Agent
