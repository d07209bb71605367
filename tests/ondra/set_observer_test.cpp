// Observers that change the model, raise, or ask for another Set while a Set is being committed: the answer
// tells the truth, and the model is whole afterwards. Meant for the run under the address sanitizer too.
#include <algorithm>
#include <stdexcept>

#include "Tovak/TraceSink.h"
#include "fixture/Observer.h"
#include "ondra/set_support.h"

namespace {

using namespace SetTest;
using Kel::Entity;

struct Reaction {
  std::string what;
  std::vector<Op> ops;
  std::string when; // what the device, or its interface "eth0", is told of
  std::function<void(Fixture::Device&)> act;
  Texts changed;
  std::string status = "OK";
};

TEST(SetObservers, OfEachKind) {
  std::string const eth0 = "/device/interface[name=eth0]", made = "/device/interface[name=new]";
  std::string const gone = "' was removed while the request was committed";
  Op const first = update("/hostname", "string_val: 'h'"), second = update("/gauges/u8", "uint_val: 1");
  Op const mtu = update("/interface[name=new]/mtu", "uint_val: 1"), in = prefix("/interface[name=eth0]");
  std::string const hostname = "/device hostname[]: \"fixture\" -> \"h\"",
                    cleared = hostname.substr(0, 34) + '"';
  std::string const u8 = "/device/gauges u8[]: 200 -> 1", mine = made + " description[]: nothing -> \"mine\"";
  std::string const contactWas = " contact[]: {person=\"Ada\", phone={country=44, number=\"555-1\"}} -> ";
  auto const eth = [](auto& device) { return device.interfaces.find("eth0"); };
  auto const makes = [](auto& device) { device.interfaceIs("new")->descriptionIs("mine"); };
  for (Reaction const& row : std::vector<Reaction>{
           {"takes away what is being written",
            {mtu, second},
            "interface[\"new\"]",
            [](auto& device) { device.interfaceDel("new"); },
            {},
            notFound("/mtu", "Path element 'interface[name=new]" + gone)},
           {"puts another in its place",
            {mtu, second},
            "interface[\"new\"]",
            [&](auto& device) { device.interfaceDel("new"), makes(device); },
            {mine, made + " mtu[]: nothing -> 1", u8}},
           {"makes what was about to be made",
            {first, mtu},
            "hostname",
            makes,
            {hostname, mine, made + " mtu[]: nothing -> 1"}},
           {"makes again what is being made anew",
            {in, replace("optics/vendor", "string_val: 'v'")},
            "optics",
            [&](auto& device) { eth(device)->opticsIs(); },
            {eth0 + "/optics vendor[]: \"glass & sons\" -> \"\""},
            notFound("/optics",
                     "attribute 'optics' of type 'Interface': an observer has made the entity again "
                     "while it was being replaced")},
           {"takes away the data root",
            {first, second},
            "hostname",
            [](auto&) { Kel::globalDir()->dirIs("fixture")->entityDel("device"); },
            {},
            notFound("/gauges", "Path element 'device" + gone)},
           {"changes a structure beside the leaf",
            {first, update("/interface[name=eth0]/contact/phone/country", "uint_val: 1")},
            "hostname",
            [&](auto& device) {
              eth(device)->contactIs(Fixture::Contact{"Bob", {2, "9"}});
            },
            {hostname, eth0 + contactWas + "{person=\"Bob\", phone={country=1, number=\"9\"}}"}},
           {"clears a structure of which a part is deleted",
            {del("/hostname"), del("/interface[name=eth0]/deputy/person")},
            "hostname",
            [&](auto& device) { eth(device)->deputyIs(std::nullopt); },
            {cleared,
             eth0 + " deputy[]: {person=\"Grace\", phone={country=1, number=\"555-99\"}} -> nothing"}},
           {"makes again what a later delete names",
            {del("/hostname"), del("/interface[name=eth0]/unit[id=0]")},
            "hostname",
            [&](auto& device) {
              auto const port = Kel::GenericIf::toObject(static_cast<Kel::PtrInterface*>(eth(device)));
              port->type().attr("unit").genericIfSet(port, Kel::ArgList{Kel::handleOf(std::uint32_t{0})});
            },
            {cleared, eth0 + "/unit[id=0]: Unit -> nothing"}},
           {"takes away what loses a part",
            {in, del("description"), del("deputy")},
            "description",
            [](auto& device) { device.interfaceDel("eth0"); },
            {eth0 + ": Interface -> nothing"}},
           {"takes away one of those that are deleted",
            {in, del("vlan[id=*]")},
            "vlan[10]",
            [&](auto& device) { eth(device)->vlanDel(20); },
            {eth0 + " vlan[10]: {id=10, label=\"voice\"} -> nothing",
             eth0 + " vlan[20]: {id=20, label=\"data\"} -> nothing"}},
           {"asks for another Set",
            {first, second},
            "hostname",
            [](auto&) {
              EXPECT_EQ("OK", textOf(execute(requestOf({update("/uplink/mtu", "uint_val: 9")})).second));
            },
            {hostname, u8, eth0 + " mtu[]: 1501 -> 9"}},
           {"raises",
            {first, second},
            "hostname",
            [](auto&) { throw std::logic_error("mine"); },
            {hostname, u8}},
       }) {
    SCOPED_TRACE(row.what);
    Fixture::World world;
    Model const before = modelOf(world.dir());
    Tovak::ScopedTraceSink const sink;
    bool isDone = false;
    std::vector<Kel::Ptr<Fixture::Observer>> observers;
    for (Entity* const at : {static_cast<Entity*>(world.device().get()),
                             static_cast<Entity*>(world.device()->interfaces.find("eth0"))}) {
      at->hasNotificationActiveIs(true);
      observers.emplace_back(new Fixture::Observer(at, [&](auto const& told) {
        if (told == row.when && !std::exchange(isDone, true)) row.act(*world.device());
      }));
    }
    EXPECT_EQ(row.status, textOf(execute(requestOf(row.ops)).second));
    EXPECT_TRUE(isDone);
    EXPECT_EQ(row.what == "raises", sink.contains("Dropped what was raised while it was told: mine"));
    Texts const changed = changes(before, modelOf(world.dir()));
    for (std::string const& text : row.changed)
      EXPECT_TRUE(std::any_of(changed.begin(), changed.end(), [&text](auto const& one) {
        return one.starts_with(text);
      })) << text;
  }
}

// Also of one that the request names by two spellings of its entity's key.
TEST(SetObservers, AreToldOfALeafOnce) {
  Fixture::World const world;
  Texts told;
  Kel::Ptr<Fixture::Observer> const observer(new Fixture::Observer(
      world.device()->interfaces.find("eth0"), [&told](std::string const& what) { told.push_back(what); }));
  auto const [response, status] = execute(requestOf({update("/interface[name=eth0]/mtu", "uint_val: 1"),
                                                     update("/interface[other=eth0]/speed", "uint_val: 2"),
                                                     update("/interface[name=eth0]/speed", "uint_val: 3")}));
  EXPECT_EQ("OK", textOf(status));
  EXPECT_EQ((Texts{"mtu", "speed"}), told);
}

} // namespace
