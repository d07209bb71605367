// Link, address and neighbour facts in the model: renames, resyncs after lost events, entries that clients
// removed.
#include <random>

#include <fmt/format.h>

#include "AgentTesting.h"
#include "Tovak/Clock.h"
#include "agent/collect/LinkModel.h"

namespace {

using namespace AgentTesting;
using namespace Agent;

LinkFact linkFact(int index, std::string name) {
  LinkFact link;
  link.index = index;
  link.name = std::move(name);
  link.type = InterfaceType::Ethernet;
  link.isEthernet = true;
  link.mtu = 1500;
  link.macAddress = "02:00:00:00:00:01";
  return link;
}
AddressFact v4(int index, std::string ip) {
  return {.index = index, .ip = std::move(ip), .prefixLength = 24, .origin = AddressOrigin::Static};
}

struct Machine {
  Kel::Ptr<Kel::Dir> root{new Kel::Dir()};
  Tree tree = treeIn(*root);
  RecordedFolder files;
  Host host;
  Tovak::SimulatedClock clock;
  LinkModel links{host, tree.interfaces, clock};
  Machine() { host.proc = host.sys = host.etc = TextRoot(files.path()); }
  Interface* find(char const* name) const { return tree.interfaces->interface.find(name); }
};

TEST(LinkModel, LinkWithItsAddressesAndNeighbours) {
  Machine m;
  m.files.put("class/net/eth0/device/vendor", "");
  m.files.put("class/net/eth0/addr_assign_type", "0\n");
  m.files.put("class/net/eth0/speed", "1000\n");
  m.files.put("class/net/eth0/duplex", "full\n");
  m.files.put("sys/net/ipv6/conf/eth0/disable_ipv6", "0\n");
  m.files.put("sys/net/ipv6/conf/eth0/mtu", "1400\n");
  LinkFact link = linkFact(2, "eth0");
  link.description = "uplink";
  link.carrierChanges = 3;
  m.links.linkIs(link);
  m.links.addressIs(v4(2, "192.0.2.1"));
  m.links.addressIs({.index = 2,
                     .isV6 = true,
                     .ip = "fe80::1",
                     .prefixLength = 64,
                     .origin = AddressOrigin::LinkLayer,
                     .type = Ipv6AddressType::LinkLocalUnicast,
                     .status = AddressStatus::Tentative});
  m.links.neighborIs({.index = 2,
                      .isV6 = true,
                      .ip = "fe80::2",
                      .linkLayerAddress = "02:00:00:00:00:02",
                      .origin = NeighborOrigin::Dynamic,
                      .isRouter = true,
                      .state = NeighborState::Stale});
  m.links.neighborIs(
      {.index = 2, .ip = "192.0.2.9", .linkLayerAddress = "", .origin = NeighborOrigin::Dynamic});
  m.links.addressIs(v4(3, "192.0.2.2")); // its link has gone: nothing
  Interface& entry = *m.find("eth0");
  EXPECT_EQ(entry.config->description, Kel::String("uplink")); // what is there first is the configuration
  EXPECT_EQ(entry.config->mtu, 1500);
  EXPECT_EQ(textOf(entry.state), R"(/admin-status = 'DOWN'
/counters/link-transitions = 3
/description = "uplink"
/enabled = false
/ifindex = 2
/logical = false
/mtu = 1500
/name = "eth0"
/oper-status = 'UNKNOWN'
/type = 'iana-if-type:ethernetCsmacd'
)");
  EXPECT_EQ(textOf(entry.ethernet), R"(/state/hw-mac-address = "02:00:00:00:00:01"
/state/mac-address = "02:00:00:00:00:01"
/state/negotiated-duplex-mode = 'FULL'
/state/negotiated-port-speed = 'SPEED_1GB'
)");
  Subinterface& unit = *entry.subinterfaces->subinterface.find(0);
  EXPECT_EQ(textOf(unit.ipv4, "state"), R"(/addresses/address[192.0.2.1]/state/ip = "192.0.2.1"
/addresses/address[192.0.2.1]/state/origin = 'STATIC'
/addresses/address[192.0.2.1]/state/prefix-length = 24
/neighbors/neighbor[192.0.2.9]/state/ip = "192.0.2.9"
/neighbors/neighbor[192.0.2.9]/state/origin = 'DYNAMIC'
/state/enabled = true
/state/mtu = 1500
)");
  EXPECT_EQ(textOf(unit.ipv6, "state"), R"(/addresses/address[fe80::1]/state/ip = "fe80::1"
/addresses/address[fe80::1]/state/origin = 'LINK_LAYER'
/addresses/address[fe80::1]/state/prefix-length = 64
/addresses/address[fe80::1]/state/status = 'TENTATIVE'
/addresses/address[fe80::1]/state/type = 'LINK_LOCAL_UNICAST'
/neighbors/neighbor[fe80::2]/state/ip = "fe80::2"
/neighbors/neighbor[fe80::2]/state/is-router = true
/neighbors/neighbor[fe80::2]/state/link-layer-address = "02:00:00:00:00:02"
/neighbors/neighbor[fe80::2]/state/neighbor-state = 'STALE'
/neighbors/neighbor[fe80::2]/state/origin = 'DYNAMIC'
/state/enabled = true
/state/mtu = 1400
)");
}

TEST(LinkModel, ChangesAreStampedAndLargeMtusLeftOut) {
  Machine m;
  LinkFact lo = linkFact(1, "lo");
  lo.isEthernet = false;
  lo.mtu = 65536;
  m.links.linkIs(lo);
  EXPECT_EQ(textOf(m.find("lo")->state, "mtu") + textOf(m.find("lo")->state, "last-change"), "");
  EXPECT_FALSE(m.find("lo")->ethernet);
  m.clock.advance(5);
  lo.operStatus = OperStatus::Up;
  m.links.linkIs(lo);
  auto const stamp = static_cast<std::uint64_t>(m.clock.wallNs());
  m.clock.advance(5);
  lo.description = "no change of status";
  m.links.linkIs(lo);
  EXPECT_EQ(m.find("lo")->state->lastChange, stamp);
  ChangeCounter const counter(m.tree.interfaces);
  m.links.linkIs(lo);
  EXPECT_EQ(counter.changes(), 0) << "nothing changed";
}

TEST(LinkModel, NamesMoveBetweenLinks) {
  Machine m;
  m.links.linkIs(linkFact(2, "a"));
  m.links.addressIs(v4(2, "192.0.2.1"));
  Kel::Ptr<Interface> const before(m.find("a"));
  m.links.linkIs(linkFact(2, "b")); // a rename: removal and addition, with all that belongs to it
  EXPECT_TRUE(before->isOrphan());
  EXPECT_EQ(m.find("a"), nullptr);
  EXPECT_TRUE(m.find("b")->subinterfaces->subinterface.find(0)->ipv4->addresses->address.has("192.0.2.1"));
  // The removal of 2 was lost and its name is another link's now: what is told of 2 later is not that link's.
  m.links.linkIs(linkFact(7, "b"));
  m.links.linkDel(2);
  EXPECT_EQ(m.find("b")->state->ifindex, 7U);
  EXPECT_EQ(textOf(Kel::Ptr<Interface>(m.find("b")), "address["), "");
}

TEST(LinkModel, KeepsWhatClientsMadeAndWhatTheyDeleted) {
  Machine m;
  auto const early = m.tree.interfaces->entryIs(&Interfaces::interface, "eth1");
  early->config->leafIs(&InterfaceConfig::description, Kel::String("by a client"));
  m.links.linkIs(linkFact(2, "eth0"));
  m.links.linkIs(linkFact(3, "eth1"));
  EXPECT_EQ(early->config->description, Kel::String("by a client"));
  EXPECT_EQ(early->config->mtu, std::nullopt) << "a client's configuration is left alone";
  EXPECT_EQ(early->state->mtu, 1500);
  m.find("eth0")->containerDel(&Interface::config);
  m.links.linkIs(linkFact(2, "eth0"));
  EXPECT_EQ(m.find("eth0")->config, nullptr);
}

// Random events of which any may be lost; after a resync the tree is what a fresh one makes of the truth.
class Truth {
public:
  explicit Truth(unsigned seed) : random_(seed) {}

