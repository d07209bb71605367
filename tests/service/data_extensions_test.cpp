// What extensions ask for: confirmed commits, master arbitration, depth; and union_replace.
#include <gmock/gmock.h>

#include <algorithm>

#include <fmt/format.h>

#include "service/data_testing.h"
#include "service/subscribe_testing.h"

namespace {

using namespace ServiceTesting;
using enum grpc::StatusCode;

constexpr std::int64_t kSecondNs = 1'000'000'000;

class DataExtensions : public testing::Test {
protected:
  DataExtensions() { bench.fill(); }
  template <class Change>
  grpc::StatusCode set(std::string_view text, Change const& change) {
    gnmi::SetRequest request = setRequest(text);
    change(request);
    grpc::Status const status = bench.set(request);
    said = status.error_message();
    return status.error_code();
  }
  // An action, "commit", "confirm", "cancel" or "duration", with seconds where they are not 0.
  grpc::StatusCode commit(std::string_view action, std::string const& id, std::string_view text = "",
                          std::int64_t seconds = 0) {
    return set(text, [&](gnmi::SetRequest& request) {
      gnmi_ext::Commit& asked = *request.add_extension()->mutable_commit();
      asked.set_id(id);
      if (action == "commit") asked.mutable_commit();
      if (action == "confirm") asked.mutable_confirm();
      if (action == "cancel") asked.mutable_cancel();
      if (action == "duration") asked.mutable_set_rollback_duration();
      if (seconds == 0) return;
      (action == "commit" ? asked.mutable_commit()->mutable_rollback_duration()
                          : asked.mutable_set_rollback_duration()->mutable_rollback_duration())
          ->set_seconds(seconds);
    });
  }
  std::string hostname() { return bench.value("/system/config/hostname"); }

