// What is refused, with which code, and that it concerns that call alone.

#include <gmock/gmock.h>

#include "service/subscribe_testing.h"

using namespace ServiceTesting;
using Code = grpc::StatusCode;

namespace {

gnmi::SubscribeRequest with(gnmi::SubscribeRequest request,
                            std::function<void(gnmi::SubscriptionList&)> const& change) {
  change(*request.mutable_subscribe());
  return request;
}
gnmi::SubscribeRequest extended(gnmi::SubscribeRequest request,
                                std::function<void(gnmi_ext::Extension&)> const& change) {
  change(*request.add_extension());
  return request;
}
// As clients fill it that have not heard of `elem`; the generated accessors are deprecated like the field.
void oldElementIs(gnmi::Path& path) {
  auto const* const field = gnmi::Path::descriptor()->FindFieldByNumber(gnmi::Path::kElementFieldNumber);
  gnmi::Path::GetReflection()->AddString(&path, field, "interfaces");
}
gnmi::Path& firstPath(gnmi::SubscriptionList& list) { return *list.mutable_subscription(0)->mutable_path(); }

struct Row {
  char const* what;
  std::vector<gnmi::SubscribeRequest> requests; // one after the other
  Code code = Code::INVALID_ARGUMENT;
};

std::vector<Row> refusals() {
  gnmi::SubscribeRequest const good = stream().add("/interfaces").done();
  auto const changed = [&good](std::function<void(gnmi::SubscriptionList&)> const& change) {
    return std::vector{with(good, change)};
  };
  auto const list = [](Request request) { return std::vector{request.done()}; };
  using List = gnmi::SubscriptionList;
  return {
      {"nothing in the first message", {gnmi::SubscribeRequest()}},
      {"a poll before the list", {pollNow()}},
      {"the list twice", {good, good}},
      {"a poll of a stream", {good, pollNow()}},
      {"an empty second message", {good, gnmi::SubscribeRequest()}},
      {"the list twice in a poll", {poll().add("/").done(), good}},
      {"an unknown subscription mode",
       changed([](List& l) { l.mutable_subscription(0)->set_mode(static_cast<gnmi::SubscriptionMode>(9)); })},
      {"encoding BYTES", changed([](List& l) { l.set_encoding(gnmi::BYTES); }), Code::UNIMPLEMENTED},
      {"different origins in prefix and path", changed([](List& l) {
         l.mutable_prefix()->set_origin("openconfig");
         firstPath(l).set_origin("openconfig-interfaces");
       })},
      {"the old elements alone", changed([](List& l) {
         firstPath(l).clear_elem();
         oldElementIs(firstPath(l));
       })},
      {"a model that is not offered", changed([](List& l) { l.add_use_models()->set_name("other"); }),
       Code::UNIMPLEMENTED},
      {"yesterday's data",
       {extended(good, [](auto& e) { e.mutable_history()->set_snapshot_time(1); })},
       Code::UNIMPLEMENTED},
      {"commits",
       {extended(good, [](auto& e) { e.mutable_config_subscription()->mutable_start(); })},
       Code::UNIMPLEMENTED},
      {"what is published and not served", list(once().add("/lldp/state")), Code::UNIMPLEMENTED},
      {"the same with its module", list(once().add("/system/openconfig-system:ntp/*")), Code::UNIMPLEMENTED},
      {"the same behind wildcards", list(once().add("/.../routed-vlan/config")), Code::UNIMPLEMENTED},
      {"the same with another module", list(once().add("/openconfig-acl:lldp")), Code::NOT_FOUND},
      {"an origin that is not served", changed([](List& l) { firstPath(l).set_origin("cli"); })},
      {"a target in a path", changed([](List& l) { firstPath(l).set_target("x"); })},
      {"an empty name", changed([](List& l) { firstPath(l).add_elem(); })},
      {"a key without name",
       changed([](List& l) { (*firstPath(l).mutable_elem(0)->mutable_key())[""] = "x"; })},
      {"129 elements", changed([](List& l) {
         while (firstPath(l).elem_size() <= 128)
           firstPath(l).add_elem()->set_name("a");
       })},
      {"a path outside of the schema", list(once().add("/interfaces/nothing")), Code::NOT_FOUND},
      {"a key value that cannot be",
       list(once().add("/interfaces/interface/subinterfaces/subinterface[index=x]"))},
      {"too short an interval", list(stream().add("/", gnmi::SAMPLE, 1000))},
      {"an interval beyond all time", list(stream().add("/", gnmi::SAMPLE, ~0ULL))},
      {"too short a heartbeat", list(stream().add("/", gnmi::ON_CHANGE, 0, 1000))},
      {"10,000 subscriptions", changed([](List& l) {
         for (int i = 0; i < 9'999; ++i)
           *l.add_subscription() = l.subscription(0);
       }),
       Code::RESOURCE_EXHAUSTED},
  };
}

class SubscribeRefusals : public testing::Test {
protected:
  explicit SubscribeRefusals(Agent::Limits const& limits = {}) : bench(limits) {}
  Bench bench;
  Server server{bench.runtime()};
};
class FewSubscribers : public SubscribeRefusals {
protected:
  FewSubscribers() : SubscribeRefusals({.streams = 3}) {}
};

TEST_F(SubscribeRefusals, theTable) {
  auto const eth0 = bench.addInterface("eth0");
  Subscriber other(bench, server.channel());
  other.send(stream().add("/interfaces/interface/state/mtu").done());
  other.untilSync();
  std::uint16_t mtu = 100;
  for (Row const& row : refusals()) {
    SCOPED_TRACE(row.what);
    Subscriber client(bench, server.channel());
    for (gnmi::SubscribeRequest const& request : row.requests)
      client.send(request);
    grpc::Status const status = client.status();
    EXPECT_EQ(status.error_code(), row.code) << status.error_message();
    EXPECT_FALSE(status.error_message().empty());
    EXPECT_LT(status.error_message().size(), 600U);
    eth0->state->leafIs(&Agent::InterfaceState::mtu, ++mtu); // the other call goes on
    EXPECT_EQ(other.next().update().update(0).val().uint_val(), mtu);
  }
  EXPECT_TRUE(bench.settleUntil([this] { return bench.runtime().calls().count() == 1; }));
}

TEST_F(SubscribeRefusals, whatMayBeAskedThoughItDoesNothing) {
  gnmi::SubscribeRequest const good = once().add("/interfaces").done();
  for (gnmi::SubscribeRequest const& request :
       {with(good, [](auto& list) { list.mutable_qos()->set_marking(0); }),
        with(good, [](auto& list) { list.set_allow_aggregation(true); }),
        with(good, [](auto& list) { list.add_use_models()->set_name("openconfig-interfaces"); }),
        with(good, [](auto& list) { list.mutable_prefix(); }),
        with(good, [](auto& list) { oldElementIs(firstPath(list)); }),
        with(good,
             [](auto& list) {
               list.mutable_prefix()->set_origin("openconfig");
               firstPath(list).set_origin("openconfig");
             }),
        extended(good, [](auto& extension) { extension.mutable_depth(); }),
        extended(good, [](auto& extension) { extension.mutable_master_arbitration(); }),
        once().add("/", gnmi::SAMPLE, 5).done(), // of a stream alone
        once().done()}) {
    Subscriber client(bench, server.channel());
    client.send(request);
    client.untilSync();
    EXPECT_TRUE(client.status().ok()) << request.ShortDebugString();
  }
}

TEST_F(FewSubscribers, noMoreCallsThanAllowed) {
  std::vector<std::unique_ptr<Subscriber>> clients;
  for (int i = 0; i < 3; ++i) {
    clients.push_back(std::make_unique<Subscriber>(bench, server.channel()));
    clients.back()->send(stream().add("/interfaces").done());
    clients.back()->untilSync();
  }
  Subscriber late(bench, server.channel());
  EXPECT_EQ(late.status().error_code(), Code::RESOURCE_EXHAUSTED);
  clients.pop_back();
  EXPECT_TRUE(bench.settleUntil([this] { return bench.runtime().calls().count() == 2; }));
  for (int i = 0; i < 20; ++i) { // who has seen the end of one call may begin the next
    Subscriber next(bench, server.channel());
    next.send(once().add("/interfaces").done());
    next.untilSync();
    EXPECT_TRUE(next.status().ok());
  }
}

TEST_F(SubscribeRefusals, aCallThatEndsBeforeItBegins) {
  Subscriber client(bench, server.channel());
  client.halfClose();
  EXPECT_EQ(client.status().error_code(), Code::INVALID_ARGUMENT);
}

} // namespace
