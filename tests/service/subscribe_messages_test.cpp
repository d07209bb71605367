// Messages as they go over the wire: prefixes, bundling, splitting.
#include <gmock/gmock.h>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/Path.h"
#include "agent/subscribe/Message.h"
#include "service/ServiceTesting.h"

using namespace ServiceTesting;
using Agent::Message;
using testing::SizeIs;

namespace {

using Leaves = std::vector<std::pair<std::string, std::string>>; // relative path, value

Message::Part part(std::string_view prefix, Leaves const& leaves, Agent::Selection selection = std::nullopt) {
  auto [response, notification] = Ondra::ArenaRespMsg::createResponse(Ondra::Path::strToPathIs(prefix), 7);
  for (auto const& [name, value] : leaves) {
    gnmi::Update& update = *notification->add_update();
    *update.mutable_path() = path(name);
    update.mutable_val()->set_string_val(value);
  }
  return {response, std::move(selection)};
}

std::vector<gnmi::Notification> written(Message::Parts parts, Agent::Frame const& frame,
                                        std::size_t limit = 1 << 20) {
  std::vector<gnmi::Notification> all;
  Message::Ptr const message = Message::of(std::move(parts), std::make_shared<Agent::Frame>(frame), 99);
  for (grpc::Slice const& slice : message->encoded(limit)) {
    gnmi::SubscribeResponse response;
    EXPECT_TRUE(response.ParseFromArray(slice.begin(), static_cast<int>(slice.size())));
    EXPECT_EQ(response.update().timestamp(), 99);
    all.push_back(response.update());
  }
  return all;
}

std::vector<std::string> textsOf(gnmi::Notification const& notification) {
  std::vector<std::string> texts;
  for (gnmi::Update const& update : notification.update())
    texts.push_back(text(update.path()) + "=" + update.val().string_val());
  return texts;
}

TEST(Messages, haveAsPrefixTheContainerThatAllShare) {
  struct Row {
    char const* second;
    char const* prefix;
    std::vector<std::string> updates;
  };
  for (Row const& row : std::vector<Row>{
           {"/o/l/e[k=1]/s", "/l/e[k=1]/s", {"/a=1", "/b/c=2", "/a=3"}},
           {"/o/l/e[k=1]", "/l/e[k=1]", {"/s/a=1", "/s/b/c=2", "/a=3"}},
           {"/o/l/e[k=2]/s", "/l", {"/e[k=1]/s/a=1", "/e[k=1]/s/b/c=2", "/e[k=2]/s/a=3"}},
           {"/o/m", "", {"/l/e[k=1]/s/a=1", "/l/e[k=1]/s/b/c=2", "/m/a=3"}},
       }) {
    std::vector<gnmi::Notification> const all =
        written({part("/o/l/e[k=1]/s", {{"a", "1"}, {"b/c", "2"}}),
                 part(row.second, {{"x", "0"}, {"a", "3"}}, {{1}})},
                {.origin = "org", .target = "tgt", .encoding = gnmi::PROTO});
    ASSERT_THAT(all, SizeIs(1));
    EXPECT_EQ(text(all[0].prefix()), row.prefix);
    EXPECT_EQ(all[0].prefix().origin(), "org");
    EXPECT_EQ(all[0].prefix().target(), "tgt");
    EXPECT_EQ(textsOf(all[0]), row.updates);
  }
}

TEST(Messages, areSplitWhereTheyWouldBeTooLong) {
  Leaves leaves;
  std::vector<std::string> expected;
  for (int i = 0; i < 50; ++i) {
    leaves.emplace_back(fmt::format("leaf{}", i), std::string(static_cast<std::size_t>(i) * 10, 'x'));
    expected.push_back(fmt::format("/leaf{}={}", i, leaves.back().second));
  }
  leaves[20].second = std::string(5000, 'y'); // longer than any response may be
  expected[20] = "/leaf20=" + leaves[20].second;
  std::vector<std::string> got;
  for (gnmi::Notification const& one : written({part("/o/top", leaves)}, {.encoding = gnmi::PROTO}, 1000)) {
    EXPECT_TRUE(one.ByteSizeLong() <= 1000 || one.update_size() == 1);
    EXPECT_EQ(text(one.prefix()), "/top");
    for (std::string const& update : textsOf(one))
      got.push_back(update);
  }
  EXPECT_EQ(got, expected);
}

TEST(Messages, encodedAheadTheyFreeTheirResponses) {
  Message::Part one = part("/o/l", {{"a", "1"}});
  std::weak_ptr<Ondra::ArenaRespMsg> const response = one.response;
  auto const frame = std::make_shared<Agent::Frame>(Agent::Frame{.encoding = gnmi::PROTO});
  Message::Ptr const message = Message::encodedOf({std::move(one)}, frame, 99, 1000);
  EXPECT_TRUE(response.expired());
  EXPECT_LT(message->bytes(), 1000U);
}

} // namespace
