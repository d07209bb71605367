// References as path texts.

#include "Kel/Declare.h"
#include "Kel/TypeBuilder.h"
#include "Kstd/Utf8.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/PtrResolution.h"
#include "WalkHarness.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"

namespace {

using Ondra::getPtrPathStr, Ondra::GifGnmiNotifiee;

Kel::Ptr<Kel::GenericIf const> refTo(Kel::Entity const* entity) {
  return Kel::GenericIf::toObject(static_cast<Kel::PtrInterface const*>(entity));
}

class PtrResolution : public ::testing::Test {
protected:
  std::string textOf(Kel::Entity const* entity) { return getPtrPathStr(refTo(entity), router); }
  [[nodiscard]] static bool isWatched(char const* path) {
    return Ondra::notifieeMaps->find(Ondra::Path::strToPathIs(path)) != nullptr;
  }

  Fixture::World world;
  WalkHarness harness;
  RecordingRouter router;
};

TEST_F(PtrResolution, WhereTheWalkBegins) {
  Fixture::Device& device = *world.device();
  EXPECT_EQ(textOf(device.chassis.get()), "/fixture/device/chassis") << "the grandparent is a directory";
  EXPECT_TRUE(isWatched("/fixture/device"));
  EXPECT_FALSE(isWatched("/fixture")) << "the parent was walked, not the directory";
  EXPECT_FALSE(isWatched("/fixture/rack"));
  EXPECT_EQ(textOf(world.spare().get()), "/fixture/shelf/spare")
      << "the parent is a directory: that is walked";
  EXPECT_TRUE(isWatched("/fixture/shelf"));
  std::size_t const watched = GifGnmiNotifiee::notifieeMapSize();
  EXPECT_EQ(textOf(device.interfaces.find("lag/1")), "/fixture/device/interface[name=lag/1]");
  EXPECT_EQ(textOf(device.chassis->fan.get()), "/fixture/device/chassis/fan");
  EXPECT_EQ(GifGnmiNotifiee::notifieeMapSize(), watched) << "known from the first walk";
  device.interfaceIs("late"); // the device is watched: it is walked at once
  EXPECT_EQ(textOf(device.interfaces.find("late")), "/fixture/device/interface[name=late]");
  Kel::Ptr<Fixture::Chassis> const atTheTop(new Fixture::Chassis());
  Kel::globalDir()->entityIs("top", atTheTop);
  EXPECT_EQ(textOf(atTheTop.get()), "/top") << "the root directory has no path: the object itself is walked";
  Kel::globalDir()->entityDel("top");
  EXPECT_FALSE(isWatched("/top"));
}

// Whatever the keys are, the text of an object's full name is that of the path under which it is published.
TEST_F(PtrResolution, FullNamesLeadBackToTheirObjects) {
  static Kel::KelType const holderType = [] {
    Kel::TypeBuilder builder("test", "RouteHolder", Kel::TypeKind::Entity);
    builder.instantiating("of", Kel::typeOf<Fixture::RouteKey>(), Kel::typeOf<Fixture::Optics>());
    return builder.done().value();
  }();
  Kel::Ptr<Kel::GenericIf> const holder = holderType.genericIf(Kel::ArgList());
  world.dir()->entityIs("holder ]\\..*", Kel::Ptr<Kel::Entity>(dynamic_cast<Kel::Entity*>(holder->object())));
  std::mt19937 random(31);
  std::vector<std::string> keys{"",     "[",     "]",   "\\",  "\\]",
                                "][",   "a[b]c", "a/b", "a=b", "__",
                                "\\__", "___",   "/",   "x\\", std::string("\0", 1),
                                "\xff"};
  for (int i = 0; i < 100; ++i) {
    std::string key;
    for (std::size_t size = random() % 6; key.size() < size;)
      key += "[]\\/=_a\xc3"[random() % 8];
    keys.push_back(key);
  }
  std::size_t objects = 0;
  for (std::string const& key : keys) {
    auto const interface = world.device()->interfaceIs(key);
    interface->unitIs(1);
    interface->laneIs(Fixture::Zone::Dmz);
    holderType.attr("of").genericIfSet(holder, Kel::handleOf(Fixture::RouteKey{{1, 2}, key}), Kel::ArgList());
  }
  for (Kel::Entity const* root :
       {static_cast<Kel::Entity*>(world.device()->chassis.get()), world.rack().get()})
    static_cast<void>(textOf(root));
  for (auto const& entity : Fixture::entitiesBeneath(world.dir())) {
    Kel::Ptr<Ondra::Path const> const published = Ondra::notifieeMaps->pathOf(entity.get());
    if (!published) continue;
    ++objects;
    EXPECT_TRUE(published->isEqual(pathOf(*entity)))
        << entity->fullName().view() << " is published as " << published->toString();
  }
  auto const sent =
      std::count_if(keys.begin(), keys.end(), [](std::string const& key) { return Kstd::isUtf8(key); });
  EXPECT_GT(objects, 2 * static_cast<std::size_t>(sent));
}

TEST_F(PtrResolution, WhatHasNoPlace) {
  EXPECT_EQ(getPtrPathStr(nullptr, router), "nullptr");
  EXPECT_EQ(getPtrPathStr(Kel::handleOf(Kel::String("no reference")), router), "nullptr");
  Kel::Ptr<Fixture::Interface> const loose(new Fixture::Interface());
  EXPECT_EQ(textOf(loose.get()), "nullptr");
  EXPECT_EQ(textOf(loose->unitIs(1).get()), "nullptr") << "its parent has none";
  Kel::Ptr<Fixture::Interface> const removed = world.device()->interfaceIs("eth1");
  EXPECT_EQ(textOf(removed.get()), "/fixture/device/interface[name=eth1]");
  world.device()->interfaceDel("eth1");
  EXPECT_EQ(textOf(removed.get()), "nullptr") << "an orphan";
  Kel::Ptr<Kel::GenericIf const> const weak =
      Kel::GenericIf::weak(*Kel::Ptr<Fixture::Interface>(new Fixture::Interface()));
  EXPECT_EQ(getPtrPathStr(weak, router), "nullptr") << "gone";
  EXPECT_EQ(textOf(world.dir()->entry("device").get()), "nullptr") << "a directory's own record";
}

// Collections keyed by members of each other: no path of theirs can be told to its end.
class Port final : public Kel::EntityOf<Port> {};
class Board final : public Kel::EntityOf<Board> {
public:
  Kel::Ptr<Port> portIs(Port const& other) { return memberIs(ports, Kel::RefTo<Port>(other)); }
  Kel::KeyedEntities<Kel::RefTo<Port>, Port> ports;
};

TEST_F(PtrResolution, ResolutionsEnd) {
  static bool const declared = [] {
    Kel::entityType<Port>("Port", "ptr-test").done();
    Kel::entityType<Board>("Board", "ptr-test").instantiating("port", &Board::ports).done();
    return true;
  }();
  ASSERT_TRUE(declared);
  std::vector<Kel::Ptr<Board>> boards;
  Kel::Ptr<Port> last(new Port());
  for (int i = 0; i < 200;
       ++i) { // each keyed by the port on the board made before: a chain through ever new roots
    boards.emplace_back(new Board());
    last = boards.back()->portIs(*last);
  }
  boards.front()->portIs(*last); // and back to the beginning
  for (std::size_t i = boards.size(); i-- > 0;)
    world.dir()->dirIs(fmt::format("slot{:03}", i))->entityIs("board", boards[i]);
  harness.walked(router, *world.dir(), Ondra::flagStream | Ondra::flagSnapshot);
  EXPECT_NE(textOf(last.get()), "nullptr");
  for (auto const& board : boards)
    EXPECT_TRUE(Ondra::notifieeMaps->pathOf(board.get()));
}

} // namespace
