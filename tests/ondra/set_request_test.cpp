// Whole requests: what is asked, how it is answered, what has changed afterwards.
#include "Kel/Error.h"
#include "Ondra/KelGnmiSetter.h"
#include "Ondra/Path.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "Tovak/TraceSink.h"
#include "ondra/hostile_model.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;

std::string const kContactWas = " contact[]: {person=\"Ada\", phone={country=44, number=\"555-1\"}} -> ";

std::string deletedAndUsed(std::string const& element, std::string const& op) {
  return notFound("/" + element, "Path element '" + element +
                                     "' deleted in the same request cannot be used in " + op + " op");
}

// That leaves of every kind are taken, and make what holds them, is the round trip's (set_walk_test.cpp).
TEST(SetRequest, Updates) {
  std::string const eth0 = "/device/interface[name=eth0]";
  run({
      {"nothing", {}, {}},
      {"the later of two wins",
       {update("/gauges/u8", "uint_val: 1"), update("/gauges/u8", "uint_val: 2")},
       {"/device/gauges u8[]: 200 -> 2"}},
      {"one field of a nested value, the others stay",
       {prefix("/interface[name=eth0]"), update("/contact/phone/country", "uint_val: 1")},
       {eth0 + kContactWas + "{person=\"Ada\", phone={country=1, number=\"555-1\"}}"}},
      {"arrays, one of them emptied",
       {replace("/switches", "leaflist_val { }"),
        update("/numbers", "leaflist_val { element { uint_val: 9 } }")},
       {"/device numbers[0]: 3 -> 9", "/device numbers[1]: 1 -> nothing", "/device numbers[2]: 2 -> nothing",
        "/device switches[0]: true -> nothing", "/device switches[1]: false -> nothing",
        "/device switches[2]: true -> nothing"}},
      {"one member by two spellings is written once, with both",
       {prefix("/interface[name=eth0]"), update("/vlan[id=50]/label", "string_val: 'x'"),
        update("/vlan[other=50]/id", "uint_val: 50")},
       {eth0 + " vlan[50]: nothing -> {id=50, label=\"x\"}"}},
      {"through references, also a replace, which makes nothing anew",
       {replace("/uplink/mtu", "uint_val: 1"), update("/alias[k=wan]/peer/mtu", "uint_val: 2")},
       {eth0 + " mtu[]: 1501 -> 1", "/device/interface[name=eth1] mtu[]: 1502 -> 2"}},
  });
}

TEST(SetRequest, MembersWithinAValue) {
  Fixture::World world;
  EXPECT_EQ("OK",
            textOf(execute(requestOf({prefix("/policy"), del("limit[limitKey=web]"),
                                      update("limit[limitKey=ssh]", "uint_val: 6"),
                                      update("limit[limitKey=new]", "uint_val: 7"),
                                      update("actions", "leaflist_val { element { string_val: 'a' } }")}))
                       .second));
  Fixture::Policy const& policy = world.device()->policy;
  EXPECT_EQ("strict", policy.title.str());
  EXPECT_EQ((std::vector<Kel::String>{"a"}), policy.actions);
  ASSERT_EQ(2U, policy.limit.size());
  EXPECT_EQ(6U, *policy.limit.find("ssh"));
  EXPECT_EQ(7U, *policy.limit.find("new"));
}

