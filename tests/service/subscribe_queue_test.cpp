// The queue of one subscriber: order, coalescing, its bound.

#include <gmock/gmock.h>

#include <random>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/CompactText.h"
#include "Ondra/Path.h"
#include "agent/subscribe/OutQueue.h"
#include "service/ServiceTesting.h"

using namespace ServiceTesting;
using Agent::Message;
using Agent::OutQueue;
using testing::ElementsAre;

namespace {

std::shared_ptr<Agent::Frame const> frame() {
  static auto const one = std::make_shared<Agent::Frame const>(Agent::Frame{.encoding = gnmi::PROTO});
  return one;
}

// A change as the library tells it.
Message::Ptr leaf(std::string_view prefix, std::string_view name, std::uint64_t value, long time = 1) {
  auto [response, notification] = Ondra::ArenaRespMsg::createResponse(Ondra::Path::strToPathIs(prefix), time);
  gnmi::Update& update = *notification->add_update();
  *update.mutable_path() = path(name);
  update.mutable_val()->set_uint_val(value);
  return Message::of(Message::Parts{{response, std::nullopt}}, frame(), time);
}

Message::Ptr gone(std::string_view top, long time = 1) {
  auto notification = std::make_unique<gnmi::Notification>();
  notification->set_timestamp(time);
  *notification->add_delete_() = path(top);
  return Message::of(std::move(notification), frame());
}

// "+path=value", with "x2" for duplicates, "-path", "sync".
std::vector<std::string> textsOf(Message::Ptr const& message) {
  if (message->isSync()) return {"sync"};
  std::vector<std::string> texts;
  if (message->own() != nullptr) {
    for (gnmi::Path const& top : message->own()->delete_())
      texts.push_back("-" + text(top));
  }
  message->forEachUpdate([&texts](gnmi::Path const& prefix, gnmi::Update const& update) {
    texts.push_back(fmt::format("+{}={}", text(prefix, update.path()), update.val().uint_val()));
    if (update.duplicates() > 0) texts.back() += fmt::format("x{}", update.duplicates());
  });
  return texts;
}

std::vector<std::string> drain(OutQueue& queue) {
  std::vector<std::string> all;
  while (Message::Ptr const message = queue.pop()) {
    std::vector<std::string> const texts = textsOf(message);
    all.insert(all.end(), texts.begin(), texts.end());
  }
  EXPECT_EQ(queue.bytes(), 0U);
  return all;
}

using Kind = OutQueue::Kind;
using Pushed = OutQueue::Pushed;

// A queue whose bound is reached by the first message: what follows is coalesced.
class CoalescingQueue : public testing::Test {
protected:
  void SetUp() override { push(leaf("/o/first", "a", 0), Kind::Walk); }
  void push(Message::Ptr const& message, Kind kind = Kind::Change) {
    EXPECT_EQ(queue.push(message, kind), Pushed::Taken);
  }
  std::vector<std::string> rest() {
    std::vector<std::string> all = drain(queue);
    EXPECT_EQ(all.at(0), "+/o/first/a=0");
    all.erase(all.begin());
    return all;
  }
  OutQueue queue{6000};
};

TEST_F(CoalescingQueue, replacesInPlaceAndCounts) {
  push(leaf("/o/x", "a", 1));
  push(leaf("/o/x", "b", 2));
  push(leaf("/o/x", "a", 3));
  push(leaf("/o/x", "a", 4));
  EXPECT_THAT(rest(), ElementsAre("+/o/x/a=4x2", "+/o/x/b=2"));
}

TEST_F(CoalescingQueue, theSyncIsNeverPassed) {
  push(leaf("/o/x", "a", 1));
  push(Message::sync(), Kind::Walk);
  push(leaf("/o/x", "a", 2));
  push(leaf("/o/x", "a", 3));
  EXPECT_THAT(rest(), ElementsAre("+/o/x/a=1", "sync", "+/o/x/a=3x1"));
}

TEST_F(CoalescingQueue, anEndTakesWhatLiesBeneathAndIsABarrier) {
  push(leaf("/o/list[k=1]/state", "a", 1));
  push(leaf("/o/list[k=11]/state", "a", 2));
  push(leaf("/o/listing", "a", 3));
  push(gone("/o/list[k=1]"));
  push(leaf("/o/list[k=1]/state", "a", 4));
  EXPECT_THAT(rest(), ElementsAre("+/o/list[k=11]/state/a=2", "+/o/listing/a=3", "-/o/list[k=1]",
                                  "+/o/list[k=1]/state/a=4"));
}

TEST_F(CoalescingQueue, churnOfOnePathStaysSmall) {
  for (int i = 0; i < 1000; ++i) {
    push(leaf("/o/x", "a", static_cast<std::uint64_t>(i)));
    push(gone("/o/x"));
  }
  EXPECT_THAT(rest(), ElementsAre("-/o/x"));
}

TEST(OutQueue, endsOfEverNewPathsMakeItStartOver) {
  OutQueue queue(20'000);
  EXPECT_EQ(queue.push(Message::sync(), Kind::Walk), Pushed::Taken);
  int pushes = 0;
  while (queue.push(gone(fmt::format("/o/process[pid={}]", pushes)), Kind::Change) == Pushed::Taken)
    ASSERT_LT(++pushes, 100'000);
  EXPECT_TRUE(queue.empty());
  EXPECT_TRUE(queue.hasDroppedSync());
  EXPECT_TRUE(queue.isFull());
  EXPECT_EQ(queue.pop(), nullptr);
  EXPECT_TRUE(queue.takeDrained());
  EXPECT_FALSE(queue.isFull());
}

// Whatever is coalesced and whenever something is taken out: applying all gives what applying the pushes gives, times of one path never
// go back, and memory stays bounded.
TEST(OutQueue, appliedInOrderItGivesTheSame) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    std::mt19937 random(seed);
    auto const upTo = [&random](unsigned n) { return random() % n; };
    std::map<std::string, std::string> pushed;
    std::map<std::string, std::string> popped;
    std::map<std::string, long> stamps;
    auto const apply = [](std::map<std::string, std::string>& tree, std::string const& change) {
      std::size_t const eq = change.rfind('=');
      if (change[0] == '+') {
        tree[change.substr(1, eq - 1)] = change.substr(eq + 1, change.find('x', eq) - eq - 1);
      } else if (change[0] == '-') {
        std::erase_if(tree,
                      [&](auto const& one) { return (one.first + "/").starts_with(change.substr(1) + "/"); });
      }
    };
    auto const pop = [&](OutQueue& queue) {
      Message::Ptr const message = queue.pop();
      if (!message) return false;
      for (std::string const& change : textsOf(message)) {
        apply(popped, change);
        if (change[0] != '+') continue;
        long& stamp = stamps[change.substr(0, change.rfind('='))];
        EXPECT_LE(stamp, message->timestamp());
        stamp = message->timestamp();
      }
      return true;
    };
    OutQueue queue(6'000 + upTo(30'000));
    for (long time = 1; time <= 400; ++time) {
      std::string const entry = fmt::format("/o/list[k={}]", upTo(4));
      bool const isEnd = upTo(8) == 0;
      Message::Ptr const message =
          isEnd ? gone(upTo(3) == 0 ? "/o" : entry, time)
                : leaf(entry + "/state", std::string(1, static_cast<char>('a' + upTo(3))), upTo(100), time);
      ASSERT_EQ(queue.push(message, !isEnd && upTo(4) == 0 && !queue.isFull() ? Kind::Walk : Kind::Change),
                Pushed::Taken);
      for (std::string const& change : textsOf(message))
        apply(pushed, change);
      if (upTo(3) == 0) static_cast<void>(pop(queue));
    }
    while (pop(queue)) {
    }
    EXPECT_EQ(popped, pushed);
    if (HasFailure()) break;
  }
}

} // namespace
