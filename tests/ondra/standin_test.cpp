// Containers that another's notifiee stands in for behave as if each had its own, and short roads of walks as
// the long ones: the same things happen to several trees, in one of which all notifiees are made at once, in
// one of which walks take no short road; and the same is sent, to the nanosecond, and left behind.
#include <absl/cleanup/cleanup.h>

#include <random>
#include <set>

#include "Kel/Declare.h"
#include "Ondra/NotifieeMaps.h"
#include "Tovak/Trace.h"
#include "WalkHarness.h"
#include "fixture/Observer.h"
#include "fixture/Populate.h"

namespace {

using Ondra::flagSnapshot, Ondra::flagStream, Ondra::GifGnmiNotifiee, Ondra::notifieeMaps, Ondra::Path;

class Cell final : public Kel::EntityOf<Cell> {
public:
  void valueIs(std::optional<std::uint32_t> number) { Kel::Entity::valueIs(value, number); }
  void textIs(Kel::String const& words) { Kel::Entity::valueIs(text, words); }

  std::optional<std::uint32_t> value;
  Kel::String text;
};
// One of its attributes has the name of the field that its key is in the path.
class Mark final : public Kel::EntityOf<Mark> {
public:
  void textIs(Kel::String const& words) { Kel::Entity::valueIs(text, words); }

  Kel::String text;
  std::uint32_t markKey = 7;
};
class Box final : public Kel::EntityOf<Box> {
public:
  Kel::Ptr<Cell> firstIs() { return childIs(first); }
  void firstDel() { childDel(first); }
  Kel::Ptr<Cell> cellIs(std::uint32_t number) { return memberIs(cells, number); }
  void cellDel(std::uint32_t number) { memberDel(cells, number); }
  Kel::Ptr<Mark> markIs(Kel::String const& name) { return memberIs(marks, name); }
  void valueIs(std::uint32_t number) { Kel::Entity::valueIs(value, number); }

  Kel::Ptr<Cell> first;
  std::uint32_t value = 0; // between children
  Kel::KeyedEntities<std::uint32_t, Cell> cells;
  Kel::KeyedEntities<Kel::String, Mark> marks;
  Kel::Ptr<Cell> second;
};
class Row final : public Kel::EntityOf<Row> {
public:
  Kel::Ptr<Box> boxIs() { return childIs(box); }
  void boxDel() { childDel(box); }
  Kel::Ptr<Cell> cellIs() { return childIs(cell); }

  Kel::String id; // the key
  Kel::Ptr<Box> box;
  Kel::Ptr<Cell> cell;
};
class Table final : public Kel::EntityOf<Table> {
public:
  Kel::Ptr<Row> rowIs(Kel::String const& id) { return memberIs(rows, id); }
  void rowDel(Kel::String const& id) { memberDel(rows, id); }

  Kel::KeyedEntities<Kel::String, Row> rows;
};

void declare() {
  static bool const once = [] {
    Kel::entityType<Cell>("Cell", "standin-test")
        .attr("value", &Cell::value)
        .attr("text", &Cell::text)
        .done();
    Kel::entityType<Mark>("Mark", "standin-test")
        .attr("text", &Mark::text)
        .attr("markKey", &Mark::markKey)
        .done();
    Kel::entityType<Box>("Box", "standin-test")
        .instantiating("first", &Box::first)
        .attr("value", &Box::value)
        .instantiating("cell", &Box::cells)
        .instantiating("mark", &Box::marks)
        .instantiating("second", &Box::second)
        .done();
    Kel::entityType<Row>("Row", "standin-test")
        .attr("id", &Row::id)
        .keyField()
        .instantiating("box", &Row::box)
        .instantiating("cell", &Row::cell)
        .done();
    Kel::entityType<Table>("Table", "standin-test").instantiating("row", &Table::rows).index("id").done();
    return true;
  }();
  static_cast<void>(once);
}

class Watched {
public:
  Watched() {
    declare();
    world.dir()->entityIs("table", table);
    for (char const* const id : {"a", "b", "c"})
      fill(*table->rowIs(id));
  }
  void fill(Row& row) {
    row.cellIs()->valueIs(++number_);
    row.boxIs()->valueIs(++number_);
    row.box->firstIs()->textIs("first");
    if (number_ % 4 == 0) row.box->cellIs(1)->valueIs(++number_);
    if (number_ % 4 == 1) row.box->markIs(number_ % 8 == 1 ? "m" : "no \xff text")->textIs("mark");
  }
  Ondra::WalkerFlags flags() const { return flagStream | flagSnapshot; }
  void walk() { harness.walked(router, *table, flags()); }

