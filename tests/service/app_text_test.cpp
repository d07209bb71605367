// What people write and read: paths, values, lines, durations, addresses.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "agent/client/Lines.h"
#include "agent/client/ValueText.h"
#include "agent/options/CommandLine.h"
#include "agent/paths/PathText.h"
#include "agent/service/ListenAddress.h"

namespace Agent {
namespace {

gnmi::Path parsed(std::string const& text) {
  auto path = pathOf(text);
  EXPECT_TRUE(path.ok()) << text << ": " << (path.ok() ? "" : path.error());
  return path.ok() ? *path : gnmi::Path();
}

TEST(PathText, EachTextIsOnePathAndPrintsCanonically) {
  using Texts = std::vector<std::string>;
  for (auto const& [text, printed, expected] : std::vector<std::tuple<std::string, std::string, Texts>>{
           {"/", "/", {}},
           {"a/b", "/a/b", {"a", "b"}},
           {"/a/b/", "/a/b", {"a", "b"}},
           {"openconfig:/a", "openconfig:/a", {"a"}},
           {"/a[z=1][b=2]", "/a[b=2][z=1]", {"a"}},
           {"/a[k=eth1/0.5]", "/a[k=eth1/0.5]", {"a"}},
           {"/a[k=x[y=z]", "/a[k=x[y=z]", {"a"}},
           {R"(/a[k=\]\\])", R"(/a[k=\]\\])", {"a"}},
           {R"(/a\/b/c\[d)", R"(/a\/b/c\[d)", {"a/b", "c[d"}},
           {R"(/a[k\=l=v])", R"(/a[k\=l=v])", {"a"}},
           {"/a/*/...", "/a/*/...", {"a", "*", "..."}},
       }) {
    gnmi::Path const path = parsed(text);
    Texts names;
    for (gnmi::PathElem const& elem : path.elem())
      names.push_back(elem.name());
    EXPECT_EQ(names, expected) << text;
    EXPECT_EQ(pathText(path), printed);
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(parsed(pathText(path)), path)) << text;
  }
  EXPECT_EQ(parsed(R"(/a[k=\]\\])").elem(0).key().at("k"), R"(]\)");
  EXPECT_EQ(pathText(parsed("openconfig:/a"), parsed("b[k=v]")), "openconfig:/a/b[k=v]");
}

TEST(PathText, FaultsNameTheirPlace) {
  for (auto const& [text, expected] : std::vector<std::pair<std::string, std::string>>{
           {"//a", "an empty name at position 2"},
           {"/a[k]", "not of the form [NAME=VALUE]"},
           {"/a[=v]", "not of the form [NAME=VALUE]"},
           {"/a[k=v", "']' is missing"},
           {"/a[k=v]b", "'/' or '[' is missing at position 8"},
           {"/a[k=1][k=2]", "a second key 'k'"},
           {"/a\\", "nothing follows the backslash"},
       }) {
    auto const path = pathOf(text);
    ASSERT_FALSE(path.ok()) << text;
    EXPECT_NE(path.error().find(expected), std::string::npos) << path.error();
  }
}

TEST(PathText, AnAssignmentIsSplitOutsideOfKeys) {
  auto const split = assignmentOf(R"(/a[k=v\]=][l=m]/b=c=d)");
  EXPECT_EQ(split.path, R"(/a[k=v\]=][l=m]/b)");
  EXPECT_EQ(split.value, "c=d");
  EXPECT_TRUE(split.hasValue);
  EXPECT_FALSE(assignmentOf("/a[k=v]").hasValue);
  EXPECT_TRUE(assignmentOf("/a=").hasValue);
}

TEST(ValueText, WhatAUserWritesIsJsonOrAString) {
  for (auto const& [text, json] : std::vector<std::pair<std::string, std::string>>{
           {"true", "true"},
           {"1500", "1500"},
           {"uplink to b", "\"uplink to b\""},
           {"\"1500\"", "\"1500\""},
           {R"({"mtu": 9000})", R"({"mtu": 9000})"},
           {"", "\"\""},
           {"a\"b", "\"a\\\"b\""},
       }) {
    auto const value = valueOf(text);
    ASSERT_TRUE(value.ok()) << text;
    EXPECT_EQ(value.value().json_ietf_val(), json);
  }
  EXPECT_FALSE(valueOf("@no/such/file").ok());
}

TEST(ValueText, ValuesKeepTheirDigitsAndCannotControlATerminal) {
  gnmi::TypedValue value;
  EXPECT_EQ(valueText(value), "null");
  value.set_uint_val(UINT64_MAX);
  EXPECT_EQ(valueText(value), "18446744073709551615");
  value.set_json_ietf_val(R"({"b":"1","a":[1,2]})");
  EXPECT_EQ(valueText(value), R"({"b":"1","a":[1,2]})");
  value.set_json_val("no json");
  EXPECT_EQ(valueText(value), "no json");
  value.set_string_val("\x1b[2Jü\"\\\x7f\xc2\x9b\n\xff");
  EXPECT_EQ(valueText(value), "\\u001b[2Jü\"\\\\\\u007f\\u009b\\n\xef\xbf\xbd");
  value.mutable_leaflist_val()->add_element()->set_string_val("x");
  value.mutable_leaflist_val()->add_element()->set_bool_val(true);
  EXPECT_EQ(valueText(value), R"(["x",true])");
}

TEST(Lines, OneForEachDeleteAndUpdate) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  gnmi::Notification notification;
  notification.set_timestamp(1'600'000'000'250'000'000);
  *notification.mutable_prefix() = parsed("openconfig:/interfaces/interface[name=lo]");
  *notification.add_delete_() = parsed("state/mtu");
  gnmi::Update& update = *notification.add_update();
  *update.mutable_path() = parsed("state/counters");
  update.mutable_val()->set_json_ietf_val(R"({"in-octets":"5"})");

