// The parts of the full walker: keys, pushes, modes, and what each fatal message guards.
#include <gmock/gmock.h>

#include "Kel/TypeBuilder.h"
#include "WalkHarness.h"
#include "WalkerProbe.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"
#include "fixture/Types.h"
#include "ondra/hostile_model.h"

namespace {

using Kel::handleOf, Ondra::FullKelTypeWalker, Ondra::KelKey, Ondra::Path, Ondra::SyncId, Ondra::WalkId;
using Ondra::WalkInfo, Ondra::WalkQ, Ondra::WalkResult, Ondra::WalkTask, testing::StartsWith;
using Handle = Kel::Ptr<Kel::GenericIf const>;

constexpr Ondra::SyncWalkId kId(SyncId(1), WalkId(7));

bool bundling() { return Ondra::toggleOndraSyncBundlingEnabled(); }
class Walker : public testing::Test {
protected:
  Fixture::World world;
  WalkHarness harness;
  RecordingRouter router;
};

// A member that no client can write as a leaf stands below an element of its own, if its key is structured.
TEST(KelKeyTest, GoesOntoThePathOfTheMember) {
  Fixture::declareTypes();
  Kel::TypeBuilder builder("walker-test", "Vault", Kel::TypeKind::Entity);
  builder.keyed("secret", Kel::typeOf<Fixture::AddrKey>(), Kel::builtinType(Kel::BuiltinKind::Bytes));
  Kel::KelAttr const secret = builder.done().value().attr("secret");
  KelKey structured;
  static_cast<void>(structured.updateTypeAndGenKey(secret, secret.keyType()));
  structured.mapInsert("vrf", "a", nullptr);
  Kel::Ptr<Path> const shared = Path::strToPathIs("/secret");
  Kel::Ptr<Path> member = Path::makePath(shared);
  structured.updateAndStorePrefix(member, false, secret);
  EXPECT_EQ(member->toString() + shared->toString(), "/secret[vrf=a]/secretValue/secret");
}

TEST_F(Walker, FindsMembersOfEveryKindOfKeyWhenItLooksForEntitiesOnly) {
  Hostile::World const hostile({});
  Hostile::Host& host = *hostile.host;
  host.roomIs({"r"});
  host.guestIs("g")->only = Kel::Ptr(new Hostile::Room());
  for (Hostile::Collision const& kind : Hostile::collisions()) { // entities under structured keys
    Kel::Ptr<Kel::Entity> const box(static_cast<Kel::Entity*>(kind.type.genericIf(Kel::ArgList())->object()));
    hostile.dir->entityIs(kind.kind, box);
    kind.type.attr("oddPlaceEntity")
        .genericIfSet(Kel::GenericIf::toObject(static_cast<Kel::PtrInterface*>(box.get())),
                      handleOf(Hostile::PlaceKey{"a", {"b"}}), Kel::ArgList());
  }
  auto walk = harness.walked(router, *hostile.dir, Ondra::flagStream);
  std::size_t const watched = Fixture::entitiesBeneath(hostile.dir).size();
  ASSERT_EQ(Ondra::GifGnmiNotifiee::notifieeMapSize(), watched);
  EXPECT_EQ(router.pushes(), 0U) << "a stream without a snapshot says nothing";
  EXPECT_TRUE(walk.task->doneStreaming);
  EXPECT_EQ(WalkerProbe("/hostile", router, nullptr, Ondra::flagInstantiatingOnly | Ondra::flagNoPause)
                .walk(nullptr),
            WalkResult::Success);
  EXPECT_EQ(Ondra::GifGnmiNotifiee::notifieeMapSize(), 0U);
  EXPECT_EQ(router.pushes(), watched) << "each is ended by itself, from below";
}

// Those of the response side are with its tests.
TEST_F(Walker, FatalMessages) {
  Handle const five = handleOf(std::uint8_t{5});
  RecordingRouter recorder;
  harness.walked(recorder, *world.device(), Ondra::flagStream);
  auto other = harness.start(recorder, *world.device(), Ondra::flagSnapshot);
  std::shared_ptr<WalkInfo> info =
      WalkInfo::WalkInfoIs(router, kId, Path::strToPathIs("/p"), world.device().get(), {});
  WalkQ noTask(kId, WalkQ::inWalkMap);
  std::string const prefix = "/fixture/device";
  auto const probe = [&](WalkQ* queue) { return std::make_unique<WalkerProbe>(prefix, router, queue); };
  WalkerProbe walker(prefix, router, nullptr);
  Kel::Ptr<Path> path = Path::strToPathIs("/k");
  KelKey value;
  auto [untimed, notification] = Ondra::ArenaRespMsg::createResponse(path, 0);

  std::pair<std::string, std::function<void()>> const cases[] = {
      {"OndraKelGnmiUtils: Unrecognized request type:3",
       [] { static_cast<void>(Ondra::KelGnmiUtils::requestTypeToFlags(Ondra::RequestType{3})); }},
      {"OndraWalker: 4 not a valid value",
       [] { static_cast<void>(Ondra::walkResultToStringView(WalkResult{4})); }},
      {"OndraWalker: !keyMap_.empty() && \"keyMap_ is empty\"",
       [&] { static_cast<void>(value.gnmiKeyName(path)); }},
      {"OndraWalker: keyMap().size() == 1 && \"Expected map size of 1\"",
       [&] { value.updateAndStorePrefix(path, true, Kel::KelAttr()); }},
      {"OndraWalker: No IR to extract value", [&] { walker.extractBuiltin(five, path, value, nullptr); }},
      {"OndraWalker: walk with a gif_ == nullptr! prefixPath_:/nowhere leafPath_:",
       [&] { WalkerProbe("/nowhere", router, nullptr).walk(nullptr); }},
      {bundling() ? "OndraWalker: ir_ is null" : "none",
       [&] { WalkerProbe(prefix, router, nullptr, Ondra::flagSnapshot, nullptr); }},
      {"OndraWalker: walkId 0 cannot be added to walkQ",
       [&] { FullKelTypeWalker::addToWalkQ(probe(nullptr)); }},
      {"OndraWalker: walkQ does not have a task", [&] { FullKelTypeWalker::addToWalkQ(probe(&noTask)); }},
      {"OndraWalker: Expected walker->gif_ to be null!",
       [&] {
         noTask.addWalker(probe(&noTask));
         static_cast<void>(FullKelTypeWalker::popWalkQ(noTask));
       }},
      {"OndraWalkTask: cannot walk a nullptr",
       [&] { static_cast<void>(WalkInfo::WalkInfoIs(router, kId, path, nullptr, {})); }},
      {"OndraWalkTask: TaskScheduler required to construct WalkTask",
       [&] { static_cast<void>(WalkTask::WalkTaskIs(nullptr, info, Tovak::TaskPriority::normal)); }},
      {"OndraWalkTask: constructing a WalkTask with a WalkInfo that already has a task",
       [&] { ControlledTask(other.task->scheduler(), other.info, Tovak::TaskPriority::normal); }},
      {"OndraWalker: resuming walk for a walkInfo without a task",
       [&] { FullKelTypeWalker::resumeWalk(info); }},
      {"OndraWalker: cancelling a pending walk for a WalkInfo without a task",
       [&] { FullKelTypeWalker::cancelPendingWalk(info); }},
      {"OndraWalker: 0 timestamps are not allowed. resp:",
       [&, &untimed = untimed] { walker.routerPush(untimed); }},
      {bundling() ? "none" : "OndraWalker: bundling not enabled", [&] { walker.routerPush(false); }},
  };
  for (auto const& [message, run] : cases)
    EXPECT_THAT(assertionIn(run), StartsWith(message));
  other.info->task.reset();
}

} // namespace
