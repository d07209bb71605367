// What a walk emits, a Set takes back: the round trip of the two sides over the fixture model.

#include <boost/algorithm/string/replace.hpp>

#include "Kel/TypeBuilder.h"
#include "Ondra/GnmiPath.h"
#include "WalkHarness.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"
#include "ondra/hostile_model.h"
#include "ondra/set_support.h"

namespace {

using Leaves = std::vector<gnmi::Update>;

// Keeps the leaves as messages, with their absolute paths.
class LeafRouter final : public Ondra::BaseRouter {
public:
  bool push(Ondra::SyncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& resp) override {
    gnmi::Notification const& sent = resp->response->update();
    for (gnmi::Update const& update : sent.update()) {
      gnmi::Update& leaf = leaves.emplace_back();
      *leaf.mutable_path() = sent.prefix();
      leaf.mutable_path()->MergeFrom(update.path());
      *leaf.mutable_val() = update.val();
    }
    return true;
  }
  Leaves leaves;
};

// What a walk of the object emits, with paths below the directory in which it is; by another name there.
Leaves leavesOf(Kel::Entity const& object, std::string const& name) {
  WalkHarness harness;
  LeafRouter router;
  harness.walked(router, object, Ondra::flagSnapshot);
  for (gnmi::Update& leaf : router.leaves) {
    leaf.mutable_path()->mutable_elem()->DeleteSubrange(0, 1);
    leaf.mutable_path()->mutable_elem(0)->set_name(name);
  }
  return router.leaves;
}

std::string answerTo(Leaves const& leaves, std::string const& root) {
  gnmi::SetRequest request;
  request.mutable_update()->Add(leaves.begin(), leaves.end());
  return SetTest::textOf(SetTest::execute(request, root).second);
}

// The path without its keys, which tells leaves of one attribute from those of another.
std::string shapeOf(gnmi::Path path) {
  for (gnmi::PathElem& elem : *path.mutable_elem())
    elem.clear_key();
  return Ondra::pathToStr(path, 1, true);
}

// A key field of a key outside of its member goes by the name of the member's own attribute.
bool isKeysOwn(gnmi::Update const& leaf) {
  std::string const shape = shapeOf(leaf.path());
  return shape == "/interface/addr/vrf" || shape == "/route/vrf";
}

TEST(SetWalk, WhatAWalkEmitsIsTakenBackAndChangesNothing) {
  Fixture::World world;
  auto const top = Kel::Ptr<Kel::Entity>(world.dir());
  SetTest::Model const before = SetTest::modelOf(top);
  SetTest::Watch const watch(top);
  std::set<std::string> refused;
  std::size_t accepted = 0;
  for (auto const& root : {Kel::Ptr<Kel::Entity>(world.device()), world.rack()}) {
    for (gnmi::Update const& leaf : leavesOf(*root, root->name().str()))
      if (!isKeysOwn(leaf))
        answerTo({leaf}, "/fixture") == "OK" ? ++accepted : refused.insert(shapeOf(leaf.path())).second;
  }
  EXPECT_GT(accepted, 150U);
  EXPECT_EQ(
      (std::set<std::string>{// references, and what is keyed by one
                             "/alias/_ptr", "/backup/_ptr", "/uplink/_ptr", "/interface/backup/_ptr",
                             "/interface/peer/_ptr", "/route/via/_ptr", "/cost", "/link/frames", "/link/zone",
                             // JSON, bytes, and floats, which are sent as doubles
                             "/contacts", "/policyText", "/gauges/config", "/gauges/raw",
                             "/gauges/fingerprint", "/gauges/ratio",
                             // read-only
                             "/gauges/serialNumber", "/interface/operational",
                             // what goes by another name because a key field has its own
                             "/interface/addr/vrfValue_", "/route/vrfValue_"}),
      refused);
  EXPECT_EQ(std::vector<std::string>{}, SetTest::changes(before, SetTest::modelOf(top)));
  EXPECT_EQ(std::vector<std::string>{}, watch.told());
}

// Each leaf by itself, or all in one request, in any order and with keys by any name: the same.
TEST(SetWalk, WhatAWalkEmitsMakesTheSameAnew) {
  for (std::uint32_t seed = 0; seed < 25; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Fixture::World world;
    Fixture::RandomEdits edits(world.device(), seed);
    for (std::uint32_t left = 8 * seed; left > 0; --left)
      edits.edit();
    Kel::Ptr<Fixture::Device> const single(new Fixture::Device()), together(new Fixture::Device());
    world.dir()->entityIs("single", single);
    world.dir()->entityIs("together", together);
    Leaves taken = leavesOf(*world.device(), "single");
    std::erase_if(taken,
                  [](auto const& leaf) { return isKeysOwn(leaf) || answerTo({leaf}, "/fixture") != "OK"; });
    EXPECT_GT(taken.size(), 50U);
    Leaves others = taken;
    std::mt19937 random(seed);
    std::shuffle(others.begin(), others.end(), random);
    for (gnmi::Update& leaf : others) {
      leaf.mutable_path()->mutable_elem(0)->set_name("together");
      for (gnmi::PathElem& elem : *leaf.mutable_path()->mutable_elem()) {
        if (elem.key_size() != 1 || random() % 4 != 0) continue;
        std::string const key = elem.key().begin()->second;
        elem.clear_key();
        (*elem.mutable_key())["other"] = key;
      }
    }
    EXPECT_EQ("OK", answerTo(others, "/fixture"));
    auto const textsOf = [](Leaves const& leaves) {
      std::set<std::string> texts;
      for (gnmi::Update const& leaf : leaves)
        texts.insert(Ondra::pathToStr(leaf.path(), 1, true) + " " + leaf.val().ShortDebugString());
      return texts;
    };
    auto const made = textsOf(leavesOf(*single, ""));
    EXPECT_EQ(made, textsOf(leavesOf(*together, "")));
    for (std::string const& leaf : textsOf(taken))
      EXPECT_TRUE(made.contains(leaf)) << leaf;
  }
}

// Keys of every kind whose texts hold what separates the fields of structured ones.
TEST(SetWalk, OddKeysAreTakenBack) {
  std::mt19937 random(1);
  for (int round = 0; round < 100; ++round) {
    auto const text = [&random] {
      std::string made(1 + random() % 12, ' ');
      for (char& c : made)
        c = "_\\a*\""[random() % 5];
      return Kel::String(made == "*" ? "_" : made);
    };
    Hostile::World world({});
    world.host->placeIs({text(), {text()}, Hostile::Mood::LowPower}, {"n"});
    world.host->roomIs({text()})->beds = 1;
    world.host->silentIs(text(), {"n"});
    world.host->guestIs(text())->text = "t";
    SetTest::Model const before = SetTest::modelOf(world.dir);
    std::size_t taken = 0;
    for (gnmi::Update const& leaf : leavesOf(*world.host, "host")) {
      if (leaf.path().elem(1).key().empty() || shapeOf(leaf.path()).ends_with("/_ptr")) continue;
      EXPECT_EQ("OK", answerTo({leaf}, "/hostile")) << leaf.ShortDebugString();
      ++taken;
    }
    EXPECT_GE(taken, 6U);
    EXPECT_EQ(std::vector<std::string>{}, SetTest::changes(before, SetTest::modelOf(world.dir)));
  }
}

// A list by several keys, described at run time, whose members have some of them as leaves: what a walk emits
// makes the same list anew, and a leaf that contradicts its path is refused.
TEST(SetWalk, ListsBySeveralKeysAreMadeAnew) {
  auto const of = [](Kel::BuiltinKind kind) { return Kel::builtinType(kind); };
  Kel::KelType const text = of(Kel::BuiltinKind::String), number = of(Kel::BuiltinKind::U32);
  auto const mode = Kel::runtimeEnum("set-walk", "Mode", {{"SLOW", 1}, {"FAST", 2}}).value();
  auto const label =
      Kel::runtimeUnion("set-walk", "Label", {{"mode", mode}, {"text", text}, {"n", number}}).value();
  auto const share = Kel::runtimeNominal("set-walk", "Share", {"value", number}).value();
  auto const key =
      Kel::runtimeKey("set-walk", "Key", {{"mode", mode}, {"to", text}, {"n", number}, {"via", text}})
          .value();
  Kel::TypeBuilder state("set-walk", "State", Kel::TypeKind::Entity),
      entry("set-walk", "Entry", Kel::TypeKind::Entity), list("set-walk", "List", Kel::TypeKind::Entity);
  state.attr("label", label).optional().settable().attr("share", share).optional().settable();
  state.array("labels", label).settable();
  entry.attr("mode", mode)
      .ctorArg()
      .keyField()
      .attr("to", text)
      .ctorArg()
      .keyField()
      .attr("n", number)
      .keyField();
  entry.instantiating("state", state.done().value()).removable(false).embedded();
  list.instantiating("entry", key, entry.done().value());
  Kel::KelType const type = list.done().value();
  Kel::Ptr<Kel::Dir> const dir = Kel::globalDir()->dirIs("keys");
  auto const a = Kel::entityAt(type.genericIf(Kel::ArgList())),
             b = Kel::entityAt(type.genericIf(Kel::ArgList()));
  dir->entityIs("a", a);
  dir->entityIs("b", b);

  std::string const full = "/a/entry[mode=FAST][to=x__y][n=7][via=a]",
                    bare = "/a/entry[mode=SLOW][to=][n=0][via=]";
  auto const answer = [](std::vector<SetTest::Op> const& ops) {
    return SetTest::textOf(SetTest::execute(SetTest::requestOf(ops), "/keys").second);
  };
  using SetTest::update;
  ASSERT_EQ("OK", answer({update(full + "/state/share", "uint_val: 30"),
                          update(bare + "/state/share", "uint_val: 30"),
                          update(full + "/state/label", "string_val: 'FAST'"),
                          update(bare + "/state/label", "uint_val: 9"),
                          update(bare + "/state/labels",
                                 "leaflist_val { element { string_val: 'any' } element { uint_val: 1 } }")}));
  EXPECT_THAT(Fixture::dump(a),
              testing::AllOf(testing::HasSubstr("  to[] = \"x__y\"\n"), testing::HasSubstr("  n[] = 7\n")))
      << "members have their keys";
  Leaves const leaves = leavesOf(*a, "b");
  EXPECT_EQ(12U, leaves.size()) << "three keys, a share, a label and labels each";
  ASSERT_EQ("OK", answerTo(leaves, "/keys"));
  EXPECT_EQ(Fixture::dump(a), boost::algorithm::replace_all_copy(Fixture::dump(b), "/keys/b", "/keys/a"));
  for (std::string const& other : {full, std::string("/a/entry[mode=SLOW][to=new][n=1][via=]")})
    EXPECT_THAT(answer({update(other + "/to", "string_val: 'z'")}),
                testing::HasSubstr("Attribute 'to' of Type 'Entry' is fixed when the object is made"));
  Kel::globalDir()->entityDel("keys");
}

} // namespace
