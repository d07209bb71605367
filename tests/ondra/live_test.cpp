// Live subscriptions: what is sent after the first walk. That it is the truth is played in hostile_test.cpp.
#include <gmock/gmock.h>

#include <random>

#include "Ondra/NotifieeMaps.h"
#include "Ondra/live/Referrers.h"
#include "WalkHarness.h"
#include "fixture/Observer.h"
#include "fixture/Populate.h"

namespace {

using Fixture::Device, Fixture::Zone, Ondra::flagSnapshot, Ondra::flagStream, Ondra::GifGnmiNotifiee;
using testing::ElementsAre, testing::ElementsAreArray, testing::IsEmpty;

constexpr Ondra::WalkerFlags kStreamSnapshot = flagStream | flagSnapshot;

class Live : public ::testing::Test {
protected:
  Live() { subscribe(*world.dir()); }

  void subscribe(Kel::Entity const& root) {
    harness.walked(router, root, kStreamSnapshot);
    router.texts.clear();
  }
  // What was sent since the last call, without ids and times: "<prefix> update0 ( ... ) ...".
  std::vector<std::string> sent() {
    std::vector<std::string> out;
    for (std::string const& text : std::exchange(router.texts, {})) {
      EXPECT_TRUE(text.starts_with("0:0 timestamp:")) << text;
      out.push_back(text.substr(text.find(" prefix:") + 8));
    }
    return out;
  }
  void expectTruth(Kel::Entity const& root) {
    RecordingRouter fresh;
    harness.walked(fresh, root, flagSnapshot);
    EXPECT_THAT(router.differences(fresh), IsEmpty());
    EXPECT_THAT(router.complaints, IsEmpty());
  }

