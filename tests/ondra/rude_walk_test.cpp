// What a printer that throws costs a walk, and which roads a walk takes.
#include <algorithm>
#include <stdexcept>

#include <gmock/gmock.h>

#include "Kel/Declare.h"
#include "Kel/Error.h"
#include "Tovak/Trace.h"
#include "Tovak/TraceSink.h"
#include "WalkHarness.h"
#include "WalkerProbe.h"
#include "fixture/Populate.h"

namespace {

using Ondra::FullKelTypeWalker;
using Ondra::Path;
using Ondra::WalkResult;

// A text whose printer does as the test says.
struct Word {
  Kel::String text;
  bool operator==(Word const&) const = default;
};
std::function<void()>& onPrint() {
  static std::function<void()> hook;
  return hook;
}
std::string print(Word const& word) {
  if (onPrint()) onPrint()();
  return word.text.str();
}

class Desk final : public Kel::EntityOf<Desk> { // plain leaves alone
public:
  Kel::String owner{"nobody"};
  Word top{"desk"};
  std::uint32_t drawers = 3;
};
struct Saying { // of one set of leaves, printed in the middle
  std::uint32_t before = 1;
  Word word{"said"};
  std::uint32_t after = 2;
  bool operator==(Saying const&) const = default;
};
class Room final : public Kel::EntityOf<Room> {
public:
  void noteIs(Kel::String const& key, Saying const& wanted) { memberIs(notes, key, wanted); }
  void labelIs(Word const& key, std::uint32_t wanted) { memberIs(labels, key, wanted); }
  Kel::Ptr<Desk> deskIs(Kel::String const& key) { return memberIs(desks, key); }
  Kel::Ptr<Desk> mainIs() { return childIs(main); }

  std::uint32_t number = 7;
  Word word{"room"};
  Saying saying;
  std::vector<Word> words{{"a"}, {"b"}};
  Kel::KeyedValues<Kel::String, Saying> notes;
  Kel::KeyedValues<Word, std::uint32_t> labels;
  Kel::Ptr<Desk> main;
  Kel::KeyedEntities<Kel::String, Desk> desks;
  std::uint32_t last = 9;
};
class Hall final : public Kel::EntityOf<Hall> {
public:
  Kel::Ptr<Room> roomIs(Kel::String const& key) { return memberIs(rooms, key); }
  Kel::KeyedEntities<Kel::String, Room> rooms;
  Kel::KeyedValues<Kel::String, std::uint32_t> odd;
};

// clang-format off
void declare() {
  static bool const once = [] {
    constexpr char const* kModule = "rude-walk-test";
    Kel::valueType<Word>("Word", kModule).attr("text", &Word::text).ctorArg()
        .gnmiStrRep(&print, [](std::string_view text, Word& to) { return to.text = Kel::String(text), std::optional<std::string>(); })
        .done();
    Kel::valueType<Saying>("Saying", kModule)
        .attr("before", &Saying::before).attr("word", &Saying::word).attr("after", &Saying::after).done();
    Kel::entityType<Desk>("Desk", kModule)
        .attr("owner", &Desk::owner).attr("top", &Desk::top).attr("drawers", &Desk::drawers).done();
    Kel::entityType<Room>("Room", kModule)
        .attr("number", &Room::number)
        .attr("word", &Room::word)
        .attr("saying", &Room::saying)
        .array("words", &Room::words)
        .keyed("note", &Room::notes)
        .keyed("label", &Room::labels)
        .instantiating("main", &Room::main)
        .instantiating("desk", &Room::desks)
        .attr("last", &Room::last).done();
    Kel::entityType<Hall>("Hall", kModule)
        .instantiating("room", &Hall::rooms)
        .keyed("odd", &Hall::odd).asOneValue().done();
    return true;
  }();
  static_cast<void>(once);
}
// clang-format on

void fill(Room& room) {
  room.noteIs("x", {});
  room.noteIs("y", {});
  room.labelIs({"k1"}, 1);
  room.labelIs({"k2"}, 2);
  room.mainIs();
  room.deskIs("d1");
  room.deskIs("d2");
}

class RudeWalk : public testing::Test {
protected:
  RudeWalk() {
    declare();
    hall = Kel::Ptr(new Hall());
    world.dir()->entityIs("hall", hall);
    for (char const* const name : {"r1", "r2"})
      fill(*hall->roomIs(name));
  }
  ~RudeWalk() override { onPrint() = nullptr; }