  Fixture::World world;
  WalkHarness harness;
  RecordingRouter router;
  Kel::Ptr<Table> const table{new Table()};

private:
  std::uint32_t number_ = 0;
};

struct Way {
  bool isEager = false;
  bool isLong = false;
  bool isCalm = false; // nobody comes in between; where they do depends on the road
};

// Cut walks, changes, ends, look-ups, others that watch, hosts that end paths and take objects away.
std::vector<std::string> played(std::uint32_t seed, Way way, std::size_t& stoodInFor) {
  // There are no traces of that level, but walks that are traced take no short road.
  Tovak::DebugHandler& trace = Tovak::Platform::getDebugHandler("OndraWalker", false);
  std::uint32_t const mask = trace.mask();
  if (way.isLong) trace.maskIs(1U << 2);
  absl::Cleanup const restored = [&trace, mask] { trace.maskIs(mask); };
  Watched watched;
  std::mt19937 random(seed);
  long const began = Kel::activityManagerStatus()->activityLoopExecNsTime();
  std::vector<std::string> heard;
  std::vector<Kel::Ptr<Fixture::Observer>> others;
  auto const anyRow = [&]() -> Kel::Ptr<Row> {
    return watched.table->rowIs(std::array{"a", "b", "c"}[random() % 3]);
  };
  auto const anyContainer = [&]() -> Kel::Ptr<Kel::Entity> {
    Kel::Ptr<Row> const row = anyRow();
    Kel::Ptr<Box> const box = row->box;
    std::array<Kel::Ptr<Kel::Entity>, 5> const some{row, row->cell, box, box ? box->first : nullptr,
                                                    box ? box->second : nullptr};
    Kel::Ptr<Kel::Entity> const one = some[random() % some.size()];
    return one ? one : Kel::Ptr<Kel::Entity>(row);
  };
  std::vector<std::function<void()>> acts;
  auto const anyBut = [&](std::size_t first) { acts[first + random() % (acts.size() - first)](); };
  constexpr std::size_t kWalks = 3;
  acts = {
      [&] { watched.walk(); },
      [&] { // a router that does what it likes
        std::size_t left = random() % 4;
        watched.router.afterPush = [&, left]() mutable {
          if (left > 0 && random() % 3 == 0) --left, anyBut(kWalks);
        };
        watched.walk();
        watched.router.afterPush = nullptr;
      },
      [&] {
        std::size_t const every = 1 + random() % 5;
        std::size_t asked = 0;
        auto walk = watched.harness.start(watched.router, *watched.table, watched.flags(),
                                          [&, every] { return ++asked % every == 0; });
        WalkHarness::finish(walk, [&] { anyRow()->cellIs()->valueIs(random() % 3); });
      },
      [&] { watched.fill(*anyRow()); },
      [&] {
        Kel::Ptr<Row> const row = anyRow();
        row->cellIs()->valueIs(random() % 2 == 0 ? std::nullopt : std::optional<std::uint32_t>(random()));
      },
      [&] { anyRow()->boxIs()->firstIs()->textIs(Kel::String(std::to_string(random()))); },
      [&] { anyRow()->boxIs()->firstDel(); },
      [&] { anyRow()->boxDel(); },
      [&] {
        Kel::Ptr<Box> const box = anyRow()->boxIs();
        random() % 2 == 0 ? static_cast<void>(box->cellIs(7)) : box->cellDel(7);
      },
      [&] {
        watched.table->rowDel(std::array{"a", "b", "c"}[random() % 3]);
      },
      [&] {
        Kel::Ptr<Path const> const path = pathOf(*anyContainer());
        GifGnmiNotifiee const* const found = notifieeMaps->find(path);
        heard.push_back(path->toString() + (found == nullptr ? " is not watched" : " is watched"));
      },
      [&] {
        Kel::Ptr<Kel::Entity> const one = anyContainer();
        Kel::Ptr<Path const> const path = notifieeMaps->pathOf(one.get());
        heard.push_back(path ? path->toString() : "nowhere");
        heard.push_back(notifieeMaps->find(one.get(), pathOf(*one)) == nullptr ? "not here" : "here");
      },
      [&] {
        Kel::Ptr<Kel::Entity> const one = anyContainer();
        others.emplace_back(new Fixture::Observer(
            one.get(), [&heard](std::string const& told) { heard.push_back("told of " + told); }));
      },
      [&] {
        Kel::Ptr<Kel::Entity> const one = anyContainer();
        auto info = Ondra::WalkInfo::WalkInfoIs(watched.router, {}, Path::strToPathIs("/copy"), one.get(),
                                                watched.flags());
        Ondra::FullKelTypeWalker::walkObject(info);
      },
      [&] { heard.push_back(Ondra::retire(pathOf(*anyContainer())) ? "retired" : "was not there"); },
      [&] { // another object comes to have the path
        Kel::Ptr<Kel::Entity> const one = anyContainer();
        Kel::Ptr<GifGnmiNotifiee> const made(
            new GifGnmiNotifiee(watched.table.get(), pathOf(*one), watched.router, false, false));
        made->hasNotificationActiveIs(true);
      },
      [&] {
        if (Kel::Ptr<GifGnmiNotifiee> const row{notifieeMaps->find(pathOf(*anyRow()))})
          row->hasNotificationActiveIs(!row->hasNotificationActive());
      },
  };
  if (way.isCalm) acts[1] = acts[2] = acts[0];
  for (int step = 0; step < 60; ++step) {
    Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1000);
    step == 0 ? acts[0]() : anyBut(0);
    std::size_t const made = notifieeMaps->atOrBelow(*Path::PathIs()).size();
    stoodInFor = std::max(stoodInFor, GifGnmiNotifiee::notifieeMapSize() - made);
    heard.push_back(fmt::format("{}: {} watched", step, GifGnmiNotifiee::notifieeMapSize()));
    for (std::string const& text : std::exchange(watched.router.texts, {})) {
      std::size_t const at = text.find("timestamp:") + 10;
      std::size_t const end = text.find(' ', at);
      heard.push_back(fmt::format("{}{}{}", text.substr(0, at), std::stol(text.substr(at, end - at)) - began,
                                  text.substr(end)));
    }
    if (way.isEager) notifieeMaps->forEach([](GifGnmiNotifiee const&) {});
  }
  std::set<std::string> states;
  notifieeMaps->forEach([&states](GifGnmiNotifiee const& notifiee) {
    for (Kel::KelTypeBase::AttributeQIterator attr(notifiee.objectType()); attr; ++attr)
      for (auto const& key : notifiee.attrStates().keysOf((*attr).id()))
        states.insert(fmt::format("{}: {} {}", notifiee.prefixPath()->toString(), (*attr).name().view(),
                                  key ? key->strRep() : ""));
  });
  heard.insert(heard.end(), states.begin(), states.end());
  for (std::string& complaint : watched.router.complaints)
    heard.push_back(std::move(complaint));
  return heard;
}

