// The registry of the watched objects, and what each fatal message guards.
#include <random>

#include "Ondra/GifNotifiee.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/PathTypes.h"
#include "Ondra/live/KelTypeNotifWalker.h"
#include "WalkHarness.h"
#include "fixture/Observer.h"
#include "fixture/Populate.h"
#include "ondra/assertion.h"

namespace {

using Ondra::GifGnmiNotifiee, Ondra::notifieeMaps, Ondra::Path, testing::IsEmpty;
using testing::UnorderedElementsAre;

class Notifiee : public ::testing::Test {
protected:
  ~Notifiee() override { Ondra::pathTypesMap.reset(); }
  Kel::Ptr<GifGnmiNotifiee> watch(Kel::PtrInterface const* object, std::string const& path,
                                  bool first = false, bool second = false) {
    return Kel::Ptr<GifGnmiNotifiee>(
        new GifGnmiNotifiee(object, Path::strToPathIs(path), router, first, second));
  }

  Fixture::World world;
  WalkHarness harness;
  RecordingRouter router;
};

// Random paths over few names and keys, against a plain list.
TEST_F(Notifiee, FindsWhatLiesAtOrBelow) {
  std::uint32_t const seed = 3;
  std::mt19937 random(seed);
  std::set<std::string> model;
  auto const randomPath = [&random] {
    std::string path;
    for (std::size_t left = 1 + random() % 4; left > 0; --left)
      path += std::array{"/a", "/b", "/a[k=1]", "/a[k=12]", "/a[k=1][l=2]", "/a[l=2]"}[random() % 6];
    return path;
  };
  for (int step = 0; step < 2000; ++step) {
    std::string const path = Path::strToPathIs(randomPath())->toString();
    if (random() % 3 != 0) {
      watch(world.device().get(), path);
      model.insert(path);
    } else {
      bool const watched = Ondra::retire(Path::strToPathIs(path));
      auto const below = [&path](std::string const& other) {
        return other == path || other.starts_with(path + "/");
      };
      ASSERT_EQ(watched, std::erase_if(model, below) > 0)
          << "seed " << seed << " step " << step << " " << path;
    }
    ASSERT_EQ(GifGnmiNotifiee::notifieeMapSize(), model.size()) << "seed " << seed << " step " << step;
  }
  std::set<std::string> left;
  notifieeMaps->forEach([&left](GifGnmiNotifiee const& notifiee) {
    left.insert(notifiee.prefixPath()->toString());
    EXPECT_EQ(notifieeMaps->find(notifiee.prefixPath()), &notifiee);
  });
  EXPECT_EQ(left, model);
}

TEST_F(Notifiee, RecordsTheTypesOfWhatDirectoriesHold) {
  Ondra::pathTypesMap = Ondra::pathToTypeFactory("types");
  harness.walked(router, *world.dir(), Ondra::flagStream);
  auto const recorded = [] {
    std::vector<std::string> out;
    for (auto const& [path, type] : Ondra::pathTypesMap->pathTypes())
      out.push_back(path.str() + " " + type.str());
    return out;
  };
  EXPECT_THAT(recorded(), UnorderedElementsAre("/fixture/device Device", "/fixture/rack Rack",
                                               "/fixture/shelf/spare Interface"));
  EXPECT_THAT(GifGnmiNotifiee::dumpPathTypesMap(), testing::HasSubstr("path:/fixture/rack typeName:Rack\n"));
  Ondra::pathTypesMap->pathTypesIs("/else", "Thing"); // somebody else's
  std::vector<std::string> told;
  Kel::Ptr<Fixture::Observer> const observer(
      new Fixture::Observer(Ondra::pathTypesMap.get(), [&](auto const& text) { told.push_back(text); }));
  world.dir()->entityDel("device");
  EXPECT_THAT(recorded(),
              UnorderedElementsAre("/fixture/rack Rack", "/fixture/shelf/spare Interface", "/else Thing"));
  GifGnmiNotifiee::clearAllGnmiNotifiees();
  EXPECT_THAT(recorded(), UnorderedElementsAre("/else Thing"));
  Ondra::pathTypesMap->pathTypesIs("/else", "Thing"); // which it is
  EXPECT_EQ(Ondra::pathTypesMap->pathTypesDel("/absent"), "");
  EXPECT_THAT(told, UnorderedElementsAre("pathTypes[\"/fixture/device\"]", "pathTypes[\"/fixture/rack\"]",
                                         "pathTypes[\"/fixture/shelf/spare\"]"));
  Ondra::pathTypesMap->pathTypesDelAll();
  EXPECT_EQ(told.back(), "pathTypes[\"/else\"]");
  EXPECT_THAT(recorded(), IsEmpty());
}

// Whatever observers of the types do: a path has a type while an object of that type is watched there.
TEST_F(Notifiee, TypesOfPathsThatAreTakenOver) {
  Kel::Ptr<Kel::Entity> const device = world.device(), rack = world.rack(), spare = world.spare();
  auto const types = [&] { return Ondra::pathTypesMap->pathTypes().lookup("/p"); };
  // What is done at the first entry, or at its end; what stands at the path afterwards.
  std::vector<std::tuple<char const*, std::function<void()>, Kel::Entity const*>> const cases{
      {"nothing", [] {}, rack.get()},
      {"throws", [] { throw std::runtime_error("rude"); }, rack.get()},
      {"registers another", [&] { watch(spare.get(), "/p"); }, spare.get()},
      {"registers a directory", [&] { watch(world.dir().get(), "/p"); }, world.dir().get()},
      {"ends the path", [] { Ondra::retire(Path::strToPathIs("/p")); }, nullptr},
      {"drops the registry", [&] { Ondra::pathTypesMap = Ondra::pathToTypeFactory("new"); }, rack.get()},
      {"removes the object", [&] { world.dir()->entityDel("rack"); }, nullptr},
  };
  for (auto const& [what, react, wanted] : cases) {
    SCOPED_TRACE(what);
    Ondra::pathTypesMap = Ondra::pathToTypeFactory("types");
    std::vector<std::string> told;
    bool reacted = true;
    std::function<void()> const reaction = react;
    Kel::Ptr<Fixture::Observer> const observer(
        new Fixture::Observer(Ondra::pathTypesMap.get(), [&](std::string const&) {
          told.push_back(types() == nullptr ? "" : types()->value.str());
          if (!std::exchange(reacted, true)) reaction();
        }));
    watch(device.get(), "/p");
    watch(device.get(), "/p"); // the same type
    watch(world.dir().get(), "/p");
    watch(device.get(), "/p");
    EXPECT_THAT(told, testing::ElementsAre("Device", "", "Device"));
    reacted = false;
    Kel::Ptr<GifGnmiNotifiee> const taken = watch(rack.get(), "/p");
    auto const standing = [] { return notifieeMaps->find(Path::strToPathIs("/p")); };
    Kel::Ptr<GifGnmiNotifiee> const stands(standing());
    EXPECT_EQ(stands ? stands->notifier() : nullptr, wanted);
    EXPECT_EQ(taken->isRegistered(), stands == taken);
    bool const recorded =
        stands && !stands->objectType().isDir() && observer->notifier() == Ondra::pathTypesMap.get();
    EXPECT_EQ(types() == nullptr ? "" : types()->value, recorded ? stands->objectType().name() : "");
    // The same reaction to the end of the entry.
    reacted = wanted == nullptr;
    Ondra::retire(Path::strToPathIs("/p"));
    EXPECT_EQ(types() != nullptr, standing() != nullptr && !standing()->objectType().isDir());
    reacted = true;
    GifGnmiNotifiee::clearAllGnmiNotifiees();
  }
}

// First the delete, while all is as it was; then the type's entry; then nothing is there any more.
TEST_F(Notifiee, TheOrderOfAnEnd) {
  Ondra::pathTypesMap = Ondra::pathToTypeFactory("types");
  Kel::Ptr<Path const> const path = Path::strToPathIs("/fixture/device");
  std::vector<std::string> steps;
  auto const step = [&](std::string const& what) {
    steps.push_back(fmt::format("{}: type {} watched {} parked {}", what,
                                Ondra::pathTypesMap->pathTypes().lookup("/fixture/device") != nullptr,
                                notifieeMaps->find(path) != nullptr,
                                Ondra::FullKelTypeWalker::pathWalkIdMapSize() > 0));
  };
  struct Steps final : Ondra::BaseRouter {
    bool push(Ondra::SyncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>&) override {
      if (step) (*step)("delete");
      if (step) throw std::runtime_error("rude");
      return false;
    }
    std::function<void(std::string const&)> const* step = nullptr;
  } rude;
  WalkHarness::Walk parked = harness.start(rude, *world.device(), Ondra::flagStream | Ondra::flagSnapshot);
  WalkHarness::slice(parked);
  std::function<void(std::string const&)> const called = step;
  rude.step = &called;
  Kel::Ptr<Fixture::Observer> const observer(
      new Fixture::Observer(Ondra::pathTypesMap.get(), [&](std::string const&) { step("type"); }));
  std::int64_t const before = Kel::activityManagerStatus()->activityLoopExecNsTime();
  world.dir()->entityDel("device");
  step("end");
  EXPECT_THAT(steps, testing::ElementsAre("delete: type true watched true parked true",
                                          "type: type false watched true parked true",
                                          "end: type false watched false parked false"));
  EXPECT_EQ(Kel::activityManagerStatus()->activityLoopExecNsTime(), before + 1) << "one step of the clock";
  rude.step = nullptr;
  WalkHarness::finish(parked);
}

TEST_F(Notifiee, TheEndOfAnObjectForcesADelete) {
  Kel::Ptr<Fixture::Chassis> lone(new Fixture::Chassis()); // nobody is told of its removal but itself
  lone->hasNotificationActiveIs(true);
  Kel::Ptr<GifGnmiNotifiee> const notifiee = watch(lone.get(), "/lone");
  notifiee->hasNotificationActiveIs(true);
  watch(world.device().get(), "/lone/below");
  std::int64_t const before = Kel::activityManagerStatus()->activityLoopExecNsTime();
  lone.reset();
  EXPECT_THAT(router.texts, testing::ElementsAre(
                                fmt::format("0:0 timestamp:{} prefix: delete0 ( path:/lone ) ", before + 1)));
  EXPECT_EQ(GifGnmiNotifiee::notifieeMapSize(), 0U);
  EXPECT_EQ(notifiee->object(), nullptr);
  notifiee->onAttribute(1, nullptr); // somebody holds it still: it is mute

  Kel::Ptr<Fixture::Neighbor> quiet(new Fixture::Neighbor()); // of a type whose end is not told
  quiet->hasNotificationActiveIs(true);
  watch(quiet.get(), "/quiet")->hasNotificationActiveIs(true);
  quiet.reset();
  EXPECT_EQ(router.texts.size(), 1U);
  EXPECT_EQ(GifGnmiNotifiee::notifieeMapSize(), 0U);
}

TEST_F(Notifiee, AnotherObjectAtThePath) {
  Kel::Ptr<Path const> const path = Path::strToPathIs("/p");
  auto const setUp = [&](Kel::PtrInterface const* object, Ondra::WalkerFlags flags) {
    auto info = Ondra::WalkInfo::WalkInfoIs(router, {}, path, object, flags);
    return Ondra::setUpGifNotifiee(info);
  };
  EXPECT_EQ(setUp(world.device().get(), Ondra::flagInstantiatingOnly), nullptr) << "none is made";
  Kel::Ptr<GifGnmiNotifiee> const first = setUp(world.device().get(), Ondra::WalkerFlags(0x23));
  EXPECT_EQ(first->notifFlags().bits(), 0x2e) << "whatever the flags of the walk";
  EXPECT_EQ(watch(world.device().get(), "/mute", true, true)->notifFlags().bits(), 0x63);
  Ondra::retire(Path::strToPathIs("/mute"));
  router.clear();
  EXPECT_EQ(setUp(world.device().get(), Ondra::flagStream), first);
  watch(world.rack().get(), "/p/below");
  Kel::Ptr<GifGnmiNotifiee> const second = setUp(world.spare().get(), Ondra::flagStream);
  EXPECT_NE(second, first);
  EXPECT_EQ(Ondra::KelGnmiUtils::lookupGnmiNotifieeMap(path), second);
  EXPECT_EQ(GifGnmiNotifiee::notifieeMapSize(), 1U);
  EXPECT_THAT(router.texts, testing::ElementsAre(testing::HasSubstr("delete0 ( path:/p ) ")));
  first->onZeroReferences(); // not its path any more
  EXPECT_EQ(Ondra::KelGnmiUtils::lookupGnmiNotifieeMap(path), second);
}

TEST_F(Notifiee, FatalMessages) {
  std::string const handler = "OndraGifGnmiNotifiee: ";
  EXPECT_EQ(assertionIn([&] { watch(world.device().get(), ""); }), handler + "prefixPath_ cannot be empty!");
  Kel::Ptr<GifGnmiNotifiee> const notifiee = watch(world.device().get(), "/gone");
  Ondra::retire(notifiee->prefixPath());
  EXPECT_EQ(assertionIn([&] { notifiee->onZeroReferences(); }),
            handler + "could not find prefixPath /gone in gNmiNotifieeMap");
  Ondra::WalkScope const walking;
  EXPECT_EQ(assertionIn([] { GifGnmiNotifiee::clearAllGnmiNotifiees(); }),
            handler + "notifiees cannot be cleared inside a walk");
  Kel::Ptr<GifGnmiNotifiee> const again = watch(world.device().get(), "/device");
  Ondra::KelTypeNotifWalker walker(again->prefixPath(), *again, again->object(), Path::PathIs(), router,
                                   world.device()->fwkType().attr("chassis").id(), nullptr,
                                   Ondra::WalkerFlags(0xae));
  EXPECT_EQ(assertionIn([&] { walker.walk(); }),
            "OndraKelTypeNotifWalker: Uninstalling a GifGnmiNotifiee should not trigger a new walk");
}

} // namespace