  void step(FactSink& sink) { // `sink` hears of a part of what happens
    bool const lost = random_() % 3 == 0;
    int const index = 1 + static_cast<int>(random_() % 6);
    switch (random_() % 6) {
    case 0:
    case 1: newLink(sink, index, lost); break;
    case 2:
      if (links.erase(index) > 0) {
        addresses.erase(index);
        if (!lost) sink.linkDel(index);
      }
      break;
    case 3:
    case 4: {
      if (!links.contains(index)) break;
      AddressFact const address = v4(index, fmt::format("192.0.2.{}", random_() % 4));
      addresses[index][address.ip] = address;
      if (!lost) sink.addressIs(address);
      break;
    }
    default: {
      auto& those = addresses[index];
      if (those.empty()) break;
      std::string const ip = those.begin()->first;
      those.erase(ip);
      if (!lost) sink.addressDel(index, false, ip);
    }
    }
  }
  void tellAll(FactSink& sink) const {
    sink.resyncBegin();
    for (auto const& [index, link] : links)
      sink.linkIs(link);
    for (auto const& [index, those] : addresses)
      for (auto const& [ip, address] : those)
        sink.addressIs(address);
    sink.resyncEnd();
  }

  std::map<int, LinkFact> links;
  std::map<int, std::map<std::string, AddressFact>> addresses;

private:
  void newLink(FactSink& sink, int index, bool lost) {
    std::string const name = fmt::format("eth{}", random_() % 8);
    for (auto const& [other, link] : links)
      if (link.name == name && other != index) return; // names are unique at any moment
    LinkFact link = linkFact(index, name);
    link.isUp = random_() % 2 == 0;
    links[index] = link;
    if (!lost) sink.linkIs(link);
  }
  std::mt19937 random_;
};

// What the kernel tells; configuration and stamps depend on the way there.
Leaves stateOf(Machine const& m) {
  Leaves leaves = leavesOf(m.tree.interfaces);
  std::erase_if(leaves, [](auto const& leaf) {
    return leaf.first.find("/config/") != std::string::npos || leaf.first.ends_with("/last-change");
  });
  return leaves;
}

TEST(LinkModel, ResyncsToTheTruth) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    Machine m;
    Truth truth(seed);
    for (int resync = 0; resync < 3; ++resync) {
      for (int i = 0; i < 40; ++i)
        truth.step(m.links);
      truth.tellAll(m.links);
      Machine fresh;
      truth.tellAll(fresh.links);
      ASSERT_EQ(stateOf(m), stateOf(fresh)) << "seed " << seed << ", resync " << resync;
    }
  }
}

} // namespace
