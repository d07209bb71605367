// Get: encodings, types, wildcards, what is told of what is not there.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

#include "Ondra/GnmiPath.h"
#include "agent/data/GetRun.h"
#include "agent/encoding/JsonText.h"
#include "agent/encoding/LeafEncoding.h"
#include "agent/encoding/LeafValue.h"
#include "service/data_testing.h"

namespace {

using namespace ServiceTesting;
using gnmi::GetRequest, gnmi::JSON, gnmi::JSON_IETF, gnmi::PROTO, grpc::StatusCode, nlohmann::json;
using namespace std::string_literals;

class DataGet : public testing::Test {
protected:
  DataGet() { bench.fill(); }
  DataBench bench;
};

TEST_F(DataGet, containersAndListsWithTheirModules) {
  // Members carry their module at the top, and below where it is another one than the parent's.
  EXPECT_EQ(
      bench.value("/interfaces/interface[name=eth0]/subinterfaces", JSON_IETF, GetRequest::CONFIG),
      R"({"openconfig-interfaces:subinterface":[{"index":0,"config":{"index":0,"description":"all of it",)"
      R"("enabled":true},"openconfig-if-ip:ipv4":{"config":{"enabled":true},"addresses":{"address":[)"
      R"({"ip":"192.0.2.1","config":{"ip":"192.0.2.1","prefix-length":24}},)"
      R"({"ip":"192.0.2.2","config":{"ip":"192.0.2.2","prefix-length":24}}]}},)"
      R"("openconfig-if-ip:ipv6":{"config":{"enabled":true},"addresses":{"address":[)"
      R"({"ip":"2001:db8::1","config":{"ip":"2001:db8::1","prefix-length":64,"type":"GLOBAL_UNICAST"}}]}}}]})");
}

// The entries of lists in one order: a walk's texts sort keys otherwise than the model does.
json inOneOrder(json value) {
  if (value.is_structured())
    for (json& each : value)
      each = inOneOrder(each);
  if (value.is_array()) std::sort(value.begin(), value.end());
  return value;
}

// Behind "..." an object's leaves come one by one, by a walk; without it the object is read whole.
TEST_F(DataGet, objectsReadWholeAreWhatTheirLeavesAre) {
  std::set<std::string> places = {""};
  for (auto const& [leaf, value] : bench.leaves()) {
    gnmi::Path place = path(leaf);
    for (place.mutable_elem()->RemoveLast(); place.elem_size() > 0; place.mutable_elem()->RemoveLast()) {
      places.insert(text(place));
      gnmi::Path list = place; // all its entries, one update for each
      list.mutable_elem(list.elem_size() - 1)->clear_key();
      places.insert(text(list));
    }
  }
  EXPECT_GT(places.size(), 100U);
  auto const answer = [this](std::string const& place, gnmi::Encoding encoding, GetRequest::DataType type,
                             int depth) {
    gnmi::GetRequest request = getRequest({place}, encoding, type);
    if (depth > 0) request.add_extension()->mutable_depth()->set_level(static_cast<std::uint32_t>(depth));
    gnmi::GetResponse response;
    grpc::Status const status = bench.readHere(request, response);
    std::string all = fmt::format("{}\n", static_cast<int>(status.error_code()));
    for (gnmi::Notification const& each : response.notification())
      for (gnmi::Update const& update : each.update())
        all += fmt::format(
            "{}: {}\n", text(update.path()),
            inOneOrder(json::parse(update.val().json_val() + update.val().json_ietf_val())).dump());
    return all;
  };
  for (std::string const& place : places) {
    for (gnmi::Encoding const encoding : {JSON, JSON_IETF}) {
      for (auto const& [type, depth] : {std::pair(GetRequest::ALL, 0),
                                        {GetRequest::CONFIG, 0},
                                        {GetRequest::OPERATIONAL, 0},
                                        {GetRequest::ALL, 2}}) {
        EXPECT_EQ(answer(place.empty() ? "/" : place, encoding, type, depth),
                  answer("/..." + place, encoding, type, depth))
            << place << ' ' << encoding << ' ' << type << ' ' << depth;
      }
    }
  }
}

// What is removed while it is read is left out, or ends where the reading stands; the text stays whole.
TEST_F(DataGet, objectsThatGoWhileTheyAreRead) {
  auto& interfaces = *bench.tree().interfaces;
  auto const name = [](int i) { return Kel::String(fmt::format("port{:03}", i)); };
  for (int i = 0; i < 60; ++i)
    interfaces.entryIs(&Agent::Interfaces::interface, name(i))
        ->subinterfaces->entryIs(&Agent::Subinterfaces::subinterface, 7);
  Tovak::TaskScheduler& scheduler = *bench.runtime().context().scheduler();
  scheduler.sliceNsIs(0); // every step is a slice
  bool ended = false;
  auto const run =
      std::make_shared<Agent::GetRun>(bench.runtime().router(), *Agent::GetOrder::of(getRequest({"/"})), "");
  run->start([&ended](grpc::Status const& status) { ended = status.ok(); });
  for (int step = 0; !ended && step < 100'000; ++step) {
    if (step % 3 == 0) interfaces.entryDel(&Agent::Interfaces::interface, name(step / 3 * 2 + 1));
    scheduler.runOnce();
  }
  ASSERT_TRUE(ended);
  gnmi::GetResponse response;
  grpc::ByteBuffer bytes = run->takeResponse();
  ASSERT_TRUE(grpc::SerializationTraits<gnmi::GetResponse>::Deserialize(&bytes, &response).ok());
  json const tree = json::parse(response.notification(0).update(0).val().json_val());
  std::set<std::string> read;
  for (json const& one : tree["interfaces"]["interface"]) {
    read.insert(one["name"]);
    std::string const port = one["name"];
    bool const stays = port.starts_with("port") && (port.back() - '0') % 2 == 0;
    EXPECT_TRUE(!stays || one["subinterfaces"]["subinterface"][0]["index"] == 7) << one;
  }
  for (int i = 0; i < 60; i += 2)
    EXPECT_TRUE(read.contains(name(i).str())) << i;
  EXPECT_LT(read.size(), 62U);
  EXPECT_TRUE(tree.contains("system"));
}

TEST_F(DataGet, typesSelectLeaves) {
  std::string const eth0 = "/interfaces/interface[name=eth0]/hold-time";
  EXPECT_EQ(bench.value(eth0), R"({"config":{"up":0,"down":0},"state":{"up":0,"down":0}})");
  EXPECT_EQ(bench.value(eth0, JSON, GetRequest::CONFIG), R"({"config":{"up":0,"down":0}})");
  EXPECT_EQ(bench.value(eth0, JSON, GetRequest::STATE), R"({"state":{"up":0,"down":0}})");
  EXPECT_EQ(bench.value("/interfaces/interface[name=eth0]/subinterfaces/subinterface[index=0]/ipv4/state"),
            "{}");
  // What only says what has become of the configuration is not operational.
  EXPECT_EQ(bench.value("/interfaces/interface[name=eth0]/ethernet", JSON, GetRequest::OPERATIONAL),
            "nothing");
  std::string const state =
      bench.value("/interfaces/interface[name=eth0]/state", JSON, GetRequest::OPERATIONAL);
  EXPECT_EQ(state, R"({"ifindex":2,"oper-status":"UP","last-change":1700000000000000000,)"
                   R"("counters":{"in-octets":18446744073709551615}})");
  std::size_t const config = bench.leaves(GetRequest::CONFIG).size(), all = bench.leaves().size();
  EXPECT_EQ(config + bench.leaves(GetRequest::STATE).size(), all);
  EXPECT_GT(config, 30U);
}

TEST_F(DataGet, oneNotificationAPathOneUpdateAMatch) {
  gnmi::GetRequest request = getRequest(
      {"interface[name=*]/config/mtu", "interface/state/.../in-octets", "interface[name=eth1]/config/mtu"});
  *request.mutable_prefix() = path("/interfaces");
  request.mutable_prefix()->set_target("box");
  request.mutable_prefix()->set_origin("openconfig");
  gnmi::GetResponse response;
  ASSERT_TRUE(bench.get(request, response).ok());
  ASSERT_EQ(response.notification_size(), 3);
  std::vector<std::string> told;
  for (gnmi::Notification const& each : response.notification()) {
    EXPECT_EQ(each.timestamp(), bench.clock().wallNs());
    EXPECT_EQ(each.prefix().target(), "box");
    EXPECT_EQ(each.prefix().origin(), "openconfig");
    for (gnmi::Update const& update : each.update())
      told.push_back(text(each.prefix(), update.path()));
  }
  EXPECT_EQ(told, (std::vector<std::string>{"/interfaces/interface[name=eth0]/config/mtu",
                                            "/interfaces/interface[name=eth1]/config/mtu",
                                            "/interfaces/interface[name=eth0]/state/counters/in-octets",
                                            "/interfaces/interface[name=eth1]/state/counters/in-octets",
                                            "/interfaces/interface[name=eth1]/config/mtu"}));
  // Without a prefix nothing is echoed; a prefix with wildcards is not repeated, the paths are concrete.
  request = getRequest({"config/mtu"});
  *request.mutable_prefix() = path("/interfaces/interface[name=*]");
  ASSERT_TRUE(bench.get(request, response).ok());
  ASSERT_EQ(response.notification_size(), 1);
  EXPECT_TRUE(response.notification(0).has_prefix());
  EXPECT_EQ(response.notification(0).prefix().ByteSizeLong(), 0U);
  EXPECT_EQ(text(response.notification(0).update(1).path()), "/interfaces/interface[name=eth1]/config/mtu");
}

TEST_F(DataGet, refusals) {
  for (auto const& [place, outcome] : std::map<std::string, std::string>{
           // the code, a part of the message
           {"/interfaces/interface[name=eth9]", "5: /interfaces/interface[name=eth9]"},
           {"/interfaces/interface[name=eth0]/state/counters/out-octets", "5: out-octets"},
           {"/interfaces/interface[name=eth0]/nothing", "5: nothing"},
           {"/interfaces/interface[id=eth0]", "3: id"},
           {"/system/processes/process[pid=x]", "3: x"}}) {
    std::string const told = bench.value(place);
    EXPECT_EQ(told.substr(0, 3), outcome.substr(0, 3)) << told;
    EXPECT_NE(told.find(outcome.substr(3)), std::string::npos) << told;
  }
  auto const expect = [&](StatusCode code, auto const& change) {
    gnmi::GetRequest request = getRequest({"/interfaces"});
    change(request);
    gnmi::GetResponse response;
    EXPECT_EQ(bench.get(request, response).error_code(), code) << request.ShortDebugString();
  };
  using enum StatusCode;
  for (gnmi::Encoding const encoding : {gnmi::ASCII, static_cast<gnmi::Encoding>(77)})
    expect(UNIMPLEMENTED, [&](auto& request) { request.set_encoding(encoding); });
  expect(UNIMPLEMENTED, [](auto& request) { request.add_use_models()->set_name("no-such-model"); });
  expect(OK, [](auto& request) { request.add_use_models()->set_name("openconfig-interfaces"); });
  expect(INVALID_ARGUMENT, [](auto& request) { request.set_type(static_cast<GetRequest::DataType>(9)); });
  expect(OK, [](auto& request) { request.clear_path(); });
}

TEST(DataGetLimits, answersHaveABound) {
  DataBench bench({.getBytes = 2000});
  bench.fill();
  EXPECT_TRUE(bench.value("/system/config").starts_with("{"));
  for (gnmi::Encoding const encoding : {JSON, PROTO})
    EXPECT_TRUE(bench.value("/", encoding).starts_with("8: ")) << bench.value("/", encoding);
}

TEST_F(DataGet, aClientThatLeavesIsNotServedOn) {
  gnmi::GetRequest const request = getRequest({"/"});
  gnmi::GetResponse response;
  for (int turns = 0; turns < 4; ++turns) { // called off before, during and after the reading
    grpc::ClientContext context;
    std::atomic<bool> ended = false;
    bench.stub().async()->Get(&context, &request, &response, [&](grpc::Status const&) { ended = true; });
    for (int i = 0; i < turns; ++i)
      bench.runtime().context().scheduler()->runOnce();
    context.TryCancel();
    EXPECT_TRUE(bench.settleUntil([&] { return ended.load(); }));
  }
  EXPECT_TRUE(bench.value("/system/config").starts_with("{"));
}

TEST(DataJson, textsThatAreRefused) {
  std::string const deep(Agent::kMaxJsonDepth, '['), deepest(200'000, '[');
  for (std::string const& text :
       {std::string(), "{"s, "{}x"s, "{'a':1}"s, "{\"a\":1,}"s, "\"\xff\""s, "\"\xed\xa0\x80\""s,
        "{\"a\":1,\"a\":2}"s, "[{\"a\":1},{\"a\":1,\"b\":{},\"a\":1}]"s, "NaN"s, "01"s,
        "[" + deep + "1" + std::string(200, ']'), deepest})
    EXPECT_FALSE(Agent::jsonOf(text)) << text.substr(0, 40);
  for (std::string const& text :
       {"1"s, " {\"a\":[{\"a\":1},{\"a\":1}]} "s, "\"\\u00e9\""s, deep + std::string(deep.size(), ']')})
    EXPECT_TRUE(Agent::jsonOf(text)) << text.substr(0, 40);
}

// What a leaf takes as JSON, in the form that the library gets, or a part of what is said against it.
TEST(DataJson, leafValues) {
  Agent::declareTypes();
  auto const leaf = [](Kel::KelType type, char const* name) { return *Agent::leafInfo(type.attr(name)); };
  auto const u16 = leaf(Kel::typeOf<Agent::InterfaceConfig>(), "mtu");
  auto const u64 = leaf(Kel::typeOf<Agent::InterfaceCounters>(), "in-octets");
  auto const flag = leaf(Kel::typeOf<Agent::InterfaceConfig>(), "enabled");
  auto const text = leaf(Kel::typeOf<Agent::InterfaceConfig>(), "description");
  auto const decimal = leaf(Kel::typeOf<Agent::Temperature>(), "avg");
  auto const type = leaf(Kel::typeOf<Agent::InterfaceConfig>(), "type");
  auto const speed = leaf(Kel::typeOf<Agent::EthernetConfig>(), "port-speed");
  auto const index = leaf(Kel::typeOf<Agent::CpuState>(), "index");
  auto const fs = leaf(Kel::typeOf<Agent::MountPointState>(), "type");
  auto const search = leaf(Kel::typeOf<Agent::DnsConfig>(), "search");
  struct Row {
    Agent::LeafInfo const& leaf;
    char const *json, *outcome;
    char const* written = nullptr; // as JSON, and as JSON_IETF
  };
  for (Row const& row : std::initializer_list<Row>{
           {u16, "65535", "uint_val: 65535", "65535 65535"},
           {u16, "65536", "out of the range 0..65535"},
           {u16, "1500.0", "uint16; found '1500.0'"},
           {u16, "\"1500\"", "uint16; found"},
           {u16, "null", "uint16; found 'null'"},
           {u16, "[1]", "uint16; found an array"},
           {u64, "18446744073709551615", "uint_val: 18446744073709551615"},
           {u64, "\"18446744073709551615\"", "uint_val: 18446744073709551615",
            "18446744073709551615 \"18446744073709551615\""},
           {u64, "18446744073709551616", "uint64; found"},
           {u64, "\"18446744073709551616\"", "uint64; found"},
           {u64, "\"-1\"", "uint64; found"},
           {u64, "\"1 \"", "uint64; found"},
           {flag, "false", "bool_val: false", "false false"},
           {flag, "\"true\"", "boolean; found"},
           {text, "\"\\u00e9\"", "string_val: \"\\303\\251\""},
           {text, "7", "string; found"},
           {decimal, "45", "double_val: 45"},
           {decimal, "\"45.5\"", "double_val: 45.5", "45.5 \"45.5\""},
           {decimal, "\"nan\"", "decimal64; found"},
           {decimal, "\"1e3\"", "decimal64; found"},
           {type, "\"ethernetCsmacd\"", "string_val: \"iana-if-type:ethernetCsmacd\"",
            "\"iana-if-type:ethernetCsmacd\" \"iana-if-type:ethernetCsmacd\""},
           {type, "\"other-module:ethernetCsmacd\"", "is no value of this identityref"},
           {speed, "\"openconfig-if-ethernet:SPEED_1GB\"", "string_val: \"SPEED_1GB\"",
            "\"SPEED_1GB\" \"openconfig-if-ethernet:SPEED_1GB\""},
           {speed, "\"openconfig-system:SPEED_1GB\"", "is no value"},
           {index, "\"ALL\"", "string_val: \"ALL\"", "\"ALL\" \"ALL\""},
           {index, "3", "uint_val: 3", "3 3"},
           {index, "\"NONE\"", "fits no alternative"},
           {fs, "\"openconfig-fs-types:EXT4_FS\"", "string_val: \"EXT4_FS\"",
            "\"EXT4_FS\" \"openconfig-fs-types:EXT4_FS\""},
           {fs, "\"proc\"", "string_val: \"proc\"", "\"proc\" \"proc\""},
           {search, "[\"a\",\"b\"]", "element { string_val: \"b\" }", R"(["a","b"] ["a","b"])"},
           {search, "[]", "leaflist_val { }"},
           {search, "\"a\"", "expected an array"},
           {search, "[\"a\",1]", "string; found '1'"},
       }) {
    auto const value = Agent::leafValueOf(row.leaf, json::parse(row.json));
    std::string const outcome = value ? value.value().ShortDebugString() : value.error();
    EXPECT_NE(outcome.find(row.outcome), std::string::npos) << row.json << " -> " << outcome;
    if (!value) continue;
    // What is written of it is read again as the same.
    std::string both;
    for (bool const isIetf : {false, true}) {
      std::string written;
      Agent::appendLeafJson(written, *value, row.leaf, isIetf);
      auto const again = Agent::leafValueOf(row.leaf, json::parse(written));
      EXPECT_TRUE(again && again.value().ShortDebugString() == outcome) << written;
      both += (isIetf ? " " : "") + written;
    }
    EXPECT_TRUE(row.written == nullptr || row.written == both) << both;
  }
}

// However many one peer reads, another one has as many turns as all of these together.
TEST_F(DataGet, turnsGoRoundThePeers) {
  bench.runtime().context().scheduler()->sliceNsIs(0); // every turn is short
  std::vector<std::shared_ptr<Agent::GetRun>> runs;
  int ended = 0;
  int endedBefore = -1;
  auto const start = [&](char const* address, auto const& done) {
    runs.push_back(std::make_shared<Agent::GetRun>(bench.runtime().router(),
                                                   *Agent::GetOrder::of(getRequest({"/"})), address));
    runs.back()->start(done);
  };
  for (int i = 0; i < 20; ++i)
    start("ipv4:192.0.2.1", [&ended](grpc::Status const&) { ++ended; });
  start("ipv4:192.0.2.2", [&](grpc::Status const&) { endedBefore = ended; });
  bench.settle();
  EXPECT_EQ(ended, 20);
  EXPECT_EQ(endedBefore, 0);
}

} // namespace
