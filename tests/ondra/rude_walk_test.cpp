// Walks and changes of a model whose code is rude: printers that throw, or change the model, at any of their calls; routers that throw;
// members that have nothing to send.
#include <algorithm>
#include <new>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>

#include "Kel/Declare.h"
#include "Kel/Error.h"
#include "Ondra/GifNotifiee.h"
#include "Tovak/Trace.h"
#include "Tovak/TraceSink.h"
#include "WalkHarness.h"
#include "WalkerProbe.h"
#include "fixture/Populate.h"

namespace {

using Ondra::FullKelTypeWalker;
using Ondra::Path;
using Ondra::WalkResult;
using testing::IsEmpty;

constexpr Ondra::WalkerFlags kStreamSnapshot = Ondra::flagStream | Ondra::flagSnapshot;

// A text whose printer does as the test says.
struct Word {
  Kel::String text;
  bool operator==(Word const&) const = default;
};
std::function<void(std::string const&)>& onPrint() {
  static std::function<void(std::string const&)> hook;
  return hook;
}
std::string print(Word const& word) {
  if (onPrint()) onPrint()(word.text.str());
  return word.text.str();
}

struct Saying { // of one set of leaves, printed in the middle
  std::uint32_t before = 1;
  Word word{"said"};
  std::uint32_t after = 2;
  bool operator==(Saying const&) const = default;
};
struct Pile {
  Kel::KeyedValues<std::uint32_t, Saying> sayings;
  bool operator==(Pile const&) const { return false; }
};
class Desk final : public Kel::EntityOf<Desk> { // plain leaves alone
public:
  void topIs(Word const& wanted) { valueIs(top, wanted); }
  Kel::String owner{"nobody"};
  Word top{"desk"};
  std::uint32_t drawers = 3;
};
class Blank final : public Kel::EntityOf<Blank> { // nothing to send
public:
  std::optional<std::uint32_t> one, two, three;
};
class Room final : public Kel::EntityOf<Room> {
public:
  void wordIs(Word const& wanted) { valueIs(word, wanted); }
  void sayingIs(Saying const& wanted) { valueIs(saying, wanted); }
  void wordsAre(std::vector<Word> const& wanted) { valueIs(words, wanted); }
  void noteIs(Kel::String const& key, Saying const& wanted) { memberIs(notes, key, wanted); }
  void noteDel(Kel::String const& key) { memberDel(notes, key); }
  void labelIs(Word const& key, std::uint32_t wanted) { memberIs(labels, key, wanted); }
  void pileIs(Pile const& wanted) { valueIs(pile, wanted); }
  Kel::Ptr<Desk> deskIs(Kel::String const& key) { return memberIs(desks, key); }
  void deskDel(Kel::String const& key) { memberDel(desks, key); }
  Kel::Ptr<Desk> mainIs() { return childIs(main); }
  void mainDel() { childDel(main); }