TEST(SetRequest, Deletes) {
  std::string const eth0 = "/device/interface[name=eth0]", eth1 = "/device/interface[name=eth1]";
  run({
      {"a scalar goes to its default, an optional one away",
       {prefix("/gauges"), del("u8"), del("offset"), del("duplex"), del("selector"), del("choice")},
       {"/device/gauges choice[]: 17 -> nothing", "/device/gauges duplex[]: 'HALF' -> 'AUTO'",
        "/device/gauges offset[]: -5 -> nothing", "/device/gauges selector[]: \"by hand\" -> 'INSIDE'",
        "/device/gauges u8[]: 200 -> 0"}},
      {"what is not there leaves no trace",
       {del("/gauges/note"), del("/nothing/at/all"), del("/interface[name=eth9]"),
        del("/interface[name=eth9]/mtu"), del("/interface[name=eth1]/deputy/phone/number"),
        del("/interface[name=eth0]/vlan[id=99]/label"), update("/interface[name=eth0]/mtu", "uint_val: 1")},
       {eth0 + " mtu[]: 1501 -> 1"}},
      {"references and an array",
       {del("/uplink"), del("/alias[aliasKey=wan]"), del("/zones")},
       {"/device alias[\"wan\"]: /fixture/device/interface[name=eth0] -> nothing",
        "/device uplink[]: /fixture/device/interface[name=eth0] -> nothing",
        "/device zones[0]: 'DMZ' -> nothing", "/device zones[1]: 'INSIDE' -> nothing"}},
      {"a value, and a field of one",
       {prefix("/interface[name=eth0]"), del("deputy"), del("contact/phone")},
       {eth0 + kContactWas + "{person=\"Ada\", phone={country=0, number=\"\"}}",
        eth0 + " deputy[]: {person=\"Grace\", phone={country=1, number=\"555-99\"}} -> nothing"}},
      {"an entity",
       {del("/chassis/fan")},
       {"/device/chassis fan[]: /fixture/device/chassis/fan -> nothing",
        "/device/chassis/fan: Fan -> nothing"}},
      {"wildcards over what is keyed by references, under any name",
       {del("/cost[x=*]"), del("/link[y=*]")},
       {"/device cost[/fixture/device/interface[name=eth0]]: 10 -> nothing",
        "/device cost[/fixture/device/interface[name=eth1]]: 20 -> nothing",
        "/device link[/fixture/device/interface[name=eth0]]: {zone='OUTSIDE', frames=1000} -> "
        "nothing",
        "/device link[/fixture/device/interface[name=eth1]]: {zone='INSIDE', frames=2000} -> "
        "nothing"}},
      {"a filter on the first and on the second field",
       {prefix("/interface[name=eth0]"), del("/addr[vrf=red][addr=*]"), del("/addr[vrf=*][addr=1]")},
       {eth0 + " addr[{vrf=\"red\", addr=167772162}]: {length=32, vrf=\"blue\"} -> nothing"}},
      {"a part of a member, and all members, in this order or the other",
       {del("/interface[name=eth0]/vlan[id=10]/label"), del("/interface[name=eth0]/vlan[id=*]"),
        del("/interface[name=eth1]/vlan[id=*]"), del("/interface[name=eth1]/vlan[id=10]/label"),
        del("/interface[name=eth1]/lane[k=*]"), del("/interface[name=eth1]/lane[k=INSIDE]/power")},
       {eth0 + " vlan[10]: {id=10, label=\"voice\"} -> nothing",
        eth0 + " vlan[20]: {id=20, label=\"data\"} -> nothing",
        eth1 + " lane['INSIDE']: /fixture" + eth1 + "/lane[laneKey=INSIDE] -> nothing",
        eth1 + " lane['OUTSIDE']: /fixture" + eth1 + "/lane[laneKey=OUTSIDE] -> nothing",
        eth1 + " vlan[10]: {id=10, label=\"voice\"} -> nothing",
        eth1 + " vlan[20]: {id=20, label=\"data\"} -> nothing",
        eth1 + "/lane[laneKey=INSIDE]: Lane -> nothing", eth1 + "/lane[laneKey=OUTSIDE]: Lane -> nothing"}},
  });
}

