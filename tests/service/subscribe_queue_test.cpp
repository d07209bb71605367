// What waits for one subscriber: the queue and its bound, the backlog and how it coalesces.

#include <gmock/gmock.h>

#include "Ondra/CompactText.h"
#include "Ondra/Path.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"
#include "agent/subscribe/Backlog.h"
#include "agent/subscribe/OutQueue.h"
#include "service/ServiceTesting.h"

using namespace ServiceTesting;
using Agent::Backlog;
using Agent::Message;
using Agent::OutQueue;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

std::shared_ptr<Agent::Frame const> frame() {
  static auto const one = std::make_shared<Agent::Frame const>(Agent::Frame{.encoding = gnmi::JSON});
  return one;
}

std::string bytes(std::string_view text) { return Agent::pathBytes(Agent::PathView(path(text), 0)); }

// "+path=value", with "x2" for duplicates, "-path", "sync".
std::vector<std::string> textsOf(Message::Ptr const& message) {
  if (message->isSync()) return {"sync"};
  std::vector<std::string> texts;
  if (message->own() != nullptr)
    for (gnmi::Path const& top : message->own()->delete_())
      texts.push_back("-" + text(top));
  message->forEachUpdate([&texts](gnmi::Path const& prefix, gnmi::Update const& update) {
    texts.push_back(fmt::format("+{}={}", text(prefix, update.path()), update.val().uint_val()));
    if (update.duplicates() > 0) texts.back() += fmt::format("x{}", update.duplicates());
  });
  return texts;
}

// Of one subscriber, with what it would take out of the backlog.
class BacklogTest : public testing::Test {
protected:
  void leaf(std::string_view at, std::uint64_t value, std::int64_t time = 1) {
    gnmi::TypedValue made;
    made.set_uint_val(value);
    backlog.leafIs(frame(), bytes(at), made, 0, time);
  }
  void end(std::string_view at, std::int64_t time = 1) { backlog.endIs(frame(), bytes(at), time); }
  std::vector<std::string> take(std::size_t leaves = 1000) {
    std::vector<std::string> all;
    std::vector<Message::Ptr> messages = backlog.takeEnds();
    std::ranges::move(backlog.takeLeaves(leaves, 4096), std::back_inserter(messages));
    for (Message::Ptr const& message : messages)
      std::ranges::move(textsOf(message), std::back_inserter(all));
    return all;
  }
  std::vector<std::string> cut(std::size_t left) {
    std::vector<std::string> regions;
    for (Backlog::Lost const& lost : backlog.cut(left, 9, [](auto const&) { return bytes("/o"); }))
      regions.push_back((lost.hasEnded ? "-" : "") + text(Agent::pathOfBytes(lost.region)));
    return regions;
  }
  Backlog backlog;
};

TEST_F(BacklogTest, aLeafWaitsOnceWithItsLatestValue) {
  leaf("/o/x/a", 1);
  leaf("/o/x/b", 2);
  leaf("/o/x/a", 3);
  leaf("/o/x/a", 4, 5);
  EXPECT_THAT(take(1), ElementsAre("+/o/x/a=4x2")) << "which has waited longest";
  EXPECT_THAT(take(), ElementsAre("+/o/x/b=2"));
  EXPECT_EQ(backlog.bytes(), 0U);
}

TEST_F(BacklogTest, anEndTakesWhatLiesBeneathAndGoesFirst) {
  leaf("/o/list[k=1]/state/a", 1);
  leaf("/o/list[k=11]/state/a", 2);
  leaf("/o/listing/a", 3);
  end("/o/list[k=1]/state");
  end("/o/list[k=1]");
  leaf("/o/list[k=1]/state/a", 4);
  EXPECT_THAT(take(), ElementsAre("-/o/list[k=1]", "+/o/list[k=11]/state/a=2", "+/o/listing/a=3",
                                  "+/o/list[k=1]/state/a=4"));
}

TEST_F(BacklogTest, whatIsGivenUpIsToldByRegion) {
  for (int i = 0; i < 100; ++i)
    leaf(fmt::format("/o/lists/list[k={}]/state/a", i), 1);
  leaf("/o/lists/list[k=a\x01\x02\x03]/state/a", 1); // as odd a key as there is
  EXPECT_THAT(cut(0), ElementsAre("/o/lists")) << "and no end";
  leaf("/o/list[k=1]/state/a", 1);
  for (int i = 0; i < 100; ++i)
    end(fmt::format("/o/a/process[pid={}]", i));
  end("/o/b/other[k=1]");
  EXPECT_THAT(cut(backlog.bytes() / 2), UnorderedElementsAre("/o/list[k=1]/state", "-/o/a"));
  EXPECT_THAT(take(), ElementsAre("-/o/a", "-/o/b/other[k=1]"));
  EXPECT_TRUE(backlog.empty());
}

TEST(OutQueue, isFullFromItsBoundToHalfOfIt) {
  auto const budget = std::make_shared<Agent::ByteBudget>(1U << 20);
  auto message = Message::of(std::make_unique<gnmi::Notification>(), std::make_shared<Agent::Frame const>());
  std::size_t const one = message->bytes();
  OutQueue queue(8 * one, budget);
  for (int i = 1; i <= 8; ++i) {
    queue.push(message);
    EXPECT_EQ(queue.isFull(), i == 8);
  }
  EXPECT_EQ(budget->used(), one) << "it is there once";
  for (int i = 7; i >= 4; --i) {
    EXPECT_NE(queue.pop(), nullptr);
    EXPECT_EQ(queue.isFull(), i != 4);
    EXPECT_EQ(queue.takeDrained(), i == 4);
  }
  queue.clear();
  EXPECT_EQ(budget->used(), 0U);
  EXPECT_EQ(queue.pop(), nullptr);
}

} // namespace
