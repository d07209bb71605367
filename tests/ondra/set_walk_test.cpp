// What a walk emits, a Set takes back: the round trip of the two sides over the fixture model.
#include <set>

#include <boost/algorithm/string/replace.hpp>
#include <gmock/gmock.h>

#include "Kel/Dir.h"
#include "Kel/TypeBuilder.h"
#include "Ondra/GnmiPath.h"
#include "WalkHarness.h"
#include "fixture/Populate.h"
#include "fixture/RandomEdits.h"
#include "ondra/hostile_model.h"
#include "ondra/set_support.h"

namespace {

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
  std::vector<gnmi::Update> leaves;
};

// The path without its keys, which tells leaves of one attribute from those of another.
std::string shapeOf(gnmi::Path path) {
  for (gnmi::PathElem& elem : *path.mutable_elem())
    elem.clear_key();
  return Ondra::pathToStr(path, 0, true);
}

TEST(SetWalk, WhatAWalkEmitsIsTakenBackAndChangesNothing) {
  Fixture::World world;
  auto const top = Kel::Ptr<Kel::Entity>(world.dir());
  WalkHarness harness;
  LeafRouter router;
  for (auto const& root : {Kel::Ptr<Kel::Entity>(world.device()), world.rack()}) {
    WalkHarness::Walk walk = harness.start(router, *root, Ondra::flagSnapshot);
    WalkHarness::finish(walk);
  }
  SetTest::Model const before = SetTest::modelOf(top);
  SetTest::Watch const watch(top);
  std::set<std::string> refused;
  std::size_t accepted = 0;
  for (gnmi::Update& leaf : router.leaves) {
    leaf.mutable_path()->mutable_elem()->DeleteSubrange(0, 1); // below the data root
    std::string const shape = shapeOf(leaf.path());
    // A key field of a key outside of its member goes by the name of the member's own attribute, which goes
    // by another.
    if (shape == "/device/interface/addr/vrf" || shape == "/rack/interface/addr/vrf" ||
        shape == "/device/route/vrf")
      continue;
    gnmi::SetRequest request;
    *request.add_update() = leaf;
    SetTest::execute(request, "/fixture").second.ok() ? ++accepted : refused.insert(shape).second;
  }
  EXPECT_GT(accepted, 150U);
  EXPECT_EQ((std::set<std::string>{// references, and what is keyed by one
                                   "/device/alias/_ptr", "/device/backup/_ptr", "/device/uplink/_ptr",
                                   "/device/interface/backup/_ptr", "/device/interface/peer/_ptr",
                                   "/device/route/via/_ptr", "/device/cost", "/device/link/frames",
                                   "/device/link/zone",
                                   // JSON, bytes, and floats, which are sent as doubles
                                   "/device/contacts", "/device/policyText", "/device/gauges/config",
                                   "/device/gauges/raw", "/device/gauges/fingerprint", "/device/gauges/ratio",
                                   // read-only
                                   "/device/gauges/serialNumber", "/device/interface/operational",
                                   // what goes by another name because a key field has its own
                                   "/device/interface/addr/vrfValue_", "/device/route/vrfValue_",
                                   // the same of the types described at run time
                                   "/rack/interface/peer/_ptr", "/rack/interface/operational",
                                   "/rack/interface/addr/vrfValue_"}),
            refused);
  EXPECT_EQ(std::vector<std::string>{}, SetTest::changes(before, SetTest::modelOf(top)));
  EXPECT_EQ(std::vector<std::string>{}, watch.told());
}

