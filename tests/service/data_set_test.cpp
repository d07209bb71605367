// Set: what requests do to the model, what is refused and how, what a refused request leaves behind: nothing.
#include <absl/strings/str_replace.h>
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "Kel/Declare.h"
#include "Kel/Error.h"
#include "agent/data/SetRun.h"
#include "agent/model/Shape.h"
#include "service/data_testing.h"
#include "service/subscribe_testing.h"

namespace {

using namespace ServiceTesting;
using gnmi::GetRequest, grpc::StatusCode;

class DataSet : public testing::Test {
protected:
  DataSet() { bench.fill(); }
  DataBench bench;
};

// With the short names of the tables below.
std::string whole(std::string const& text) {
  std::string const eth0 = "/interfaces/interface[name=eth0]";
  std::string const unit = eth0 + "/subinterfaces/subinterface[index=0]";
  return absl::StrReplaceAll(text, {{"ADDRESSES", unit + "/ipv4/addresses"},
                                    {"UNIT", unit},
                                    {"ETH0", eth0},
                                    {"ETH1", "/interfaces/interface[name=eth1]"},
                                    {"SERVERS", "/system/dns/servers"},
                                    {"BOTH", "leaflist_val { element { string_val: \"example.org\" } "
                                             "element { string_val: \"example.net\" } }"}});
}

// What differs afterwards, but for the time of the last configuration; each row on a freshly filled tree.
TEST(DataSetRows, whatRequestsDo) {
  for (
      auto const& [request, outcome] : std::initializer_list<std::pair<char const*, char const*>>{
          {"update ETH0/config/mtu uint:9000", "ETH0/config/mtu = uint_val: 9000 (was uint_val: 1500)\n"},
          // An update never deletes.
          {R"(update ETH0/config ietf:{"openconfig-interfaces:mtu":1,"enabled":false})",
           "ETH0/config/enabled = bool_val: false (was bool_val: true)\n"
           "ETH0/config/mtu = uint_val: 1 (was uint_val: 1500)\n"},
          {R"(update /system/dns/config/search ["a"])",
           "/system/dns/config/search = leaflist_val { element { string_val: \"a\" } } (was BOTH)\n"},
          // A leaf-list without entries is not there.
          {"update /system/dns/config/search list:", "- /system/dns/config/search\n"},
          {"delete /system/dns/config/search", "- /system/dns/config/search\n"},
          // A replace of a container takes the rest to its default, or away, and leaves state alone.
          {"replace ETH0/config/mtu 9000", "ETH0/config/mtu = uint_val: 9000 (was uint_val: 1500)\n"},
          {R"(replace ETH0/config {"name":"eth0","loopback-mode":"FACILITY"})",
           "- ETH0/config/description\n"
           "ETH0/config/loopback-mode = string_val: \"FACILITY\" (was string_val: \"NONE\")\n"
           "- ETH0/config/mtu\n- ETH0/config/type\n"},
          {R"(replace ADDRESSES {"address":[{"ip":"192.0.2.2"},{"ip":"192.0.2.3","config":{"prefix-length":8}}]})",
           "- ADDRESSES/address[ip=192.0.2.1]/config/ip\n" // which the machine has: its state stays
           "- ADDRESSES/address[ip=192.0.2.1]/config/prefix-length\n"
           "- ADDRESSES/address[ip=192.0.2.2]/config/ip\n" // left out, with all of its configuration
           "- ADDRESSES/address[ip=192.0.2.2]/config/prefix-length\n"
           "+ ADDRESSES/address[ip=192.0.2.3]/config/ip = string_val: \"192.0.2.3\"\n"
           "+ ADDRESSES/address[ip=192.0.2.3]/config/prefix-length = uint_val: 8\n"
           "+ ADDRESSES/address[ip=192.0.2.3]/ip = string_val: \"192.0.2.3\"\n"
           "+ ADDRESSES/address[ip=192.0.2.3]/state/ip = string_val: \"192.0.2.3\"\n"},
          {"replace /system/dns {}", "- /system/dns/config/search\n"
                                     "- SERVERS/server[address=192.0.2.53]/config/address\n"
                                     "- SERVERS/server[address=192.0.2.53]/config/port\n"},
          // What is not there yet is made.
          {R"(update SERVERS {"server":[{"address":"::1","config":{"address":"::1","port":5353}}]})",
           "+ SERVERS/server[address=::1]/address = string_val: \"::1\"\n"
           "+ SERVERS/server[address=::1]/config/address = string_val: \"::1\"\n"
           "+ SERVERS/server[address=::1]/config/port = uint_val: 5353\n"
           "+ SERVERS/server[address=::1]/state/address = string_val: \"::1\"\n"},
          {R"(update SERVERS/server[address=::1]/config/address "::1")",
           "+ SERVERS/server[address=::1]/address = string_val: \"::1\"\n"
           "+ SERVERS/server[address=::1]/config/address = string_val: \"::1\"\n"
           "+ SERVERS/server[address=::1]/config/port = uint_val: 53\n"
           "+ SERVERS/server[address=::1]/state/address = string_val: \"::1\"\n"},
          // Deletes: a default comes back, entries go whole, wildcards expand, what is not there is silent.
          {"delete ETH0/config/description", "- ETH0/config/description\n"},
          {"delete ETH0/config/enabled", ""},
          {"delete /interfaces/interface/config/mtu", "- ETH0/config/mtu\n- ETH1/config/mtu\n"},
          {"delete /interfaces/interface[name=*]/.../port-speed",
           "- ETH0/ethernet/config/port-speed\n- ETH1/ethernet/config/port-speed\n"},
          {"delete /*/config/hostname", "- /system/config/hostname\n"},
          {"delete ETH0/ethernet", "- ETH0/ethernet/config/port-speed\n"},
          {"delete /interfaces/interface[name=eth9]/config/mtu\ndelete /interfaces/interface[name=eth9]\n"
           "delete ETH0/config/mtu\ndelete SERVERS/server[address=::9]",
           "- ETH0/config/mtu\n"},
          // An entry that is deleted and made again in one request keeps its state.
          {"delete ETH0/ethernet/config\ndelete SERVERS/server[address=192.0.2.53]\n"
           "update SERVERS/server[address=192.0.2.53]/config/port 54",
           "- ETH0/ethernet/config/port-speed\n"
           "SERVERS/server[address=192.0.2.53]/config/port = uint_val: 54 (was uint_val: 53)\n"},
          {"", ""},
      }) {
    SCOPED_TRACE(request);
    DataBench bench;
    bench.fill();
    auto const before = bench.leaves();
    grpc::Status const status = bench.setHere(setRequest(whole(request)));
    EXPECT_TRUE(status.ok()) << status.error_message();
    auto after = bench.leaves();
    EXPECT_EQ(after.erase("/system/state/last-configuration-timestamp") != 0, *outcome != '\0');
    EXPECT_EQ(difference(before, after), whole(outcome));
  }
}

TEST_F(DataSet, refusals) {
  struct Row {
    std::string request;
    char const* message; // a part of it, beside the path
    StatusCode code = StatusCode::INVALID_ARGUMENT;
  };
  using enum StatusCode;
  auto const before = bench.leaves();
  for (Row const& row : std::vector<Row>{
           {"update ETH0/config/nothing 1", "'nothing' is not known", NOT_FOUND},
           {"update ETH0/config/mtu/deeper 1", "'deeper'", NOT_FOUND},
           {"delete /.../nothing", "nothing is known", NOT_FOUND},
           {"update ETH0/state {}", "is state"},
           {R"(replace ETH0 {"state":{"mtu":1}})", "/state/mtu: is state"},
           {R"(update /system {"processes":{"process":[{"pid":"1"}]}})", "is state"},
           {"delete ETH0/state", "cannot be deleted"},
           {"delete ETH0/config/name", "cannot be deleted"},
           {"delete /system/processes/process[pid=1]", "cannot be deleted"},
           {"update ETH0/config/mtu none", "no value"},
           {"update ETH0/config/mtu uint:65536", "out of the range"},
           {"update ETH0/config/mtu int:-1", "found -1"},
           {"update ETH0/config/mtu string:1500", "found string_val"},
           {"update ETH0/config/type string:nonsense", "'nonsense'"},
           {"update ETH0/config/mtu {\"broken", "no JSON"},
           {"update ETH0/config/mtu ascii:1", "JSON", UNIMPLEMENTED},
           {"update ETH0/config uint:1", "container"},
           {R"(update ETH0/config {"mtu":1,"openconfig-interfaces:mtu":1})", "twice"},
           {R"(update ETH0/config {"openconfig-system:mtu":1})", "unknown member"},
           {R"(update ETH0/config {"mtu":1,"color":1})", "unknown member 'color'"},
           {R"(update /interfaces {"interface":{}})", "expected an array"},
           {R"(update /interfaces {"interface":[{}]})", "without its key 'name'"},
           {R"(update /interfaces {"interface":[{"name":"a"},{"name":"a"}]})", "two entries"},
           {R"(update /interfaces {"interface":[{"name":"a","config":{"name":"b"}}]})",
            "'b' contradicts the key 'a'"},
           {"update ETH0/config/name string:eth1", "contradicts the key"},
           {R"(update ETH0/subinterfaces {"subinterface":[{"index":4294967296}]})", "range"},
           {"update ETH0/subinterfaces/subinterface[index=x]/config {}", "index"},
           {"update ETH0/subinterfaces/subinterface[number=0]/config {}", "'index'"},
           {"update /interfaces/interface/config/mtu 1", "needs its key"},
           {"update /interfaces/*/config/mtu 1", "wildcard"},
           {"update ETH0/config[name=x]/mtu 1", "no list"},
           {"replace ETH0 {}", "empty object"},
           // Published, and not offered.
           {"update /system/ntp/config/enabled true", "'ntp' is not offered", UNIMPLEMENTED},
           {R"(update ETH0/config {"tpid":1})", "'tpid' is not offered", UNIMPLEMENTED},
           {"delete /network-instances", "network-instances", UNIMPLEMENTED},
           {"delete /.../routed-vlan", "routed-vlan", UNIMPLEMENTED},
           // Ranges, lengths and patterns, in keys too, however the value comes.
           {R"(update /system/config {"hostname":"two words"})", "no domain-name"},
           {"update /system/config/hostname string:", "1..253 characters; found 0"},
           {"update /system/config/domain-name string:-.-", "no domain-name"},
           {"update ETH0/ethernet/config/mac-address \"zz\"", "no mac-address"},
           {R"(update /system/dns/config/search ["a","b c"])", "'b c' is no domain-name"},
           {"update /system/dns/config/search list:a,b,a", "'a' is there twice"},
           {"update UNIT/ipv4/config/mtu 67", "range 68..65535"},
           {"update ADDRESSES/address[ip=300.1.1.1] {}", "no ipv4-address"},
           {R"(update ADDRESSES {"address":[{"ip":"nonsense"}]})", "no ipv4-address"},
           {"update ADDRESSES/address[ip=192.0.2.1]/config/prefix-length uint:33", "range 0..32"},
           {"update UNIT/ipv6/addresses/address[ip=1::2::3]/config {}", "no ipv6-address"},
           {"update SERVERS/server[address=192.0.2.300/24] {}", "no ip-address"},
       }) {
    SCOPED_TRACE(row.request);
    // Refused whole, though it begins well.
    grpc::Status const status = bench.set(
        setRequest(whole("delete SERVERS\nupdate /system/config/hostname \"other\"\n" + row.request)));
    EXPECT_EQ(status.error_code(), row.code) << status.error_message();
    EXPECT_THAT(status.error_message(), testing::HasSubstr(row.message));
    EXPECT_EQ(status.error_message().front(), '/') << status.error_message();
    EXPECT_EQ(difference(before, bench.leaves()), "");
  }
}

TEST_F(DataSet, refusalsOfTheRequestAsSuch) {
  using enum StatusCode;
  auto const expect = [&](StatusCode code, auto const& change) {
    gnmi::SetRequest request = setRequest("update /system/config/hostname \"other\"");
    change(request);
    grpc::Status const status = bench.set(request);
    EXPECT_EQ(status.error_code(), code) << status.error_message();
    EXPECT_LT(status.error_message().size(), 1100U);
  };
  expect(OK, [](auto&) {});
  expect(INVALID_ARGUMENT, [](auto& request) { request.add_union_replace(); });
  expect(INVALID_ARGUMENT, [](auto& request) { request.add_extension()->mutable_commit(); });
  expect(OK, [](auto& request) { request.add_extension()->mutable_registered_ext(); });
  auto const pathOf = [](gnmi::SetRequest& request) { return request.mutable_update(0)->mutable_path(); };
  expect(INVALID_ARGUMENT, [&](auto& request) {
    for (int i = 0; i < 129; ++i)
      pathOf(request)->add_elem()->set_name("x");
  });
  expect(INVALID_ARGUMENT, [&](auto& request) { pathOf(request)->set_origin("other"); });
  expect(NOT_FOUND,
         [&](auto& request) { pathOf(request)->mutable_elem(2)->set_name(std::string(100'000, 'x')); });
  auto const expectOfDeletes = [&](StatusCode code, std::string_view text, int count, bool differ) {
    expect(code, [&](auto& request) {
      for (int i = 0; i < count; ++i)
        *request.add_delete_() = path(fmt::format(fmt::runtime(text), differ ? i : 0));
    });
  };
  expectOfDeletes(OK, "/.../.../.../interfaces/interface[name=e{}]", 5000, false);
  expectOfDeletes(OK, "/.../interface[name=e{}]", 64, true);
  expectOfDeletes(RESOURCE_EXHAUSTED, "/.../interface[name=e{}]", 65, true);
  expectOfDeletes(INVALID_ARGUMENT, "/.../*/.../*/.../*/.../*/.../mtu", 1, true);
  expectOfDeletes(RESOURCE_EXHAUSTED, "/interfaces/interface[name=e{}]", 50'001, true);
}

TEST_F(DataSet, theResponseListsTheOperations) {
  gnmi::SetRequest request =
      setRequest("delete config/mtu\nreplace hold-time {}\nreplace config/description \"d\"\n"
                 "update config/enabled true");
  *request.mutable_prefix() = path("/interfaces/interface[name=eth0]");
  request.mutable_prefix()->set_target("box");
  gnmi::SetResponse response;
  ASSERT_TRUE(bench.set(request, response).ok());
  EXPECT_EQ(response.prefix().ShortDebugString(), request.prefix().ShortDebugString());
  EXPECT_EQ(response.timestamp(), bench.clock().wallNs());
  std::string listed;
  for (gnmi::UpdateResult const& result : response.response())
    listed += gnmi::UpdateResult::Operation_Name(result.op()) + " " + text(result.path()) + "\n";
  EXPECT_EQ(listed,
            "DELETE /config/mtu\nREPLACE /hold-time\nREPLACE /config/description\nUPDATE /config/enabled\n");
  EXPECT_EQ(bench.tree().system->state->lastConfigurationTimestamp,
            static_cast<std::uint64_t>(response.timestamp()));
}

// What the machine has is not a client's to delete: configuration goes, and comes back when it is set again.
TEST_F(DataSet, deletingEntriesOfTheMachineLeavesTheirState) {
  Subscriber subscriber(bench, bench.channel());
  subscriber.send(stream().add("/").done());
  subscriber.untilSync();
  auto const leaves = [this](GetRequest::DataType type) {
    auto all = bench.leaves(type);
    all.erase("/system/state/last-configuration-timestamp");
    return all;
  };
  auto const before = leaves(GetRequest::ALL), state = leaves(GetRequest::STATE);
  gnmi::SetRequest restore;
  restore.add_replace()->mutable_val()->set_json_val(bench.value("/", gnmi::JSON, GetRequest::CONFIG));
  ASSERT_TRUE(bench.set(setRequest("delete /")).ok());
  EXPECT_EQ(difference(state, leaves(GetRequest::STATE)), "");
  EXPECT_TRUE(bench.value("/interfaces/interface[name=eth0]/config").starts_with("5: "));
  EXPECT_TRUE(bench.value("/system/dns/config/search").starts_with("5: "));
  EXPECT_TRUE(subscriber.applyUntil([&] { return !subscriber.tree.contains("/system/config/hostname"); }));
  for (std::string const& path : subscriber.deletes)
    EXPECT_NE(path.find("/config"), path.npos) << path;
  // To name an entry does not configure it; to write its configuration does.
  ASSERT_TRUE(bench.set(setRequest("update /interfaces {\"interface\":[{\"name\":\"eth0\"}]}")).ok());
  EXPECT_TRUE(bench.value("/interfaces/interface[name=eth0]/config").starts_with("5: "));
  ASSERT_TRUE(bench.set(setRequest("update /interfaces/interface[name=eth0]/config/name \"eth0\"")).ok());
  EXPECT_EQ(bench.value("/interfaces/interface[name=eth0]/config"),
            R"({"name":"eth0","loopback-mode":"NONE","enabled":true})");
  ASSERT_TRUE(bench.set(restore).ok());
  EXPECT_EQ(difference(before, leaves(GetRequest::ALL)), "");
}

TEST_F(DataSet, aNewEntryIsToldWithWhatItEndsAs) {
  Subscriber subscriber(bench, bench.channel());
  subscriber.send(stream().add("/system/dns/servers").done());
  subscriber.untilSync();
  ASSERT_TRUE(bench.set(setRequest("update /system/dns/servers/server[address=::1]/config/port 5305")).ok());
  std::vector<std::string> ports;
  while (!subscriber.tree.contains("/system/dns/servers/server[address=::1]/config/port")) {
    gnmi::SubscribeResponse const next = subscriber.next();
    for (gnmi::Update const& update : next.update().update())
      if (text(update.path()).ends_with("/port")) ports.push_back(update.val().ShortDebugString());
    subscriber.apply(next);
  }
  EXPECT_EQ(ports, std::vector<std::string>{"uint_val: 5305"});
}

// What clients want of links goes to the machine before the model changes; what it refuses has not been.
class Teller final : public Agent::LinkCarrier {
public:
  void look(std::vector<Agent::LinkChange>, Looked done) override { done(Agent::LinkBefores()); }
  void carry(std::vector<Agent::LinkChange> links, Carried done) override {
    for (Agent::LinkChange const& link : links) {
      told += link.name;
      if (link.mtu) told += fmt::format(" mtu {}", *link.mtu);
      if (link.enabled) told += *link.enabled ? " up" : " down";
      if (link.description) told += " " + *link.description;
      for (Agent::LinkAddress const& address : link.addresses)
        told += fmt::format(" {}/{}", address.ip, address.prefixLength);
      told += "\n";
    }
    done(refusal.empty() ? Kstd::Result<void, std::string>() : Kstd::Err(refusal));
  }
  std::string told, refusal;
};

TEST_F(DataSet, theMachineComesBeforeTheModel) {
  Teller teller;
  std::string& told = teller.told;
  std::string& refusal = teller.refusal;
  bench.runtime().sets().carrierIs(&teller);
  auto const toldOf = [&](std::string_view request) {
    told.clear();
    grpc::Status const status = bench.setHere(setRequest(request));
    return status.ok() ? told : told + status.error_message();
  };
  EXPECT_EQ(toldOf("update /interfaces/interface[name=eth1]/config/mtu 9000\n"
                   "update /interfaces/interface[name=eth0]/config/enabled false"),
            "eth0 down\neth1 mtu 9000\n");
  EXPECT_EQ(
      toldOf("update /interfaces/interface[name=eth1]/subinterfaces/subinterface[index=0]/ipv4/addresses/"
             "address[ip=192.0.2.7]/config/prefix-length 25\n"
             "update /interfaces/interface[name=eth1]/config/description \"x\""),
      "eth1 mtu 9000 x 192.0.2.7/25\n");
  auto const before = bench.leaves();
  refusal = "no";
  EXPECT_EQ(toldOf("delete /interfaces/interface[name=eth1]/config/mtu"), "eth1 x 192.0.2.7/25\nno");
  EXPECT_EQ(difference(before, bench.leaves()), "");
  refusal.clear();
  EXPECT_EQ(toldOf("delete /interfaces/interface[name=eth1]/config/mtu"), "eth1 x 192.0.2.7/25\n");
  EXPECT_EQ(toldOf("delete /interfaces/interface[name=eth1]"), "eth1\n");
  EXPECT_EQ(toldOf("update /system/config/hostname \"x\""), "");
  bench.runtime().sets().carrierIs(nullptr);
}

// Takes any value but "bad".
class Moody final : public Agent::Node<Moody> {
public:
  void textIs(Kel::String const& to) {
    if (to == "bad") throw Kel::Error("this object is in no mood");
    leafIs(&Moody::text, to);
  }
  Kel::String name; // the key
  Kel::String text;
};
class Moodies final : public Agent::Node<Moodies> {
public:
  Kel::KeyedEntities<Kel::String, Moody> moody;
};

void declareMoodies() {
  static bool const once = [] {
    Kel::kelModuleIs("moods");
    Agent::configShape<Moody>("Moody", "moods")
        .key("name", &Moody::name)
        .leaf("text", &Moody::text, &Moody::textIs)
        .done();
    auto const type =
        Agent::configShape<Moodies>("Moodies", "moods").list("moody", &Moodies::moody, "name").done();
    Agent::topLevelIs({"moodies", type, "moods"});
    Agent::publishedModelIs({"moods", "none", "1.0.0"});
    return true;
  }();
  static_cast<void>(once);
}

TEST(DataSetUndo, whatIsRefusedHalfWayIsPutBackAndNeverTold) {
  declareMoodies();
  DataBench bench;
  bench.fill();
  auto const moodies = Kel::staticPtrCast<Moodies>(Agent::topIn(*Kel::globalDir(), "moodies"));
  moodies->entryIs(&Moodies::moody, "calm")->leafIs(&Moody::text, "before");
  Subscriber subscriber(bench, bench.channel());
  subscriber.send(stream().add("/").done());
  EXPECT_GT(subscriber.untilSync(), 100);
  auto const before = bench.leaves();
  for (char const* const also : {"", "delete /interfaces/interface[name=eth1]", "delete /system/dns"}) {
    gnmi::SetRequest request = setRequest(
        "delete /interfaces/interface[name=eth0]/config/mtu\ndelete /system/dns/config/search\n"
        "update /interfaces/interface[name=eth0]/config/description \"new\"\n"
        "update /interfaces/interface[name=new]/config/mtu 1\n"
        "update /interfaces/interface[name=new]/ethernet/config/auto-negotiate true\n"
        "update /interfaces/interface[name=eth0]/hold-time/config/up 7\n"
        "update /moodies/moody[name=calm]/text \"after\"\nupdate /moodies/moody[name=new]/text \"after\"\n"
        "update /moodies/moody[name=zealous]/text \"bad\"\n" +
        std::string(also));
    EXPECT_THAT(bench.set(request).error_message(), testing::HasSubstr("no mood"));
    EXPECT_EQ(difference(before, bench.leaves()), "");
  }
  // The next thing that the subscriber hears of is what comes after.
  ASSERT_TRUE(bench.set(setRequest("update /moodies/moody[name=calm]/text \"last\"")).ok());
  gnmi::SubscribeResponse const next = subscriber.next();
  EXPECT_EQ(text(next.update().prefix(), next.update().update(0).path()), "/moodies/moody[name=calm]/text");
  EXPECT_EQ(next.update().delete__size(), 0);
  // What is carried out last is told in the published order.
  moodies->entryIs(&Moodies::moody, "gone");
  ASSERT_TRUE(bench
                  .set(setRequest("delete /moodies/moody[name=gone]\n"
                                  "update /moodies/moody[name=calm]/text \"again\""))
                  .ok());
  EXPECT_TRUE(subscriber.applyUntil([&] { return !subscriber.deletes.empty(); }));
  EXPECT_EQ(subscriber.deletes.back(), "/moodies/moody[name=gone]");
  EXPECT_NE(subscriber.tree["/moodies/moody[name=calm]/text"], "string_val:again");
  EXPECT_TRUE(subscriber.applyUntil(
      [&] { return subscriber.tree["/moodies/moody[name=calm]/text"] == "string_val:again"; }));
}

} // namespace