  EXPECT_EQ(notificationLines(notification, {}),
            "12:26:40.250 - openconfig:/interfaces/interface[name=lo]/state/mtu\n"
            "12:26:40.250 openconfig:/interfaces/interface[name=lo]/state/counters {\"in-octets\":\"5\"}\n");
  EXPECT_EQ(
      notificationLines(notification, {.isJson = true}),
      "{\"timestamp\":1600000000250000000,\"path\":\"openconfig:/interfaces/interface[name=lo]/state/mtu\","
      "\"deleted\":true}\n"
      "{\"timestamp\":1600000000250000000,\"path\":\"openconfig:/interfaces/interface[name=lo]/state/"
      "counters\",\"value\":{\"in-octets\":\"5\"}}\n");
  notification.clear_delete_();
  EXPECT_EQ(notificationLines(notification, {.hasTime = false}, 2),
            "openconfig:/interfaces/interface[name=lo]/state/counters\n{\n  \"in-octets\": \"5\"\n}\n");
  EXPECT_EQ(notificationLines(notification, {.isColour = true, .hasTime = false}),
            "\x1b[36mopenconfig:/interfaces/interface[name=lo]/state/counters\x1b[0m "
            "\x1b[1m{\"in-octets\":\"5\"}\x1b[0m\n");
  EXPECT_EQ(syncLine({}), "-- in sync\n");
  EXPECT_EQ(syncLine({.isJson = true}), "{\"sync\":true}\n");
}

TEST(Durations, NeedAUnit) {
  for (auto const& [text, ns] : std::map<std::string, std::int64_t>{
           {"250ms", 250'000'000}, {"1.5s", 1'500'000'000}, {"1h", 3'600'000'000'000}, {"7ns", 7}, {"0s", 0}})
    EXPECT_EQ(durationOf(text), ns) << text;
  for (char const* const text : {"1", "s", "-1s", "1e9s", "nans", "1 s", "9999999h"})
    EXPECT_EQ(durationOf(text), std::nullopt) << text;
}

TEST(ListenAddress, TextsAndWhoCanReachThem) {
  auto const isLoopback = [](char const* text) {
    auto const address = ListenAddress::parse(text);
    EXPECT_TRUE(address.ok()) << text;
    EXPECT_EQ(address.value().text(), text);
    return address.value().isLoopback();
  };
  for (char const* const text : {"127.8.8.8:1", "localhost:0", "[::1]:9339", "unix:/run/a.sock"})
    EXPECT_TRUE(isLoopback(text)) << text;
  for (char const* const text : {"0.0.0.0:9339", "[::]:9339", "192.0.2.1:65535", "localhost.example:1"})
    EXPECT_FALSE(isLoopback(text)) << text;
  for (char const* const text :
       {"", "9339", ":9339", "host:", "host:65536", "host:-1", "host:x", "::1:9339", "unix:"})
    EXPECT_FALSE(ListenAddress::parse(text).ok()) << text;
}

} // namespace
} // namespace Agent
