// Whole walks of the fixture model: what they send, for each mode; cut ones are played in hostile_test.cpp.
#include <fstream>

#include <boost/algorithm/string/replace.hpp>

#include "Ondra/KelGnmiUtils.h"
#include "Tovak/Trace.h"
#include "Tovak/TraceSink.h"
#include "WalkHarness.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"
#include "ondra/hostile_model.h"

namespace {

using Leaves = RecordingRouter::Leaves;

// The path below /fixture/device and its like, without keys.
std::string shapeOf(std::string_view path) {
  std::string shape;
  int depth = 0;
  for (char const c : path) {
    depth += c == '[' ? 1 : 0;
    if (depth == 0) shape += c;
    depth -= c == ']' ? 1 : 0;
  }
  return shape.substr(shape.find('/', std::string_view("/fixture/").size()));
}

// A line for the leaves of each attribute: the first of them, in printable ASCII, and how many there are.
// That the others have the model's values is the round trip's (set_walk_test.cpp).
std::string textOf(Leaves const& leaves) {
  std::map<std::string, std::pair<std::string, int>> lines;
  for (auto const& [path, value] : leaves) { // the declared device's come first
    auto& [line, count] = lines[shapeOf(path)];
    if (count++ != 0) continue;
    for (char const c : path + " " + value) {
      line +=
          c >= ' ' && c < 0x7f ? std::string(1, c) : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
  }
  std::string text;
  for (auto const& [shape, line] : lines)
    text += line.second == 1 ? line.first + "\n" : fmt::format("{} (of {})\n", line.first, line.second);
  return text;
}

// Compares with the recorded text; ONDRA_GOLDEN_WRITE=1 records it anew, to be read before it is committed.
void expectGolden(std::string const& name, std::string const& text) {
  std::string const file = std::string(KTD_SOURCE_DIR) + "/tests/ondra/golden/" + name;
  if (std::getenv("ONDRA_GOLDEN_WRITE") != nullptr) std::ofstream(file) << text;
  std::ifstream in(file);
  std::stringstream recorded;
  recorded << in.rdbuf();
  EXPECT_EQ(text, recorded.str()) << "differs from " << file;
}

class WalkTest : public testing::Test {
protected:
  Fixture::World world_;
  WalkHarness harness_;
};

TEST_F(WalkTest, SendsEveryLeafOfEveryKindOnce) {
  for (Ondra::RequestType const type : {Ondra::RequestType::ONCE, Ondra::RequestType::POLL}) {
    Ondra::WalkerFlags const flags = Ondra::KelGnmiUtils::requestTypeToFlags(type);
    RecordingRouter router;
    auto walk = harness_.walked(router, *world_.dir(), flags);
    EXPECT_FALSE(walk.task->doneStreaming);
    expectGolden("walk.txt", textOf(router.leaves()));
    EXPECT_EQ(router.updates(), router.leaves().size()) << "a leaf was sent twice";
    EXPECT_TRUE(router.complaints.empty()) << router.complaints.front();
  }
}

// A walk that is traced takes the general roads; any other takes short ones over what is watched already.
TEST_F(WalkTest, SendsTheSameResponsesOverShortRoads) {
  RecordingRouter live;
  auto const responses = [this] {
    RecordingRouter router;
    auto walk = harness_.walked(router, *world_.dir(), Ondra::flagSnapshot);
    for (std::string& text : router.texts)
      text.erase(0, text.find(' ')); // the walk's id
    return router.texts;
  };
  for (std::uint32_t seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    harness_.walked(live, *world_.dir(), Ondra::flagStream | Ondra::flagSnapshot);
    Fixture::RandomEdits edits(world_.dir(), seed);
    for (int i = 0; i < 40; ++i)
      edits.edit();
    std::vector<std::string> const first = responses(); // over some of both roads
    std::vector<std::string> const again = responses();
    Tovak::ScopedTraceSink const sink;
    ASSERT_TRUE(Tovak::Platform::traceIs("OndraWalker/4").ok());
    std::vector<std::string> const traced = responses();
    ASSERT_TRUE(Tovak::Platform::traceIs("").ok());
    EXPECT_EQ(first, traced);
    EXPECT_EQ(again, traced);
  }
}

TEST_F(WalkTest, StopsForAFullPipeAndGoesOnWhenScheduled) {
  RecordingRouter router(1);
  auto walk = harness_.start(router, *world_.device(), Ondra::flagSnapshot);
  WalkHarness::slice(walk);
  EXPECT_FALSE(walk.task->done);
  EXPECT_FALSE(walk.task->isScheduled()) << "a full pipe waits for the host";
  std::size_t const before = router.pushes();
  walk.task->paused = true;
  WalkHarness::slice(walk);
  EXPECT_EQ(router.pushes(), before) << "a paused provider walks nothing";
  walk.task->paused = false;
  WalkHarness::finish(walk);
  EXPECT_EQ(walk.task->walkInfo(), nullptr);
  WalkHarness::slice(walk); // a pipe that drains late wakes a walk that has ended
}

TEST_F(WalkTest, SkipsADirectorysOwnRecords) {
  auto const entry = world_.dir()->entry("device");
  RecordingRouter router;
  auto info = Ondra::WalkInfo::WalkInfoIs(router, {}, Ondra::Path::strToPathIs("/entry"), entry.get(),
                                          Ondra::flagSnapshot);
  EXPECT_EQ(Ondra::FullKelTypeWalker::walkObject(info), Ondra::WalkResult::Success);
  EXPECT_EQ(router.pushes() + Ondra::GifGnmiNotifiee::notifieeMapSize(), 0U);
}

// A key field's leaf has its name, whatever attribute has it too: that one stands aside, or stays as a
// container. NAME is what both are called.
TEST(RudeModels, KeyFieldsAndTheAttributesOfTheirNames) {
  std::map<std::string, std::string> collections; // by the leaves of their members
  std::vector<std::string> const texts(7, "t");
  for (auto const& [kind, unused] : Hostile::collisions()) {
    Hostile::World world({kind});
    WalkHarness harness;
    Kel::Ptr<Kel::Entity> const box = world.dir->entity(kind);
    auto const object = Kel::handleTo(box);
    world.host->guestIs("t");
    Fixture::RandomEdits random(world.dir, 1, texts);
    for (Kel::KelType::AttributeQIterator attr(box->fwkType()); attr; ++attr) {
      auto const key = random.key((*attr).keyType());
      if (!(*attr).isInstantiating()) {
        (*attr).genericIfSet(object, key, random.value((*attr).memberType()));
        continue;
      }
      Fixture::RandomEdits inside(Kel::entityAt((*attr).genericIfSet(object, key, Kel::ArgList())), 2, texts);
      for (int i = 0; i < 10; ++i)
        inside.edit();
    }
    std::map<std::string, std::string> leaves; // by collection
    for (auto const& [path, value] : harness.leavesOf(*box)) {
      std::size_t const start = kind.size() + 10;
      std::string const name = path.substr(start, path.find('[') - start);
      std::string const field = name.starts_with("nest")       ? "inner"
                                : name.starts_with("oddPlace") ? "vrf"
                                : name.starts_with("oddTag")   ? "tag"
                                                               : name + "Key";
      std::string const member = path.substr(path.find("]/", path.find("=t]")) + 1);
      std::string const below = boost::replace_all_copy(member, field, "NAME");
      leaves[name] += " " + below + " " + value.substr(0, value.find(':'));
    }
    for (auto const& [name, all] : leaves)
      collections[kind + ":" + all] += " " + name;
  }
  std::string text;
  for (auto const& [leaves, of] : collections)
    text += leaves + " of" + of + "\n";
  expectGolden("collisions.txt", text);
}

// A text that is no UTF-8 costs its own leaf, as a key its member; an array goes whole.
TEST(RudeModels, WhatNoMessageCanHoldIsLeftOut) {
  auto const pathsWith = [](Kel::String const& text) {
    Hostile::World world({});
    WalkHarness harness;
    Hostile::Host& host = *world.host;
    host.label = text;
    host.oddNote = Hostile::Odd{text};
    host.oddList = {{"good"}, {text}};
    host.guestIs(text)->text = "t";
    host.guestIs("guest")->peer = host.guestIs(text);
    host.roomIs({text})->beds = 1;
    host.placeIs({text, {}, {}}, {"note"});
    host.silentIs("silent", {text});
    std::set<std::string> paths;
    for (auto const& [path, value] : harness.leavesOf(*world.dir))
      paths.insert(path.ends_with("[tag=guest]/peer/_ptr") ? path + " " + value : path);
    return paths;
  };
  std::string const host = "/hostile/host/", guest = host + "guest[tag=guest]/peer/_ptr string_val:";
  std::set<std::string> const good = pathsWith("T");
  EXPECT_EQ(good.size(), pathsWith("g\xc3\xbc \xf0\x9f\x98\x80 \xed\x9f\xbf").size());
  for (char const* const bad :
       {"\xff", "plain\xc3", "\xed\xa0\x80", "\xc0\xaf", "\xf4\x90\x80\x80", "\xe0\x80\x80"}) {
    std::set<std::string> const left = pathsWith(bad);
    std::vector<std::string> lost, come;
    std::ranges::set_difference(good, left, std::back_inserter(lost));
    std::ranges::set_difference(left, good, std::back_inserter(come));
    EXPECT_THAT(lost,
                testing::UnorderedElementsAre(
                    guest + host + "guest[tag=T]", host + "guest[tag=T]/odd", host + "guest[tag=T]/peer/_ptr",
                    host + "guest[tag=T]/tag", host + "guest[tag=T]/text", host + "label", host + "oddList",
                    host + "oddNote", host + "oddPlace[mood=CALM][tag=][vrf=T]/note",
                    host + "oddRoom[oddRoomKey=T]/beds", host + "silent[silentKey=silent]/note"));
    EXPECT_THAT(come, testing::ElementsAre(guest + "nullptr")) << testing::PrintToString(bad);
  }
}

} // namespace