TEST(SetRequest, PhasesTogether) {
  std::string const eth0 = "/device/interface[name=eth0]", queue = eth0 + "/unit[id=0]/queue[number=1]";
  run({
      {"a delete and an update within one value",
       {prefix("/interface[name=eth0]/contact"), del("person"), del("phone"),
        update("phone/country", "uint_val: 2")},
       {eth0 + kContactWas + "{person=\"\", phone={country=2, number=\"\"}}"}},
      {"a replace makes the value anew, an update goes on from it",
       {prefix("/interface[name=eth0]"), replace("contact/phone/country", "uint_val: 2"),
        update("contact/person", "string_val: 'P'")},
       {eth0 + kContactWas + "{person=\"P\", phone={country=2, number=\"\"}}"}},
      {"a replace of a member keeps its key",
       {prefix("/interface[name=eth0]"), replace("vlan[id=10]/id", "uint_val: 10")},
       {eth0 + " vlan[10]: {id=10, label=\"voice\"} -> {id=10, label=\"\"}"}},
      {"what the prefix names is not made anew",
       {prefix("/interface[name=eth0]/contact"), replace("person", "string_val: 'P'")},
       {eth0 + kContactWas + "{person=\"P\", phone={country=44, number=\"555-1\"}}"}},
      {"nor is what its attribute keeps",
       {replace("/gauges/u8", "uint_val: 1")},
       {"/device/gauges u8[]: 200 -> 1"}},
      {"an entity on the path proper is",
       {prefix("/interface[name=eth0]/unit[id=0]"), replace("queue[number=1]/weight", "uint_val: 3")},
       {queue + " depth[]: 1001 -> 0", queue + " weight[]: 41 -> 3"}},
      {"one entity in several phases through the prefix",
       {prefix("/chassis"), del("fan/rpm"), replace("model", "string_val: 'r'"),
        update("model", "string_val: 'u'")},
       {"/device/chassis model[]: \"two slots\" -> \"u\"", "/device/chassis/fan rpm[]: 4800 -> 0"}},
      {"one entity in several phases on the path",
       {del("/chassis/fan/rpm"), update("/chassis/model", "string_val: 'u'")},
       {},
       notFound("/chassis",
                "Same entity element 'chassis' cannot be used in multiple ops, Delete and Update")},
      {"deleted and used",
       {del("/interface[name=eth0]"), update("/interface[name=eth0]/mtu", "uint_val: 1")},
       {},
       deletedAndUsed("interface[name=eth0]", "Update")},
      {"deleted and used, on the prefix",
       {prefix("/chassis"), del(""), replace("fan/rpm", "uint_val: 1")},
       {},
       deletedAndUsed("chassis", "Replace")},
      {"deleted by a wildcard and used",
       {del("/zoneLimit[k=*]"), update("/zoneLimit[k=DMZ]", "uint_val: 1")},
       {},
       deletedAndUsed("zoneLimit[k=DMZ]", "Update")},
      {"not deleted by the filter",
       {prefix("/interface[name=eth0]"), del("/addr[vrf=red][addr=*]"),
        update("/addr[vrf=blue][addr=1]/length", "uint_val: 1")},
       {eth0 + " addr[{vrf=\"blue\", addr=1}]: nothing -> {length=1, vrf=\"\"}",
        eth0 + " addr[{vrf=\"red\", addr=167772162}]: {length=32, vrf=\"blue\"} -> nothing"}},
  });
}

TEST(SetRequest, Directories) {
  run({{"an entity of a directory is not made anew",
        {replace("/shelf/spare/mtu", "uint_val: 5")},
        {"/shelf/spare mtu[]: 1509 -> 5"}},
       {"is removed unless it is fixed",
        {del("/rack"), del("/shelf/spare")},
        {},
        notFound("/spare", "Element 'spare' of Type 'Dir' cannot be deleted")},
       {"nor with its directory",
        {del("/rack"), del("/shelf")},
        {},
        notFound("/shelf", "Element 'shelf' of Type 'Dir' cannot be deleted")},
       {"keys",
        {update("/device[k=v]/hostname", "string_val: 'h'")},
        {},
        notFound("/device[k=v]", "Path element 'device[k=v]' under Kel::Dir cannot have a key")},
       {"missing",
        {update("/desk/x", "uint_val: 1")},
        {},
        notFound("/desk", "Path element 'desk' is not set")},
       {"missing, deleted", {del("/desk/x")}, {}}},
      "/fixture");
  Fixture::World const world;
  EXPECT_EQ("OK", textOf(execute(requestOf({del("/rack")}), "/fixture").second));
  EXPECT_FALSE(world.dir()->entity("rack"));
}

TEST(SetRequest, DataRoot) {
  Fixture::World const world;
  auto const refusal = [](std::string const& root) { return textOf(execute(requestOf({}), root).second); };
  EXPECT_EQ("OK", refusal("/fixture/device/interface[name=eth0]"));
  EXPECT_EQ(notFound("/none/device", "Path element 'none' is not set"), refusal("/none/device"));
  EXPECT_EQ(
      notFound("/fixture/device/interface[name=x]", "Data root path element 'interface[name=x]' is not set"),
      refusal("/fixture/device/interface[name=x]"));
  EXPECT_EQ(notFound("/fixture/device/policy", "Data root path leads to no entity"),
            refusal("/fixture/device/policy"));
  Tovak::ScopedAssertHandler const throwing;
  EXPECT_THROW(Ondra::KelGnmiSet::Set(Ondra::Path::PathIs(), {}), Tovak::AssertionError);
}

