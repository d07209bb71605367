// The states of watched attributes: one node per attribute and key, times that only move on.

#include <random>

#include "Kel/ActivityClock.h"
#include "Kel/Attr.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/GifNotifiee.h"
#include "RecordingRouter.h"
#include "fixture/Populate.h"
#include "fixture/Types.h"

namespace {

using Kel::handleOf;
using Ondra::AttrStateMap;
using Ondra::AttrStateNode;
using Handle = Kel::Ptr<Kel::GenericIf const>;

long loopTime() { return Kel::activityManagerStatus()->activityLoopExecNsTime(); }

Handle text(char const* t) { return handleOf(Kel::String(t)); }

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

TEST_F(AttrState, KeysAreDetached) {
  AttrStateMap& map = notifiee->attrStates();
  Kel::KelAttr const costs = world.device()->fwkType().attr("cost");
  Kel::KelAttr const links = world.device()->fwkType().attr("link");
  Kel::Ptr<Fixture::Interface> const eth0 = world.device()->interfaceIs("eth0");
  Handle const strong = Kel::GenericIf::toObject(static_cast<Kel::PtrInterface*>(eth0.get()));
  AttrStateNode const& cost = map.getAttrState(costs.id(), strong);
  EXPECT_EQ(&map.getAttrState(costs.id(), Kel::GenericIf::weak(*eth0)), &cost);
  EXPECT_EQ(cost.key()->object(), eth0.get());
  Handle const wrapped = links
                             .genericIfIteratorConst(Kel::GenericIf::toObject(
                                 static_cast<Kel::PtrInterface const*>(world.device().get())))
                             .key();
  AttrStateNode const& link = map.getAttrState(links.id(), wrapped);
  EXPECT_TRUE(link.key()->type().isEntity()) << "of a wrapper the reference";
  std::uint32_t const held = eth0->refCount();
  static_cast<void>(map.delAttrState(costs.id(), strong));
  EXPECT_EQ(eth0->refCount(), held) << "a state does not keep the object of its key alive";
}

// Against a std::map, for the nodes in the array and those found by hash, with ids that the type does not have too.
TEST_F(AttrState, IsAMap) {
  std::uint32_t const seed = 11;
  std::mt19937 random(seed);
  std::map<std::pair<int, std::string>, AttrStateNode const*> model;
  AttrStateMap& map = notifiee->attrStates();
  for (int step = 0; step < 20'000; ++step) {
    int const id = static_cast<int>(random() % 200);
    std::string const name = random() % 3 == 0 ? "" : std::to_string(random() % 20);
    Handle const key = name.empty() ? nullptr : text(name.c_str());
    SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
    auto const known = model.find(std::pair(id, name));
    AttrStateNode const* const expected = known == model.end() ? nullptr : known->second;
    switch (random() % 3) {
    case 0: {
      AttrStateNode const* const node = &map.getAttrState(id, key);
      ASSERT_TRUE(expected == nullptr || expected == node) << "the node has moved";
      model[{id, name}] = node;
      break;
    }
    case 1: ASSERT_EQ(map.queryAttrState(id, key), expected); break;
    default: ASSERT_EQ(map.delAttrState(id, key).has_value(), expected != nullptr); model.erase({id, name});
    }
    ASSERT_EQ(map.size(), model.size());
  }
}

} // namespace