// Keys of every kind whose texts hold what separates the fields of structured ones.
TEST(SetWalk, OddKeysAreTakenBack) {
  Hostile::World world({});
  WalkHarness harness;
  LeafRouter router;
  world.host->placeIs({"a__b\\__", {"x\\__y"}, Hostile::Mood::LowPower}, {"n"});
  world.host->roomIs({"x__y"})->beds = 1;
  world.host->silentIs("\\__", {"n"});
  world.host->guestIs("a__b")->text = "t";
  SetTest::Model const before = SetTest::modelOf(world.dir);
  WalkHarness::Walk walk = harness.start(router, *world.host, Ondra::flagSnapshot);
  WalkHarness::finish(walk);
  std::size_t taken = 0;
  for (gnmi::Update& leaf : router.leaves) {
    if (leaf.path().elem(2).key().empty() || shapeOf(leaf.path()).ends_with("/_ptr")) continue;
    leaf.mutable_path()->mutable_elem()->DeleteSubrange(0, 1);
    gnmi::SetRequest request;
    *request.add_update() = leaf;
    EXPECT_EQ("OK", SetTest::textOf(SetTest::execute(request, "/hostile").second)) << leaf.ShortDebugString();
    ++taken;
  }
  EXPECT_GE(taken, 6U);
  EXPECT_EQ(std::vector<std::string>{}, SetTest::changes(before, SetTest::modelOf(world.dir)));
}

// A list by several keys, described at run time, whose members have them as leaves: what a walk emits makes
// the same list anew where there is none, and a leaf that contradicts its path is refused.
TEST(SetWalk, ListsBySeveralKeysAreMadeAnew) {
  auto const of = [](Kel::BuiltinKind kind) { return Kel::builtinType(kind); };
  Kel::KelType const text = of(Kel::BuiltinKind::String), number = of(Kel::BuiltinKind::U32);
  auto const mode = Kel::runtimeEnum("set-walk", "Mode", {{"SLOW", 1}, {"FAST", 2}}).value();
  auto const label =
      Kel::runtimeUnion("set-walk", "Label", {{"mode", mode}, {"text", text}, {"n", number}}).value();
  auto const share = Kel::runtimeNominal("set-walk", "Share", {"value", number}).value();
  auto const key = Kel::runtimeKey("set-walk", "Key", {{"mode", mode}, {"to", text}, {"n", number}}).value();
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
  auto const lists = {Kel::entityAt(type.genericIf(Kel::ArgList())),
                      Kel::entityAt(type.genericIf(Kel::ArgList()))};
  dir->entityIs("a", *lists.begin());
  dir->entityIs("b", *(lists.begin() + 1));

  std::string const paths[] = {"/a/entry[mode=FAST][to=x__y][n=7]", "/a/entry[mode=SLOW][to=][n=0]"};
  std::vector<SetTest::Op> ops;
  for (std::string const& path : paths)
    ops.push_back({"update", path + "/state/share", "uint_val: 30"});
  ops.push_back({"update", paths[0] + "/state/label", "string_val: 'FAST'"});
  ops.push_back({"update", paths[1] + "/state/label", "uint_val: 9"});
  ops.push_back({"update", paths[1] + "/state/labels",
                 "leaflist_val { element { string_val: 'any' } element { uint_val: 1 } }"});
  ASSERT_EQ("OK", SetTest::textOf(SetTest::execute(SetTest::requestOf(ops), "/keys").second));
  WalkHarness harness;
  LeafRouter router;
  WalkHarness::Walk walk = harness.start(router, **lists.begin(), Ondra::flagSnapshot);
  WalkHarness::finish(walk);
  EXPECT_EQ(12U, router.leaves.size()) << "three keys, a share, a label and labels each";
  gnmi::SetRequest request;
  for (gnmi::Update& leaf : router.leaves) {
    leaf.mutable_path()->mutable_elem()->DeleteSubrange(0, 1);
    leaf.mutable_path()->mutable_elem(0)->set_name("b");
    *request.add_update() = leaf;
  }
  ASSERT_EQ("OK", SetTest::textOf(SetTest::execute(request, "/keys").second));
  EXPECT_EQ(Fixture::dump(*lists.begin()),
            boost::algorithm::replace_all_copy(Fixture::dump(*(lists.begin() + 1)), "/keys/b", "/keys/a"));
  for (bool const exists : {true, false}) {
    std::string const other = exists ? paths[0] : "/a/entry[mode=SLOW][to=new][n=1]";
    EXPECT_THAT(
        SetTest::textOf(
            SetTest::execute(SetTest::requestOf({{"update", other + "/to", "string_val: 'z'"}}), "/keys")
                .second),
        testing::HasSubstr("Attribute 'to' of Type 'Entry' is fixed when the object is made"));
  }
  Kel::globalDir()->entityDel("keys");
}

} // namespace