void expectSame(std::uint32_t seed, std::vector<std::string> const& heard,
                std::vector<std::string> const& wanted) {
  for (std::size_t i = 0; i < std::min(heard.size(), wanted.size()); ++i)
    ASSERT_EQ(heard[i], wanted[i]) << "seed " << seed << ", " << i;
  ASSERT_EQ(heard.size(), wanted.size()) << "seed " << seed;
}

TEST(StandIns, NobodyCanTell) {
  std::size_t stoodInFor = 0;
  std::size_t none = 0;
  for (std::uint32_t seed = 1; seed <= 50; ++seed)
    ASSERT_NO_FATAL_FAILURE(
        expectSame(seed, played(seed, {}, stoodInFor), played(seed, {.isEager = true}, none)));
  EXPECT_EQ(stoodInFor >= 6, Ondra::toggleOndraSyncBundlingEnabled()) << "or nothing has been tried";
}

TEST(ShortRoads, NobodyCanTell) {
  std::size_t none = 0;
  for (std::uint32_t seed = 1; seed <= 50; ++seed)
    ASSERT_NO_FATAL_FAILURE(expectSame(seed, played(seed, {.isCalm = true}, none),
                                       played(seed, {.isLong = true, .isCalm = true}, none)));
}

// A host takes the object away from the notifiee that stands in: nothing below is told any more, or left.
TEST(StandIns, RobbedOfItsObject) {
  Watched watched;
  watched.walk();
  Kel::Ptr<GifGnmiNotifiee> row(notifieeMaps->find(pathOf(*watched.table->rows.find("a"))));
  row->notifierIs(nullptr);
  watched.router.texts.clear();
  row.reset();
  WalkHarness::clearAll();
  watched.table->rows.find("a")->box->firstIs()->textIs("unheard");
  watched.table->rowDel("a");
  EXPECT_TRUE(watched.router.texts.empty());
}

} // namespace
