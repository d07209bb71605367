// What a printer that throws costs a walk, and which roads a walk takes.
#include <stdexcept>

#include <gmock/gmock.h>

#include "Kel/Error.h"
#include "Kel/TypeBuilder.h"
#include "Ondra/IR.h"
#include "Tovak/Trace.h"
#include "Tovak/TraceSink.h"
#include "WalkHarness.h"
#include "ondra/hostile_model.h"

namespace {

using Ondra::FullKelTypeWalker, Ondra::Path, Ondra::WalkResult;

// A host whose printed items cost one leaf each.
class RudeWalk : public testing::Test {
protected:
  RudeWalk() {
    Hostile::Host& host = *world.host;
    host.oddNote = Hostile::Odd{"note"};
    host.oddList = {{"one"}, {"two"}};
    for (char const* const name : {"x", "y"}) {
      host.silentIs(name, {"between"});
      host.placeIs({"vrf", {name}}, {"place"});
      host.guestIs(name);
      host.roomIs({name})->beds = 2;
    }
  }
  ~RudeWalk() override { Hostile::trap().act = nullptr; }

  Tovak::ScopedTraceSink traces; // of what is left out
  Hostile::World world{{}};
  WalkHarness harness;
};

// Over what is watched and what is not, cut and whole.
TEST_F(RudeWalk, WhatAPrinterThrowsCostsTheItemAlone) {
  RecordingRouter::Leaves const whole = harness.leavesOf(*world.dir);
  bool reached = true;
  int n = 1;
  for (; reached; ++n) {
    SCOPED_TRACE(n);
    if (n % 2 == 0) WalkHarness::clearAll();
    reached = false;
    Hostile::trap().act = [&reached, n, left = n](Hostile::Call call) mutable {
      if (call != Hostile::Call::Print || --left != 0) return;
      reached = true;
      if (n % 3 == 0) throw Kel::Error("cannot print");
      if (n % 3 == 1) throw std::logic_error("cannot print");
      throw n;
    };
    bool const cut = n % 3 == 0;
    RecordingRouter router(cut ? 2 : 0);
    WalkHarness::Walk walk = harness.start(router, *world.dir, Ondra::flagSnapshot, [cut] { return cut; });
    ASSERT_NO_THROW(WalkHarness::finish(walk));
    RecordingRouter::Leaves const sent = router.leaves();
    EXPECT_TRUE(std::includes(whole.begin(), whole.end(), sent.begin(), sent.end()));
    EXPECT_EQ(sent.size() + (reached ? 1 : 0), whole.size());
    EXPECT_EQ(router.updates(), sent.size());
    EXPECT_EQ(traces.contains(n % 3 == 2 ? "unknown exception" : "cannot print"), reached);
    traces.clear();
    EXPECT_EQ(FullKelTypeWalker::walkMapSize() + FullKelTypeWalker::pathWalkIdMapSize(), 0U);
    EXPECT_EQ(Ondra::WalkScope::depth(), 0);
  }
  EXPECT_GT(n, 10);
  Hostile::trap().act = nullptr;
  EXPECT_EQ(harness.leavesOf(*world.dir), whole);
}

// A walker of the host's own, and one that begins at a leaf path, go the long way.
TEST_F(RudeWalk, ShortRoadsAreForTheLibrarysOwnWalks) {
  RecordingRouter live;
  harness.walked(live, *world.dir, Ondra::flagStream);
  RecordingRouter router;
  Kel::Ptr<Path const> const prefix = Path::strToPathIs("/hostile/host/oddRoom[oddRoomKey=x]");
  Kel::Ptr<Hostile::Room> const room = world.host->roomIs({"x"});
  Ondra::KelKey key;
  FullKelTypeWalker below(prefix, Ondra::toggleOndraSyncBundlingEnabled() ? Ondra::Ir::IrIs() : nullptr,
                          Kel::GenericIf::toObject(static_cast<Kel::PtrInterface const*>(room.get())),
                          Path::strToPathIs("/x/y"), router, nullptr, Ondra::flagSnapshot, key, true, 5);
  EXPECT_EQ(below.walk(nullptr), WalkResult::Success);
  EXPECT_THAT(router.leaves(),
              testing::ElementsAre(testing::Pair(prefix->toString() + "/x/y/beds", "uint_val:2")));

  // Ids of a walk without a queue.
  RecordingRouter ids;
  auto info = Ondra::WalkInfo::WalkInfoIs(ids, {Ondra::SyncId(5), Ondra::WalkId(6)}, prefix, room.get(),
                                          Ondra::flagSnapshot);
  EXPECT_EQ(FullKelTypeWalker::walkObjectInternal(info, nullptr, nullptr, nullptr), WalkResult::Success);
  EXPECT_THAT(ids.texts, testing::ElementsAre(testing::StartsWith("5:6 ")));

  // A collection that nothing can read as one value; every line of a trace.
  Kel::TypeBuilder builder("rude-walk-test", "Hall", Kel::TypeKind::Entity);
  builder.keyed("odd", Kel::builtinType(Kel::BuiltinKind::String), Kel::builtinType(Kel::BuiltinKind::U32))
      .asOneValue();
  Kel::Ptr<Kel::GenericIf> const hall = builder.done().value().genericIf(Kel::ArgList());
  world.dir->entityIs("hall", Kel::Ptr<Kel::Entity>(static_cast<Kel::Entity*>(hall->object())));
  traces.clear();
  ASSERT_TRUE(Tovak::Platform::traceIs("OndraWalker/5-9").ok());
  static_cast<void>(harness.leavesOf(*world.dir));
  ASSERT_TRUE(Tovak::Platform::traceIs("").ok());
  EXPECT_TRUE(traces.contains("marked to be read as one value"));
  std::vector<Tovak::String> const lines = traces.lines();
  auto const begins = [](Tovak::String const& line) {
    return std::string_view(line).find("construct FullKelTypeWalker with prefixPath:") !=
           std::string_view::npos;
  };
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), begins), 7)
      << "directory, host, hall, two guests and rooms";
}

} // namespace