  // At the n-th call from now on, counted from 1; says afterwards whether that came.
  void atCall(int n, std::function<void()> act) {
    reached = false;
    onPrint() = [this, left = n, act = std::move(act)]() mutable {
      if (--left == 0) {
        reached = true;
        act();
      }
    };
  }
  RecordingRouter::Leaves truth() {
    onPrint() = nullptr;
    return harness.leavesOf(*hall);
  }
  static void expectNothingParked() {
    EXPECT_EQ(FullKelTypeWalker::walkMapSize(), 0U);
    EXPECT_EQ(FullKelTypeWalker::pathWalkIdMapSize(), 0U);
    EXPECT_EQ(Ondra::WalkScope::depth(), 0);
  }

  Tovak::ScopedTraceSink traces; // of what is left out
  Fixture::World world;
  RecordingRouter live; // outlives the notifiees that the harness ends
  WalkHarness harness;
  Kel::Ptr<Hall> hall;
  bool reached = false;
};

// --- printers that throw -----------------------------------------------------------------------------

// Over what is watched and what is not, cut and whole.
TEST_F(RudeWalk, WhatAPrinterThrowsCostsTheItemAlone) {
  RecordingRouter::Leaves const whole = truth();
  for (int n = 1; reached || n == 1; ++n) {
    SCOPED_TRACE(n);
    if (n % 2 == 0) WalkHarness::clearAll();
    bool const cut = n % 3 == 0;
    atCall(n, [n] {
      if (n % 3 == 0) throw Kel::Error("cannot print");
      if (n % 3 == 1) throw std::logic_error("cannot print");
      throw n;
    });
    RecordingRouter router(cut ? 2 : 0);
    WalkHarness::Walk walk = harness.start(router, *hall, Ondra::flagSnapshot, [cut] { return cut; });
    ASSERT_NO_THROW(WalkHarness::finish(walk));
    RecordingRouter::Leaves const sent = router.leaves();
    for (auto const& [path, value] : sent)
      EXPECT_TRUE(whole.contains(path) && whole.at(path) == value) << path << " " << value;
    EXPECT_GE(sent.size() + 1, whole.size()) << "more than one leaf is missing";
    EXPECT_EQ(router.updates(), sent.size());
    EXPECT_EQ(sent.size() < whole.size(), reached);
    EXPECT_EQ(traces.contains(n % 3 == 2 ? "unknown exception" : "cannot print"), reached);
    traces.clear();
    expectNothingParked();
  }
  EXPECT_EQ(truth(), whole);
}

// --- roads -------------------------------------------------------------------------------------------

// A walker of the host's own, and one that begins at a leaf path, go the long way and say what they were told.
TEST_F(RudeWalk, ShortRoadsAreForTheLibrarysOwnWalks) {
  WalkHarness::Walk walk = harness.start(live, *hall, Ondra::flagStream);
  WalkHarness::finish(walk);
  RecordingRouter router;
  Kel::Ptr<Path const> const prefix = Path::strToPathIs("/fixture/hall/room[roomKey=r1]/main");
  Kel::Ptr<Desk> const main = hall->roomIs("r1")->mainIs();
  Kel::Ptr<Kel::GenericIf const> const desk =
      Kel::GenericIf::toObject(static_cast<Kel::PtrInterface const*>(main.get()));
  Ondra::KelKey key;
  FullKelTypeWalker below(prefix, Ondra::toggleOndraSyncBundlingEnabled() ? Ondra::Ir::IrIs() : nullptr, desk,
                          Path::strToPathIs("/x/y"), router, nullptr, Ondra::flagSnapshot, key, true, 5);
  EXPECT_EQ(below.walk(nullptr), WalkResult::Success);
  EXPECT_TRUE(router.leaves().contains(prefix->toString() + "/x/y/owner"));
  EXPECT_EQ(router.leaves().size(), 3U);

  // Ids of a walk without a queue; a collection that nothing can read as one value; every line of a trace.
  RecordingRouter ids;
  auto info = Ondra::WalkInfo::WalkInfoIs(ids, {Ondra::SyncId(5), Ondra::WalkId(6)}, prefix, main.get(),
                                          Ondra::flagSnapshot);
  EXPECT_EQ(FullKelTypeWalker::walkObjectInternal(info, nullptr, nullptr, nullptr), WalkResult::Success);
  ASSERT_FALSE(ids.texts.empty());
  for (std::string const& text : ids.texts)
    EXPECT_THAT(text, testing::StartsWith("5:6 "));
  traces.clear();
  ASSERT_TRUE(Tovak::Platform::traceIs("OndraWalker/5-9").ok());
  static_cast<void>(truth());
  ASSERT_TRUE(Tovak::Platform::traceIs("").ok());
  EXPECT_TRUE(traces.contains("marked to be read as one value"));
  std::vector<Tovak::String> const lines = traces.lines();
  auto const begins = [](Tovak::String const& line) {
    return std::string_view(line).find("construct FullKelTypeWalker with prefixPath:") !=
           std::string_view::npos;
  };
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), begins), 9) << "hall, two rooms with three desks each";
}

} // namespace
