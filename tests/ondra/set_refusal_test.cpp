// Requests that are refused, and why; nothing has changed afterwards and nobody was told.
#include "ondra/set_support.h"

namespace {

using namespace SetTest;

struct Refusal {
  Op op;
  std::string at;
  std::string message;
};

// Nothing goes through because the path before was beside it.
void expectRefusedBesideOthers(std::vector<Refusal> const& refusals) {
  Fixture::World const world;
  Model const before = modelOf(world.device());
  for (Refusal const& refusal : refusals) {
    auto const& [op, path, value] = refusal.op;
    if (op == "delete" || path.size() > 1000) continue;
    for (Op const& beside :
         {Op{op, "/device/zones", "leaflist_val {}"}, Op{op, "/device/gauges/u16", "uint_val: 1"},
          Op{op, "/device/interface[name=eth0]/mtu", "uint_val: 1"}}) {
      auto const [response, status] = execute(requestOf({beside, {op, "/device" + path, value}}), "/fixture");
      EXPECT_TRUE(textOf(status).ends_with(refusal.message)) << path << " " << textOf(status);
    }
  }
  EXPECT_EQ(changes(before, modelOf(world.device())), Texts());
}

TEST(SetRefusal, Paths) {
  std::string deep;
  for (int i = 0; i < 10000; ++i)
    deep += "/x";
  std::string const one = "uint_val: 1", eth0 = "/interface[name=eth0]";
  std::string const fixed = "Attribute 'name' of Type 'Interface' is fixed when the object is made";
  std::vector<Refusal> const refusals = {
      {update("/gauges/x__y", one), "/gauges/x__y", "Attribute 'x__y' not found on Type 'Gauges'"},
      {update("/gauges/[k=v]", one), "/gauges/[k=v]", "Attribute '' not found on Type 'Gauges'"},
      {update("/gauges", one), "/gauges", "Path must map to a scalar type"},
      {update("", one), "", "Path must map to a scalar type"},
      {del(""), "", "The data root cannot be deleted"},
      {update("/hostname/x", "string_val: 'x'"), "/hostname",
       "Leaf element 'hostname' cannot have a sub-element"},
      {update("/uplink/_ptr", one), "/uplink/_ptr", "Attribute '_ptr' not found on Type 'Interface'"},
      {update("/uplink", "string_val: '/x'"), "/uplink", "Path must map to a scalar type"},
      {update("/backup/mtu", one), "/backup", "Path element 'backup' is not set"},
      {replace("/interface[name=eth0]/peer/mtu", one), "/peer", "Path element 'peer' is not set"},
      {update("/route[subnet__address=0][subnet__length=0][vrf=default]/via/mtu", one), "/via",
       "Leaf element 'via' cannot have a sub-element"},
      {del("/zoneLimit[k=DMZ]/x"), "/zoneLimit[k=DMZ]",
       "Leaf element 'zoneLimit[k=DMZ]' cannot have a sub-element"},
      {del("/*"), "/*", "Wildcard '*' as a path element name is not supported"},
      {update("/gauges/...", one), "/gauges/...", "Wildcard '...' as a path element name is not supported"},
      {update("/interface[name=*]/mtu", one), "/interface[name=*]",
       "Element 'interface[name=*]' with wildcard cannot be used in Update path"},
      {del("/interface[name=*]/mtu"), "/interface[name=*]",
       "Element 'interface[name=*]' with wildcard must be the leaf of the delete path"},
      {del("/interface"), "/interface",
       "Expecting a single entry in the key map for the key of type 'String'; found 0"},
      {update("/zoneLimit", "int_val: 1"), "/zoneLimit",
       "Expecting a single entry in the key map for the key of type 'Zone'; found 0"},
      {update("/hostname[k=v]", "string_val: ''"), "/hostname[k=v]",
       "Element 'hostname[k=v]' is no collection and cannot contain a key map"},
      {update("/numbers[k=1]", "leaflist_val {}"), "/numbers[k=1]",
       "Array element 'numbers[k=1]' cannot contain a key map"},
      {update("/contacts", "leaflist_val {}"), "/contacts",
       "Modifying array 'contacts' of composite type 'Contact' is not supported"},
      {del("/history"), "/history", "Members of collection 'history' cannot be addressed"},
      {del("/cost[costKey=x]"), "/cost[costKey=x]", "key of reference type 'Interface' is not supported"},
      {update(eth0 + "/addr[addr=1]/length", one), eth0 + "/addr[addr=1]",
       "Key field 'vrf' of type 'AddrKey' is missing"},
      {del(eth0 + "/addr[bogus=*]"), eth0 + "/addr[bogus=*]",
       "Attribute 'bogus' not found on Type 'AddrKey'"},
      {update(eth0 + "/vlan[id=010]/label", "string_val: ''"), eth0 + "/vlan[id=010]",
       "'010' is no value of type 'U16': expected a decimal integer without leading zeros, blanks or a "
       "plus sign"},
      {update(eth0 + "/name", "string_val: 'x'"), "/name", fixed},
      {update("/interface[name=new]/name", "string_val: 'x'"), "/name", fixed},
      {update(eth0 + "/vlan[id=10]/id", "uint_val: 11"), "/vlan[id=10]",
       "Attribute 'id' of element 'vlan[id=10]' must equal its key"},
      {del(eth0 + "/name"), "/name", "Element 'name' of Type 'Interface' cannot be deleted"},
      {update("/gauges/serialNumber", "string_val: 'SN-0001'"), "/serialNumber",
       "Attribute 'serialNumber' of Type 'Gauges' cannot be set"},
      {del("/gauges"), "/gauges", "Element 'gauges' of Type 'Device' cannot be deleted"},
      {update(deep, one), "/x", "Path of 10000 elements is too long; at most 128 are supported"}};
  std::vector<Row> rows;
  rows.reserve(refusals.size() + 1);
  for (Refusal const& refusal : refusals)
    rows.push_back({refusal.op.path.substr(0, 40), {refusal.op}, {}, notFound(refusal.at, refusal.message)});
  rows.push_back({"the first of several errors ends it",
                  {update("/gauges/u8", one), update("/a", one), update("/b", one)},
                  {},
                  notFound("/a", "Attribute 'a' not found on Type 'Device'")});
  run(rows);
  expectRefusedBesideOthers(refusals);
}

TEST(SetRefusal, Values) {
  std::vector<Refusal> const refusals = {
      {update("/hostname", ""), "/hostname", "Expecting a gnmi value in Update op path"},
      {replace("/gauges/u8", ""), "/u8", "Expecting a gnmi value in Replace op path"},
      {update("/gauges/u8", "int_val: 1"), "/u8", "Expected 'U8'; found 'int'"},
      {update("/numbers", "uint_val: 1"), "/numbers",
       "Must use leaflist_val TypedValue for an array element"},
      {update("/numbers", "leaflist_val { element { uint_val: 1 } element { int_val: 2 } }"), "/numbers",
       "Expected 'U32'; found 'int'"}};
  std::vector<Row> rows;
  rows.reserve(refusals.size());
  for (Refusal const& refusal : refusals)
    rows.push_back({refusal.op.path, {refusal.op}, {}, badArgument(refusal.at, refusal.message)});
  run(rows);
  expectRefusedBesideOthers(refusals);
}

} // namespace