  DataBench bench;
  std::string said;
};

std::string named(std::string_view name) {
  return fmt::format("update /system/config/hostname \"{}\"", name);
}

TEST_F(DataExtensions, aCommitTakesItselfBackUnlessItIsConfirmed) {
  ASSERT_TRUE(bench.set(setRequest(named("old"))).ok());
  EXPECT_EQ(commit("confirm", "1"), FAILED_PRECONDITION);
  EXPECT_EQ(commit("cancel", "1"), FAILED_PRECONDITION);
  EXPECT_EQ(commit("duration", "1", "", 5), FAILED_PRECONDITION);
  EXPECT_EQ(commit("commit", "", named("new")), INVALID_ARGUMENT);
  EXPECT_EQ(commit("", "1", named("new")), INVALID_ARGUMENT);
  EXPECT_EQ(commit("commit", "1", named("new"), -1), INVALID_ARGUMENT);

  EXPECT_EQ(commit("commit", "1", named("new")), OK);
  EXPECT_EQ(hostname(), "\"new\"");
  EXPECT_EQ(commit("commit", "2", named("other")), FAILED_PRECONDITION);
  EXPECT_EQ(bench.set(setRequest(named("other"))).error_code(), FAILED_PRECONDITION);
  EXPECT_EQ(commit("confirm", "2"), INVALID_ARGUMENT);
  EXPECT_THAT(said, testing::HasSubstr("'1'"));
  EXPECT_EQ(commit("duration", "1"), INVALID_ARGUMENT); // without a duration
  EXPECT_EQ(commit("confirm", "1", named("other")), INVALID_ARGUMENT);
  bench.advance(599 * kSecondNs);
  EXPECT_EQ(hostname(), "\"new\"");
  bench.advance(kSecondNs);
  EXPECT_EQ(hostname(), "\"old\""); // after ten minutes

  EXPECT_EQ(commit("commit", "3", named("new"), 5), OK);
  bench.advance(4 * kSecondNs);
  EXPECT_EQ(commit("duration", "3", "", 10), OK); // anew, not on top
  bench.advance(9 * kSecondNs);
  EXPECT_EQ(hostname(), "\"new\"");
  bench.advance(kSecondNs);
  EXPECT_EQ(hostname(), "\"old\"");
}

TEST_F(DataExtensions, theLargestElectionIdSets) {
  auto const asks = [&](std::uint64_t high, std::uint64_t low, std::string const& role = "") {
    auto const code = set("", [&](auto& request) {
      auto& asked = *request.add_extension()->mutable_master_arbitration();
      if (!role.empty()) asked.mutable_role()->set_id(role);
      asked.mutable_election_id()->set_high(high);
      asked.mutable_election_id()->set_low(low);
    });
    return code == PERMISSION_DENIED ? said : code == OK ? "OK" : "neither";
  };
  EXPECT_EQ(asks(0, 7), "OK");
  EXPECT_EQ(asks(0, 6), "the master's election id is high 0 low 7");
  EXPECT_EQ(asks(0, 7), "OK");
  EXPECT_EQ(asks(1, 0), "OK");
  EXPECT_EQ(asks(0, 9), "the master's election id is high 1 low 0");
  EXPECT_EQ(asks(0, 1, "other"), "OK");
  EXPECT_EQ(asks(1, 1), "OK");
  EXPECT_EQ(set("", [](auto& request) { request.add_extension()->mutable_master_arbitration(); }),
            INVALID_ARGUMENT);
  EXPECT_TRUE(bench.set(setRequest(named("anybody"))).error_message().empty()); // without the extension
}

TEST_F(DataExtensions, aUnionIsAllOfTheConfiguration) {
  auto const unite = [this](std::string_view text, std::string const& origin = "") {
    return set(text, [&origin](gnmi::SetRequest& request) {
      request.mutable_union_replace()->Swap(request.mutable_update());
      for (gnmi::Update& update : *request.mutable_union_replace())
        update.mutable_path()->set_origin(origin);
    });
  };
  auto const start = bench.leaves(gnmi::GetRequest::CONFIG);
  EXPECT_EQ(unite("update / {\"system\":{\"config\":{\"hostname\":\"a\"}}}\n"
                  "update /system/config/domain-name \"b\"\nupdate /system/config/hostname \"a\""),
            OK)
      << said;
  auto const leaves = bench.leaves(gnmi::GetRequest::CONFIG);
  EXPECT_EQ(leaves.at("/system/config/domain-name"), "string_val: \"b\"");
  EXPECT_FALSE(leaves.contains("/interfaces/interface[name=eth0]/config/description"));
  EXPECT_LT(leaves.size(), start.size());
  EXPECT_EQ(unite(named("a") + "\n" + named("b")), INVALID_ARGUMENT);
  EXPECT_EQ(unite(named("a") + "\ndelete /system"), INVALID_ARGUMENT);
  EXPECT_EQ(unite(named("a"), "cli"), UNIMPLEMENTED);
  EXPECT_EQ(unite(named("a"), "openconfig"), OK);
  EXPECT_EQ(hostname(), "\"a\"");
}

// Get, ONCE and STREAM tell the same leaves: those that lie no deeper.
TEST_F(DataExtensions, depthLeavesOutWhatLiesDeeper) {
  auto const all = bench.leaves();
  // What lies at or below it begins so, and has so many levels.
  using Row = std::tuple<char const*, std::string, std::size_t>;
  for (auto const& [asked, begins, level] :
       {Row{"/", "/", 0}, Row{"/system", "/system/", 1},
        Row{"/system/config/hostname", "/system/config/hostname", 3},
        Row{"/interfaces/interface", "/interfaces/interface[", 2},
        Row{"/interfaces/interface[name=*]", "/interfaces/interface[", 2},
        Row{"/*/interface[name=eth1]", "/interfaces/interface[name=eth1]", 2},
        Row{"/interfaces/interface[name=eth0]/.../ipv4", "?", 1}}) {
    for (std::uint32_t depth = 0; depth <= 5; ++depth) {
      SCOPED_TRACE(fmt::format("{} to depth {}", asked, depth));
      DataBench::Leaves expected;
      for (auto const& [path, value] : all) {
        std::size_t const at = path.find("/ipv4/");
        bool const isAnywhere = begins == "?";
        if (isAnywhere ? !path.starts_with("/interfaces/interface[name=eth0]") || at == path.npos
                       : !path.starts_with(begins))
          continue;
        auto const elems = ServiceTesting::path(isAnywhere ? path.substr(at) : path).elem_size();
        auto const levels = static_cast<std::size_t>(elems) - level;
        if (depth == 0 || levels <= depth) expected.emplace(path, value);
      }
      gnmi::GetRequest request = getRequest({asked}, gnmi::PROTO);
      request.add_extension()->mutable_depth()->set_level(depth);
      gnmi::GetResponse response;
      ASSERT_TRUE(bench.get(request, response).ok());
      DataBench::Leaves got;
      for (gnmi::Update const& update : response.notification(0).update())
        got.emplace(text(update.path()), update.val().ShortDebugString());
      EXPECT_EQ(difference(expected, got), "");
      for (Request mode : {once(), stream()}) {
        gnmi::SubscribeRequest subscribe = mode.add(asked).done();
        subscribe.add_extension()->mutable_depth()->set_level(depth);
        Subscriber subscriber(bench, bench.channel());
        subscriber.send(subscribe);
        subscriber.untilSync();
        EXPECT_EQ(std::ranges::count_if(subscriber.tree,
                                        [&](auto const& one) { return !expected.contains(one.first); }),
                  0);
        EXPECT_EQ(subscriber.tree.size(), expected.size());
      }
    }
  }
  EXPECT_EQ(set("", [](auto& request) { request.add_extension()->mutable_depth(); }), INVALID_ARGUMENT);
}

// Of a change, and of the end of a container, those are told who can have seen it.
TEST_F(DataExtensions, depthOfChanges) {
  gnmi::SubscribeRequest subscribe = stream().add("/system").done();
  subscribe.add_extension()->mutable_depth()->set_level(2);
  Subscriber subscriber(bench, bench.channel());
  subscriber.send(subscribe);
  subscriber.untilSync();
  ASSERT_TRUE(
      bench.set(setRequest("update /system/dns/servers/server[address=192.0.2.77]/config/port 5")).ok());
  ASSERT_TRUE(bench.set(setRequest("delete /system/dns/servers/server[address=192.0.2.77]")).ok());
  ASSERT_TRUE(bench.set(setRequest(named("seen"))).ok());
  EXPECT_TRUE(
      subscriber.applyUntil([&] { return subscriber.tree["/system/config/hostname"] == "string_val:seen"; }));
  EXPECT_THAT(subscriber.deletes, testing::IsEmpty());
  EXPECT_FALSE(std::ranges::any_of(
      subscriber.tree, [](auto const& one) { return one.first.find("server[") != std::string::npos; }));
}

} // namespace