  std::uint32_t number = 7;
  Word word{"room"};
  Saying saying;
  std::vector<Word> words{{"a"}, {"b"}};
  Kel::KeyedValues<Kel::String, Saying> notes;
  Kel::KeyedValues<Word, std::uint32_t> labels;
  Kel::Ptr<Desk> main;
  Kel::KeyedEntities<Kel::String, Desk> desks;
  std::uint32_t last = 9;
  Pile pile;
};
class Hall final : public Kel::EntityOf<Hall> {
public:
  Kel::Ptr<Room> roomIs(Kel::String const& key) { return memberIs(rooms, key); }
  void roomDel(Kel::String const& key) { memberDel(rooms, key); }
  Kel::Ptr<Blank> blankIs(std::uint32_t key) { return memberIs(blanks, key); }
  Kel::KeyedEntities<Kel::String, Room> rooms;
  Kel::KeyedEntities<std::uint32_t, Blank> blanks;
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
    Kel::valueType<Pile>("Pile", kModule).keyed("saying", &Pile::sayings).done();
    Kel::entityType<Desk>("Desk", kModule)
        .attr("owner", &Desk::owner).attr("top", &Desk::top, &Desk::topIs).attr("drawers", &Desk::drawers).done();
    Kel::entityType<Blank>("Blank", kModule)
        .attr("one", &Blank::one).attr("two", &Blank::two).attr("three", &Blank::three).done();
    Kel::entityType<Room>("Room", kModule)
        .attr("number", &Room::number)
        .attr("word", &Room::word, &Room::wordIs)
        .attr("saying", &Room::saying, &Room::sayingIs)
        .array("words", &Room::words, &Room::wordsAre)
        .keyed("note", &Room::notes)
        .keyed("label", &Room::labels)
        .instantiating("main", &Room::main)
        .instantiating("desk", &Room::desks)
        .attr("pile", &Room::pile, &Room::pileIs)
        .attr("last", &Room::last).done();
    Kel::entityType<Hall>("Hall", kModule)
        .instantiating("room", &Hall::rooms)
        .instantiating("blank", &Hall::blanks)
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
    onPrint() = [this, left = n, act = std::move(act)](std::string const&) mutable {
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

// What cannot be printed has gone; what can be printed again is there.
TEST_F(RudeWalk, ChangesTellWhatAFullWalkWouldSend) {
  WalkHarness::Walk walk = harness.start(live, *hall, kStreamSnapshot);
  WalkHarness::finish(walk);
  std::mt19937 engine(11);
  auto const random = [&engine] { return static_cast<std::uint32_t>(engine()); };
  Kel::Ptr<Room> const room = hall->roomIs("r1");
  for (int turn = 0; turn < 400; ++turn) {
    onPrint() = [](std::string const& text) {
      if (text.starts_with("bad")) throw Kel::Error("cannot print " + text);
    };
    Word const word{random() % 2 == 0 ? "bad" : std::to_string(turn)};
    ASSERT_NO_THROW(switch (random() % 6) {
      case 0: room->wordIs(word); break;
      case 1: room->sayingIs({random() % 9U, word, 2}); break;
      case 2: room->wordsAre({{"a"}, word}); break;
      case 3: room->noteIs("x", {random() % 9U, word, 2}); break;
      case 4: room->labelIs(word, random() % 9U); break;
      default: room->deskIs("d1")->topIs(word); break;
    });
    RecordingRouter fresh;
    WalkHarness::Walk check = harness.start(fresh, *hall, Ondra::flagSnapshot);
    WalkHarness::finish(check);
    ASSERT_THAT(live.differences(fresh), IsEmpty()) << "turn " << turn;
    ASSERT_THAT(live.complaints, IsEmpty());
    Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1000);
  }
}

// It passes through to the host, and the walk is called off; the next one is right.
TEST_F(RudeWalk, WantOfMemoryEndsTheWalk) {
  RecordingRouter::Leaves const whole = truth();
  for (int n = 1; reached || n == 1; ++n) {
    SCOPED_TRACE(n);
    atCall(n, [] { throw std::bad_alloc(); });
    RecordingRouter router(n % 2);
    WalkHarness::Walk walk = harness.start(router, *hall, Ondra::flagSnapshot, [] { return true; });
    try {
      WalkHarness::finish(walk);
      EXPECT_FALSE(reached);
    } catch (std::bad_alloc const&) {
      EXPECT_EQ(walk.task->walkInfo(), nullptr);
      EXPECT_FALSE(walk.task->done);
      walk.info->task.reset();
    }
    expectNothingParked();
  }
  EXPECT_EQ(truth(), whole);
}

// --- routers that throw ------------------------------------------------------------------------------

class ThrowingRouter final : public Ondra::BaseRouter {
public:
  ThrowingRouter(RecordingRouter& to, std::size_t at) : to_(to), at_(at) {}
  bool push(Ondra::SyncId sync, Ondra::WalkId walk, std::shared_ptr<Ondra::ArenaRespMsg>& resp) override {
    if (++pushes_ == at_) throw std::runtime_error("router");
    return to_.push(sync, walk, resp);
  }
  [[nodiscard]] bool threw() const { return pushes_ >= at_; }

private:
  RecordingRouter& to_;
  std::size_t const at_;
  std::size_t pushes_ = 0;
};

TEST_F(RudeWalk, ARouterThatThrowsLosesThatResponse) {
  RecordingRouter all;
  WalkHarness::Walk first = harness.start(all, *hall, Ondra::flagSnapshot);
  WalkHarness::finish(first);
  bool threw = true;
  for (std::size_t n = 1; threw; ++n) {
    SCOPED_TRACE(n);
    WalkHarness::clearAll();
    RecordingRouter got;
    ThrowingRouter router(got, n);
    WalkHarness::Walk walk = harness.start(router, *hall, kStreamSnapshot, [] { return true; });
    ASSERT_NO_THROW(WalkHarness::finish(walk));
    ASSERT_NO_THROW(hall->roomIs("r1")->deskIs("d1")->topIs({std::to_string(n)}));
    ASSERT_NO_THROW(hall->roomIs("r1")->deskDel("d2"));
    threw = router.threw();
    EXPECT_EQ(traces.contains("a router lost a response: router"), threw);
    traces.clear();
    hall->roomIs("r1")->deskIs("d2");
    expectNothingParked();
    WalkHarness::clearAll(); // the router goes
  }
}

// --- printers that change the model -----------------------------------------------------------------

TEST_F(RudeWalk, APrinterMayChangeTheModelAtAnyCall) {
  using Edit = std::function<void()>;
  Kel::String const r1("r1"), r2("r2");
  std::vector<Edit> const edits = {
      [&] { hall->roomDel(r1); },
      [&] { hall->roomDel(r2); },
      [&] { hall->roomDel(r1), hall->roomIs(r1); },
      [&] { hall->roomIs(r1)->deskDel("d1"); },
      [&] { hall->roomIs(r1)->mainDel(), hall->roomIs(r1)->mainIs()->topIs({"new"}); },
      [&] { hall->roomIs(r1)->noteDel("x"), hall->roomIs(r1)->noteIs("z", {}); },
      [&] { hall->roomIs(r1)->wordIs({"other"}), hall->roomIs(r1)->wordsAre({}); },
      [&] { hall->roomIs("r0"), fill(*hall->roomIs("r3")); },
  };
  for (std::size_t which = 0; which < edits.size(); ++which) {
    reached = true;
    for (int n = 1; reached; ++n) {
      SCOPED_TRACE(testing::Message() << "edit " << which << " at call " << n);
      onPrint() = nullptr;
      WalkHarness::clearAll();
      for (char const* const name : {"r0", "r1", "r2", "r3"})
        hall->roomDel(name);
      for (Kel::String const& name : {r1, r2})
        fill(*hall->roomIs(name));
      RecordingRouter router;
      for (int walks = 0; walks < 2; ++walks) { // the second over what is watched, by both kinds of road
        WalkHarness::Walk walk = harness.start(router, *hall, kStreamSnapshot, [n] { return n % 4 == 0; });
        if (walks == 1 || n % 2 == 0) atCall(n, edits[which]);
        WalkHarness::finish(walk);
      }
      atCall(n, edits[which]); // and inside a change
      hall->roomIs(r2)->sayingIs({5, {"changed"}, 6});
      hall->roomIs(r2)->noteIs("x", {5, {"changed"}, 6});
      onPrint() = nullptr;
      Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1000);
      RecordingRouter fresh;
      WalkHarness::Walk check = harness.start(fresh, *hall, Ondra::flagSnapshot);
      WalkHarness::finish(check);
      ASSERT_THAT(router.differences(fresh), IsEmpty());
      ASSERT_THAT(router.complaints, IsEmpty());
      expectNothingParked();
      WalkHarness::clearAll(); // the router goes
      if (n > 60) break;
    }
  }
}

// --- slices ------------------------------------------------------------------------------------------

// Whatever sends nothing is asked for as well: between two questions there is one member or attribute.
TEST_F(RudeWalk, ASliceIsAskedForAtEachItem) {
  constexpr std::uint32_t kMany = 300;
  for (std::uint32_t at = 0; at < kMany; ++at)
    hall->blankIs(at);
  Pile pile;
  for (std::uint32_t at = 0; at < kMany; ++at)
    pile.sayings.memberIs(at, {});
  hall->roomIs("r1")->pileIs(pile);
  for (int round = 0; round < 2; ++round) { // the second over short roads
    for (Ondra::WalkerFlags const flags : {Ondra::flagSnapshot, Ondra::flagStream}) {
      WalkHarness::Walk walk = harness.start(live, *hall, flags, [] { return false; });
      WalkHarness::finish(walk);
      EXPECT_GE(walk.task->questions, kMany + (flags == Ondra::flagSnapshot ? kMany : 0));
    }
  }
  // And it can end there, inside a value as well.
  RecordingRouter cut;
  WalkHarness::Walk walk = harness.start(cut, *hall, Ondra::flagSnapshot, [] { return true; });
  EXPECT_GE(WalkHarness::finish(walk), 2 * kMany);
  EXPECT_EQ(cut.leaves(), truth());
  EXPECT_EQ(cut.updates(), cut.leaves().size());
  EXPECT_FALSE(traces.contains("WalkList is empty"));
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
