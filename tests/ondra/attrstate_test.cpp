// The states of watched attributes: one node per attribute and key, times that only move on.

#include <map>
#include <random>

#include "Kel/ActivityClock.h"
#include "Kel/Attr.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/GifNotifiee.h"
#include "RecordingRouter.h"
#include "fixture/Populate.h"
#include "fixture/Types.h"

namespace {

using Ondra::AttrStateMap, Ondra::AttrStateNode;
using Handle = Kel::Ptr<Kel::GenericIf const>;

long loopTime() { return Kel::activityManagerStatus()->activityLoopExecNsTime(); }

class AttrState : public ::testing::Test {
protected:
  ~AttrState() override { Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees(); }

  Fixture::World world;
  RecordingRouter router;
  Kel::Ptr<Ondra::GifGnmiNotifiee> const notifiee{new Ondra::GifGnmiNotifiee(
      world.device().get(), Ondra::Path::strToPathIs("/fixture/device"), router, false, false)};
};

TEST_F(AttrState, TimesOnlyMoveOn) {
  AttrStateNode const node(3, nullptr);
  long const made = loopTime();
  EXPECT_EQ(node.effectiveTimestamp(), made);
  EXPECT_EQ(node.updatedTimestamp(), made + 1) << "a change is not stamped with the time that the node has";
  EXPECT_EQ(node.updatedTimestamp(), made + 2);
  EXPECT_EQ(loopTime(), made + 2);
  Kel::activityManagerStatus()->activityLoopExecNsTimeInc(10);
  EXPECT_EQ(node.advanceTimestamp(), made + 12) << "in a later loop pass the clock is not moved";
  EXPECT_EQ(loopTime(), made + 12);
}

TEST_F(AttrState, AreInTheOrderOfIdsThenOfKeys) {
  AttrStateNode const nodes[] = {{3, Kel::handleOf(9)}, {4, Kel::handleOf(1)}, {4, Kel::handleOf(2)}};
  for (int a = 0; a < 3; ++a)
    for (int b = 0; b < 3; ++b)
      EXPECT_EQ(nodes[a] < nodes[b], a < b) << a << " " << b;
  AttrStateNode const whole(4, nullptr);
  EXPECT_FALSE(whole < nodes[1] || nodes[1] < whole || whole < whole);
}

TEST_F(AttrState, KeysAreDetached) {
  AttrStateMap& map = notifiee->attrStates();
  Kel::KelAttr const costs = world.device()->fwkType().attr("cost");
  Kel::KelAttr const links = world.device()->fwkType().attr("link");
  Kel::Ptr<Fixture::Interface> const eth0 = world.device()->interfaceIs("eth0");
  Handle const strong = Kel::handleTo(eth0);
  AttrStateNode const& cost = map.getAttrState(costs.id(), strong);
  EXPECT_EQ(&map.getAttrState(costs.id(), Kel::GenericIf::weak(*eth0)), &cost);
  EXPECT_EQ(cost.key()->object(), eth0.get());
  Handle const wrapped = links.genericIfIteratorConst(Kel::handleTo(world.device())).key();
  AttrStateNode const& link = map.getAttrState(links.id(), wrapped);
  EXPECT_TRUE(link.key()->type().isEntity()) << "of a wrapper the reference";
  std::uint32_t const held = eth0->refCount();
  EXPECT_TRUE(map.delAttrState(costs.id(), strong));
  EXPECT_EQ(map.queryAttrState(costs.id(), strong), nullptr);
  EXPECT_EQ(map.queryAttrState(links.id(), wrapped), &link);
  EXPECT_EQ(map.size(), 1U);
  EXPECT_EQ(eth0->refCount(), held) << "a state does not keep the object of its key alive";
}

// Of small collections and of those that are spread over many tables.
TEST_F(AttrState, OfManyMembersStayWhereTheyAre) {
  AttrStateMap map(nullptr);
  std::map<int, AttrStateNode const*> made;
  for (int key = 0; key < 5000; ++key) {
    made[key] = &map.getAttrState(7, Kel::handleOf(key));
    if (key % 3 != 0) continue;
    EXPECT_TRUE(map.delAttrState(7, Kel::handleOf(key / 2)) || made.count(key / 2) == 0);
    made.erase(key / 2);
  }
  for (int key = 0; key < 5000; ++key)
    ASSERT_EQ(map.queryAttrState(7, Kel::handleOf(key)), made.count(key) == 0 ? nullptr : made[key]) << key;
  EXPECT_EQ(map.size(), made.size());
  EXPECT_EQ(map.keysOf(7).size(), made.size());
}

// However they are stored: all the same, all but one, in an array, or in nodes.
TEST_F(AttrState, OfSingularAttributesAreWhatATableSays) {
  for (std::uint32_t seed = 1; seed <= 200; ++seed) {
    std::mt19937 random(seed);
    AttrStateMap map(notifiee.get());
    std::map<std::size_t, long> table; // by position
    long kept = 0;
    for (int step = 0; step < 60; ++step) {
      std::size_t const at = random() % 4;
      Kel::AttributeId const id = notifiee->objectType().attrAt(at).id();
      std::uint64_t const mask = 1 + random() % 15;
      auto const known = table.find(at);
      switch (random() % (seed % 2 == 0 ? 8 : 5)) { // nodes are asked for in every second
      case 0: Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1); break;
      case 1: {
        long const before = known == table.end() ? 0 : known->second;
        long const changed = map.changedTimestamp(id, nullptr);
        ASSERT_GT(changed, before) << "seed " << seed;
        ASSERT_EQ(changed, loopTime()) << "seed " << seed;
        table[at] = changed;
        break;
      }
      case 2: ASSERT_EQ(map.timestampOf(id, nullptr), table.emplace(at, loopTime()).first->second); break;
      case 3: {
        long const common = map.commonTimestamp(mask);
        for (std::size_t of = 0; of < 4; ++of)
          ASSERT_TRUE(common == 0 || ((mask >> of) & 1) == 0 ||
                      table.emplace(of, common).first->second == common)
              << "seed " << seed;
        break;
      }
      case 4:
        if (long const now = loopTime(); map.keep(now)) kept = now;
        break;
      case 5: ASSERT_EQ(map.delAttrState(id, nullptr).has_value(), table.erase(at) > 0) << seed; break;
      case 6: table[at] = map.getAttrState(id, nullptr).advanceTimestamp(); break;
      default: ASSERT_EQ(map.has(id, nullptr), known != table.end()) << "seed " << seed;
      }
      for (std::size_t of = 0; of < 4; ++of)
        ASSERT_EQ(map.singularTimestamp(of), table.count(of) == 0 ? 0 : table[of])
            << "seed " << seed << ", step " << step << ", position " << of;
      ASSERT_EQ(map.keepsTime() ? map.keptTime() : 0, kept) << "seed " << seed;
    }
    ASSERT_EQ(map.size(), table.size()) << "seed " << seed;
  }
}

} // namespace