  Fixture::World world;
  WalkHarness harness;
  RecordingRouter router;
};

TEST_F(Live, EveryKindOfAttributeReports) {
  Device& device = *world.device();
  Kel::Ptr<Fixture::Interface> const eth0 = device.interfaceIs("eth0");
  std::string const dev = "/fixture/device";
  std::string const port = dev + "/interface[name=eth0]";
  auto const leaf = [](std::string const& prefix, std::string const& path, std::string const& value) {
    return fmt::format("{} update0 ( path:{} {} ) ", prefix, path, value);
  };
  auto const gone = [](std::string const& prefix, std::string const& path) {
    return fmt::format("{} delete0 ( path:{} ) ", prefix, path);
  };
  std::vector<std::tuple<char const*, std::function<void()>, std::vector<std::string>>> const cases{
      {"scalar", [&] { eth0->mtuIs(9000); }, {leaf(port, "/mtu", "uint_val:9000")}},
      {"equal value", [&] { eth0->mtuIs(9000); }, {}},
      {"optional set", [&] { eth0->speedIs(25); }, {leaf(port, "/speed", "uint_val:25")}},
      {"optional cleared", [&] { eth0->speedIs(std::nullopt); }, {gone(port, "/speed")}},
      {"a leaf deep inside",
       [&] {
         eth0->contactIs({"Ada", {44, "new"}});
       },
       {port + " update0 ( path:/contact/person string_val:Ada ) update1 ( path:/contact/phone/country "
               "uint_val:44 ) "
               "update2 ( path:/contact/phone/number string_val:new ) "}},
      {"structure cleared", [&] { eth0->deputyIs(std::nullopt); }, {gone(port, "/deputy")}},
      {"array", [&] { eth0->tagsIs({"x"}); }, {leaf(port, "/tags", "leaflist_val:[ string_val:x ]")}},
      {"reference set", [&] { eth0->peerIs(eth0); }, {leaf(port, "/peer/_ptr", "string_val:" + port)}},
      {"reference cleared", [&] { eth0->peerIs(nullptr); }, {leaf(port, "/peer/_ptr", "string_val:nullptr")}},
      {"scalar member",
       [&] { device.zoneLimitIs(Zone::Dmz, 1); },
       {leaf(dev, "/zoneLimit[zoneLimitKey=DMZ]", "uint_val:1")}},
      {"scalar member gone",
       [&] { device.zoneLimitDel(Zone::Dmz); },
       {gone(dev, "/zoneLimit[zoneLimitKey=DMZ]")}},
      {"absent member", [&] { device.zoneLimitDel(Zone::Dmz); }, {}},
      {"reference member gone", [&] { device.aliasDel("wan"); }, {gone(dev, "/alias[aliasKey=wan]")}},
      {"member that its key tells",
       [&] { device.trustedIs("carol"); },
       {leaf(dev, "/trusted[name=carol]/name", "string_val:carol")}},
      {"value with its key", [&] { eth0->vlanDel(10); }, {gone(port, "/vlan[id=10]")}},
      {"new entity",
       [&] { eth0->laneIs(Zone::Dmz); },
       {leaf(port + "/lane[laneKey=DMZ]", "/power", "double_val:0")}},
      {"entity gone", [&] { eth0->laneDel(Zone::Dmz); }, {gone(port, "/lane[laneKey=DMZ]")}},
      {"single entity gone", [&] { eth0->opticsDel(); }, {gone(port, "/optics")}},
      {"single entity back", [&] { eth0->opticsIs(); }, {leaf(port + "/optics", "/vendor", "string_val:")}},
  };
  for (auto const& [what, edit, expected] : cases) {
    edit();
    EXPECT_THAT(sent(), ElementsAreArray(expected)) << what;
  }
  expectTruth(*world.dir());
}

// Every interface refers to the one that is made after it.
TEST_F(Live, AChainOfForwardReferences) {
  constexpr int kLength = 10'000;
  Kel::Ptr<Fixture::Rack> const rack(new Fixture::Rack());
  std::vector<Kel::Ptr<Fixture::Interface>> chain;
  chain.reserve(kLength);
  for (int i = 0; i < kLength; ++i)
    chain.push_back(rack->interfaceIs(fmt::format("{:05}", i)));
  for (int i = 0; i + 1 < kLength; ++i)
    chain[i]->peerIs(chain[i + 1]);
  router.keepTexts = false;
  world.dir()->entityIs("chain", rack);
  EXPECT_EQ(router.leaves().at("/fixture/chain/interface[name=00000]/peer/_ptr"),
            "string_val:/fixture/chain/interface[name=00001]");
  expectTruth(*rack->parent());
  world.dir()->entityDel("chain");
  expectTruth(*world.dir());
}

// Members under references, many of which lead nowhere: these share a path, and show as a walk has them.
TEST(LiveLaw, MembersThatShareAPath) {
  for (std::uint32_t seed = 1; seed < 16 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    auto const below = [&random](std::uint32_t bound) {
      return static_cast<std::uint32_t>(random() % bound);
    };
    auto const maybe = [&] { return below(2) == 0 ? std::optional<std::uint32_t>() : below(99); };
    Fixture::World world;
    WalkHarness harness;
    RecordingRouter live;
    Device& device = *world.device();
    std::vector<Kel::Ptr<Fixture::Interface>> ports; // also those that have been removed
    ports.reserve(8);
    for (int i = 0; i < 8; ++i)
      ports.push_back(device.interfaceIs("p" + std::to_string(i)));
    harness.walked(live, *world.dir(), kStreamSnapshot);
    for (int turn = 0; turn < 40; ++turn) {
      std::optional<Ondra::WalkScope> together;
      if (below(2) == 0) together.emplace();
      for (std::uint32_t edits = 1 + below(6); edits > 0; --edits) {
        Fixture::Interface& port = *ports[below(8)];
        switch (below(12)) {
        case 0:
        case 1: device.costIs(port, below(99)); break;
        case 2: device.costDel(port); break;
        case 3:
        case 4: device.shareIs(port, {below(99), maybe(), maybe()}); break;
        case 5: device.shareDel(port); break;
        case 6: device.linkIs(Kel::Ptr(&port), {Zone::Dmz, below(99)}); break;
        case 7: device.linkDel(Kel::Ptr(&port)); break;
        case 8: device.slotIs(port)->powerIs(below(99)); break;
        case 9: device.slotDel(port); break;
        default:
          if (!port.isOrphan()) device.interfaceDel(port.name);
        }
      }
      together.reset();
      RecordingRouter fresh;
      harness.walked(fresh, *world.dir(), flagSnapshot);
      ASSERT_THAT(live.differences(fresh), IsEmpty()) << "turn " << turn;
      ASSERT_THAT(live.complaints, IsEmpty()) << "turn " << turn;
    }
    for (auto const& port : ports) { // what is kept of keys keeps none of their objects alive
      device.linkDel(port);
      if (!port->isOrphan()) device.interfaceDel(port->name);
      EXPECT_EQ(port->refCount(), 1U);
    }
  }
}

struct CountingRouter final : Ondra::BaseRouter {
  bool push(Ondra::SyncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>&) override {
    ++pushes;
    return true;
  }
  std::size_t pushes = 0;
};

// What the removal of many costs: in pushes, and in numbers at which anything that grew faster would not end.
TEST(LiveCost, ManyReferencesThatLeadNowhere) {
  constexpr std::size_t kMany = 5'000;
  for (std::string const how : {"costs", "backwards", "links", "in one go"}) {
    SCOPED_TRACE(how);
    bool const links = how == "links", together = how == "in one go";
    Fixture::World world;
    WalkHarness harness;
    CountingRouter router;
    Device& device = *world.device();
    std::vector<Kel::Ptr<Fixture::Interface>> ports;
    for (std::size_t i = 0; i < kMany; ++i) {
      ports.push_back(device.interfaceIs("p" + std::to_string(i)));
      links ? device.linkIs(ports.back(), {}) : device.costIs(*ports.back(), 1);
    }
    harness.walked(router, *world.dir(), kStreamSnapshot);
    auto const pushesOf = [&](auto const& remove) { // for each, at most
      router.pushes = 0;
      std::optional<Ondra::WalkScope> scope;
      if (together) scope.emplace();
      for (std::size_t i = 0; i < kMany; ++i)
        remove(ports[how == "backwards" ? kMany - 1 - i : i]);
      scope.reset();
      return (router.pushes + kMany - 11) / kMany;
    };
    EXPECT_LE(pushesOf([&](auto const& port) { device.interfaceDel(port->name); }), 3U);
    EXPECT_LE(pushesOf([&](auto const& port) { links ? device.linkDel(port) : device.costDel(*port); }),
              together ? 1U : 2U);
  }
}

TEST(LiveCost, OneObjectAtManyPaths) {
  constexpr std::size_t kMany = 20'000;
  Fixture::World world;
  WalkHarness harness;
  CountingRouter router;
  Kel::Ptr<Fixture::Chassis> const chassis(new Fixture::Chassis());
  world.dir()->entityIs("chassis", chassis);
  for (std::size_t i = 0; i < kMany; ++i) {
    auto info = Ondra::WalkInfo::WalkInfoIs(router, {}, Ondra::Path::strToPathIs("/copy" + std::to_string(i)),
                                            chassis.get(), kStreamSnapshot);
    Ondra::FullKelTypeWalker::walkObject(info);
  }
  router.pushes = 0;
  world.dir()->entityDel("chassis");
  EXPECT_EQ(router.pushes, kMany);
  EXPECT_FALSE(Ondra::notifieeMaps->pathOf(chassis.get()));
}

TEST_F(Live, NegativeAndUnknownIds) {
  Kel::Ptr<GifGnmiNotifiee> const notifiee =
      Kel::Ptr<GifGnmiNotifiee>(Ondra::notifieeMaps->find(Ondra::Path::strToPathIs("/fixture/device")));
  Kel::AttributeId const hostname = world.device()->fwkType().attr("hostname").id();
  notifiee->onAttribute(-hostname, nullptr);
  EXPECT_THAT(sent(), ElementsAre("/fixture/device update0 ( path:/hostname string_val:fixture ) "));
  for (Kel::AttributeId const id : {0, 12345, -12345, INT32_MIN, INT32_MAX})
    notifiee->onAttribute(id, nullptr);
  EXPECT_THAT(sent(), IsEmpty());
}

// More than are told in one go: the rest after the next change.
TEST_F(Live, TheLastOfManyChangesIsNotLost) {
  Device& device = *world.device();
  int left = 0;
  router.afterPush = [&] {
    if (left > 0) device.interfaceIs("eth0")->mtuIs(static_cast<std::uint32_t>(left--));
  };
  for (int const many : {3, 30, 2500}) {
    left = many;
    for (int again = 0; again < 4; ++again)
      device.hostnameIs(Kel::String(std::to_string(many + again)));
    EXPECT_EQ(left, 0);
    expectTruth(*world.dir());
  }
}

TEST_F(Live, EqualPathsAndManyNames) {
  // The same object under a second path: references keep the older one, and each path is told.
  Kel::Ptr<Fixture::Interface> const eth0 = world.device()->interfaceIs("eth0");
  auto info =
      Ondra::WalkInfo::WalkInfoIs(router, {}, Ondra::Path::strToPathIs("/copy"), eth0.get(), kStreamSnapshot);
  Ondra::FullKelTypeWalker::walkObject(info);
  router.texts.clear();
  eth0->mtuIs(77);
  EXPECT_THAT(sent(), ElementsAre("/fixture/device/interface[name=eth0] update0 ( path:/mtu uint_val:77 ) ",
                                  "/copy update0 ( path:/mtu uint_val:77 ) "));
  world.device()->uplinkIs(nullptr);
  world.device()->uplinkIs(eth0);
  EXPECT_THAT(sent().back(), testing::HasSubstr("string_val:/fixture/device/interface[name=eth0]"));
  Ondra::retire(Ondra::Path::strToPathIs("/fixture/device/interface[name=eth0]"));
  EXPECT_THAT(sent(), testing::Contains(testing::HasSubstr("/uplink/_ptr string_val:/copy ")));
  world.device()->interfaceDel("eth0");
  EXPECT_THAT(::testing::PrintToString(sent()), testing::HasSubstr("delete0 ( path:/copy )"));
}

// A notifiee that was switched off makes good what it has missed.
TEST_F(Live, SwitchedOnAgain) {
  Kel::Ptr<GifGnmiNotifiee> const notifiee =
      Kel::Ptr<GifGnmiNotifiee>(Ondra::notifieeMaps->find(Ondra::Path::strToPathIs("/fixture/device")));
  notifiee->hasNotificationActiveIs(false);
  world.device()->zoneLimitDel(Zone::Inside);
  world.device()->hostnameIs("meanwhile");
  world.device()->trustedIs("dora");
  world.device()->chassisDel();
  world.device()->linkDel(world.device()->interfaceIs("eth0"));
  EXPECT_THAT(sent(), ElementsAre(" delete0 ( path:/fixture/device/chassis ) "))
      << "the chassis was watched itself";
  notifiee->hasNotificationActiveIs(true);
  expectTruth(*world.dir());
  static_cast<void>(sent());
  notifiee->hasNotificationActiveIs(true);
  EXPECT_THAT(sent(), IsEmpty()) << "nothing has been missed";
}

// The flags of notification walks, and a walk that takes the watching down.
TEST_F(Live, UninstallingIsSilent) {
  auto info = Ondra::WalkInfo::WalkInfoIs(router, {}, pathOf(*world.device()), world.device().get(),
                                          Ondra::WalkerFlags(0xa1));
  Ondra::FullKelTypeWalker::walkObject(info);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(Ondra::notifieeMaps->atOrBelow(*pathOf(*world.device())).size(), 0U);
  world.device()->hostnameIs("unheard");
  EXPECT_THAT(sent(), IsEmpty());
}

} // namespace