// Also in a response that has been used before.
TEST(SetRequest, TheResponseListsAllOperationsWhateverTheOutcome) {
  Fixture::World const world;
  gnmi::SetResponse response;
  for (auto const& ops :
       {std::vector<Op>{prefix("/p"), update("/a", "uint_val: 1"), del("/b"), replace("/c", "uint_val: 1")},
        std::vector<Op>{update("/gauges/u8", "uint_val: 1"), update("/gauges/u16", "uint_val: 2")}}) {
    gnmi::SetRequest const request = requestOf(ops);
    gnmi::SetRequest own = request;
    auto const root = Ondra::Path::strToPathIs("/fixture/device");
    EXPECT_EQ(ops.size() == 2, Ondra::KelGnmiSet::Set(root, own, response).executeInPlace().ok());
    gnmi::SetResponse expected;
    *expected.mutable_prefix() = request.prefix();
    auto const add = [&expected](gnmi::UpdateResult::Operation op, gnmi::Path const& path) {
      gnmi::UpdateResult& result = *expected.add_response();
      result.set_op(op);
      *result.mutable_path() = path;
    };
    for (gnmi::Path const& path : request.delete_())
      add(gnmi::UpdateResult::DELETE, path);
    for (gnmi::Update const& one : request.replace())
      add(gnmi::UpdateResult::REPLACE, one.path());
    for (gnmi::Update const& one : request.update())
      add(gnmi::UpdateResult::UPDATE, one.path());
    EXPECT_EQ(expected.DebugString(), response.DebugString());
  }
}

TEST(SetRequest, EntitiesOfDirectoriesAreRecordedAsTouchedAlsoByRefusedRequests) {
  Fixture::World const world;
  auto const session = Kel::Entity::singleton<Ondra::GnmiSetSessionState>();
  session->dirtyPathDelAll();
  EXPECT_EQ("OK", textOf(execute(requestOf({del("/shelf/none"), del("/rack/none/x")}), "/fixture").second));
  EXPECT_TRUE(session->dirtyPath.empty());
  EXPECT_EQ("OK",
            textOf(execute(requestOf({update("/device/hostname", "string_val: 'h'")}), "/fixture").second));
  EXPECT_NE("OK", textOf(execute(requestOf({update("/shelf/spare/x", "uint_val: 1")}), "/fixture").second));
  Texts names;
  for (auto const& [name, unused] : session->dirtyPath)
    names.push_back(name.str());
  EXPECT_EQ((Texts{"/fixture/device", "/fixture/shelf/spare"}), names);
}

TEST(SetRequest, EveryStepOfEveryPathIsTraced) {
  Fixture::World const world;
  Tovak::ScopedTraceSink const sink;
  ASSERT_TRUE(Tovak::Platform::traceIs("OndraKelGnmiSet/6").ok());
  auto const ops = {del("/chassis"), update("/gauges/u8", "uint_val: 1"),
                    update("/gauges/u16", "uint_val: 1"), update("/chassis/model", "string_val: ''")};
  EXPECT_NE("OK", textOf(execute(requestOf(ops)).second));
  ASSERT_TRUE(Tovak::Platform::traceIs("").ok());
  auto const lines = sink.lines();
  EXPECT_EQ(2, std::count(lines.begin(), lines.end(),
                          "OndraKelGnmiSet/6 Inserting a suffix under element 'gauges'"));
  EXPECT_TRUE(sink.contains("Element 'chassis' is marked as getting deleted"));
}

// An entity that is made anew: its observers learn of its end before anybody hears of the new one.
TEST(SetRequest, AnEntityIsRemadeInOrder) {
  Fixture::World world;
  Kel::Ptr<Kel::Entity> const old = world.device()->interfaces.find("eth1")->unitIs(0)->queueIs(1);
  Watch const watch(world.device());
  EXPECT_EQ("OK", textOf(execute(requestOf({prefix("/interface[name=eth1]/unit[id=0]"),
                                            replace("queue[number=1]/depth", "uint_val: 4")}))
                             .second));
  std::string const unit = "/fixture/device/interface[name=eth1]/unit[id=0]";
  EXPECT_EQ((Texts{unit + " queue[1]", unit + "/queue[number=1] end", unit + " queue[1]"}), watch.told());
  EXPECT_TRUE(old->isOrphan());
}

// A setter refuses what nobody could have asked beforehand.
TEST(SetRequest, AFailingCommitKeepsWhatWasWrittenBefore) {
  Hostile::World const world({});
  Hostile::trap().act = [](Hostile::Call) { throw Kel::Error("not today"); };
  auto const outcome =
      execute(requestOf({update("guest[tag=a]/tag", "string_val: 'a'"), update("label", "string_val: 'b'"),
                         update("mood", "string_val: 'LOW__POWER'")}),
              "/hostile/host");
  Hostile::trap().act = nullptr;
  EXPECT_EQ(notFound("/label", "not today"), textOf(outcome.second));
  EXPECT_EQ(1U, world.host->guests.size());
  EXPECT_EQ(Hostile::Mood::Calm, world.host->mood);
}

} // namespace
