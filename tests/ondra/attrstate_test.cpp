// The states of watched attributes: one node per attribute and key, times that only move on.

#include <map>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

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

TEST_F(AttrState, FindsWhatIsEqual) {
  AttrStateMap map(nullptr);
  AttrStateNode const& whole = map.getAttrState(4, nullptr);
  AttrStateNode const& member = map.getAttrState(4, text("a"));
  EXPECT_NE(&whole, &member);
  long const stamped = member.effectiveTimestamp();
  Kel::activityManagerStatus()->activityLoopExecNsTimeInc(5);
  EXPECT_EQ(&map.getAttrState(-4, text("a")), &member) << "ids may come negative";
  EXPECT_EQ(member.effectiveTimestamp(), stamped) << "finding is no change";
  EXPECT_EQ(map.queryAttrState(4, text("b")), nullptr);
  EXPECT_EQ(map.queryAttrState(5, text("a")), nullptr);
  long const before = loopTime();
  EXPECT_FALSE(map.delAttrState(4, text("b")).has_value());
  EXPECT_EQ(loopTime(), before);
  EXPECT_EQ(map.delAttrState(4, text("a")), before + 1);
  EXPECT_EQ(map.size(), 1U);
  EXPECT_FALSE(AttrStateNode(4, nullptr) < AttrStateNode(4, text("a")));
  EXPECT_FALSE(AttrStateNode(4, text("a")) < AttrStateNode(4, nullptr));
  EXPECT_TRUE(AttrStateNode(4, text("a")) < AttrStateNode(4, text("b")));
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

TEST_F(AttrState, Texts) {
  AttrStateNode const node(world.device()->fwkType().attr("alias").id(), text("wan"));
  EXPECT_EQ(node.keyString(nullptr),
            fmt::format("[AttrStateNode for notifiee: ?, attrId: {}, gifKey: \"wan\"]", node.id()));
  EXPECT_EQ(
      node.stateString(notifiee.get()),
      fmt::format("[AttrStateNode for notifiee: /fixture/device, attr: alias, gifKey: \"wan\"]: timestamp={}",
                  node.effectiveTimestamp()));
  notifiee->attrStates().getAttrState(1, nullptr);
  EXPECT_EQ(notifiee->attrStates().dumpState(),
            "\n " + notifiee->attrStates().queryAttrState(1, nullptr)->stateString(notifiee.get()));
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
    auto const at = std::pair(id, name);
    switch (random() % 3) {
    case 0: {
      AttrStateNode const* const node = &map.getAttrState(id, key);
      auto const [known, made] = model.emplace(at, node);
      ASSERT_TRUE(made || known->second == node)
          << "seed " << seed << " step " << step << ": the node has moved";
      break;
    }
    case 1: {
      auto const known = model.find(at);
      ASSERT_EQ(map.queryAttrState(id, key), known == model.end() ? nullptr : known->second)
          << "seed " << seed << " step " << step;
      break;
    }
    default:
      ASSERT_EQ(map.delAttrState(id, key).has_value(), model.erase(at) == 1)
          << "seed " << seed << " step " << step;
    }
    ASSERT_EQ(map.size(), model.size()) << "seed " << seed << " step " << step;
  }
}

} // namespace
