// Snapshot plus changes is the truth: whatever happens meanwhile and however slowly a subscriber reads,
// applying what it gets gives at every quiet moment what a fresh ONCE gives, and the times of one path never
// go back.

#include <gmock/gmock.h>

#include <chrono>
#include <random>

#include "agent/context/Memory.h"
#include "service/access_testing.h"
#include "service/subscribe_testing.h"

using namespace ServiceTesting;

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

// Random edits of the interfaces, each a write, an entry that comes or one that goes.
class Edits {
public:
  Edits(Bench& bench, unsigned seed) : bench_(bench), random_(seed) {}

  unsigned upTo(unsigned n) { return random_() % n; }
  void one() {
    std::string const name = fmt::format("eth{}", upTo(6));
    Agent::Interfaces& all = *bench_.tree().interfaces;
    if (upTo(10) == 0) {
      all.entryDel(&Agent::Interfaces::interface, Kel::String(name));
      return;
    }
    auto const interface = bench_.addInterface(name, static_cast<std::uint16_t>(upTo(5)));
    switch (upTo(6)) {
    case 0: interface->state->leafIs(&Agent::InterfaceState::mtu, std::nullopt); break;
    case 1: interface->state->containerDel(&Agent::InterfaceState::counters); break;
    case 2: interface->state->counters->leafIs(&Agent::InterfaceCounters::inOctets, upTo(1000)); break;
    case 3:
      interface->state->leafIs(&Agent::InterfaceState::description, Kel::String(std::string(upTo(400), 'd')));
      break;
    case 4: subinterface(*interface); break;
    default: break;
    }
  }

private:
  void subinterface(Agent::Interface& interface) {
    auto const sub = interface.subinterfaces->entryIs(&Agent::Subinterfaces::subinterface, upTo(3));
    if (upTo(4) == 0) {
      interface.subinterfaces->entryDel(&Agent::Subinterfaces::subinterface, sub->index);
    } else {
      sub->ipv4->addresses->entryIs(&Agent::Ipv4Addresses::address,
                                    Kel::String(fmt::format("10.0.0.{}", upTo(3))));
    }
  }

  Bench& bench_;
  std::mt19937 random_;
};

std::vector<std::string> const kPaths = {
    "/",
    "/interfaces/interface[name=eth1]",
    "/interfaces/interface[name=*]/state/mtu",
    "/interfaces/interface/subinterfaces/subinterface[index=1]",
    "/interfaces/.../ip",
    "/interfaces/*/state/counters",
};

class SubscribeLaw : public testing::Test {
protected:
  explicit SubscribeLaw(Agent::Limits const& limits = {}) : bench(limits) {}

  std::map<std::string, std::string> truth(std::string const& path) {
    Subscriber client(bench, server.channel());
    client.send(once().add(path).done());
    client.untilSync();
    return client.tree;
  }
  void expectTruth(Subscriber& client, std::string const& path) {
    SCOPED_TRACE(path);
    std::map<std::string, std::string> const expected = truth(path);
    static_cast<void>(client.applyUntil([&] { return client.tree == expected; }));
    EXPECT_EQ(client.tree, expected);
    EXPECT_THAT(client.complaints, testing::IsEmpty());
  }

  Bench bench;
  Server server{bench.runtime()};
};

// What a caller is told, of a walk or of changes, is what everybody is told without what he may not read; and
// nothing of the rest is ever named. Where there are no rules, that is everything.
TEST_F(SubscribeLaw, holdsForReadersOfAllPatternsAndWhatTheyMayRead) {
  std::vector<std::string> const everybody = {"group *"};
  for (unsigned seed = 1; seed <= 18 && !HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    bool const hasRules = seed % 3 != 0;
    std::mt19937 random(seed);
    std::vector<TestRule> const rules = randomRules(random, 2 + seed % 6, everybody);
    SCOPED_TRACE(accessFile(rules));
    auto const access = std::make_shared<Agent::AccessRules const>(accessRules(accessFile(rules)));
    Server guarded(bench.runtime(), hasRules ? gateOf(access) : nullptr);
    Agent::Rights const rights = access->rightsOf("");
    auto const told = [&](std::string const& path, gnmi::Encoding encoding) {
      Subscriber all(bench, server.channel());
      Request request{.encoding = encoding};
      all.send(request.add(path).done());
      all.untilSync();
      std::erase_if(all.tree, [&](auto const& leaf) {
        return hasRules && !isPermitted(rules, everybody, false, leaf.first);
      });
      return all.tree;
    };
    Edits edits(bench, seed);
    struct Client {
      std::string path;
      gnmi::Encoding encoding;
      std::unique_ptr<Subscriber> subscriber;
    };
    std::vector<Client> clients;
    for (std::string const& path : kPaths) {
      auto const encoding = edits.upTo(2) == 0 ? gnmi::PROTO : gnmi::JSON_IETF;
      clients.push_back({path, encoding, std::make_unique<Subscriber>(bench, guarded.channel())});
      Request request{.mode = gnmi::SubscriptionList::STREAM, .encoding = encoding};
      bool const isSampled = edits.upTo(3) == 0;
      clients.back().subscriber->send(
          request.add(path, isSampled ? gnmi::SAMPLE : gnmi::ON_CHANGE, isSampled ? kSecond : 0).done());
    }
    for (int quiet = 0; quiet < 3; ++quiet) {
      for (int i = 0; i < 60; ++i) {
        edits.one();
        if (edits.upTo(3) == 0) bench.runtime().context().scheduler()->runOnce();
        if (edits.upTo(8) == 0) bench.clock().advance(kSecond / 10);
      }
      bench.advance(kSecond);
      for (Client& client : clients) {
        SCOPED_TRACE(client.path);
        auto const expected = told(client.path, client.encoding);
        static_cast<void>(client.subscriber->applyUntil([&] { return client.subscriber->tree == expected; }));
        EXPECT_EQ(client.subscriber->tree, expected);
        EXPECT_THAT(client.subscriber->complaints, testing::IsEmpty());
        for (std::string const& end : client.subscriber->deletes) {
          EXPECT_TRUE(!client.path.ends_with("]/state/mtu") || end.ends_with("/state/mtu")) << end;
          EXPECT_TRUE(!hasRules ||
                      rights.reads->at(Agent::PathView(path(end), 0)).cover() != Agent::Pattern::Cover::None)
              << end;
        }
      }
    }
  }
}

class SmallQueues : public SubscribeLaw {
protected:
  explicit SmallQueues(std::size_t streams = 100)
      : SubscribeLaw({.streamsPerPeer = streams, .queueBytes = 12'000, .stuckNs = 5 * kSecond}) {}

  void change(int number) {
    bench.addInterface("flood")->state->leafIs(
        &Agent::InterfaceState::description,
        Kel::String(std::string(1000, static_cast<char>('a' + number % 26))));
  }
  // Changes and seconds, until the agent gives up on the one that does not read. A second is no shorter than
  // what the threads that write need for their turn: nobody is stuck for their want of a processor.
  void floodUntilItIsEnded() {
    int number = 0;
    EXPECT_TRUE(bench.settleUntil([&] {
      change(++number);
      if (number % 100 == 0) {
        auto const turn = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        EXPECT_TRUE(bench.settleUntil([turn] { return std::chrono::steady_clock::now() > turn; }));
        bench.advance(kSecond);
      }
      return bench.runtime().calls().count() == 0;
    }));
  }
  // Many changes, of a long text among others: the connection's own buffers fill, then the queue.
  void flood(Edits& edits) {
    for (int i = 0; i < 3000; ++i) {
      edits.one();
      change(i);
      if (i % 3 == 0) bench.clock().advance(1000);
      bench.settle();
    }
  }
};

TEST_F(SmallQueues, holdForOneThatDoesNotReadForALongTime) {
  for (unsigned seed = 1; seed <= 3 && !HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Edits edits(bench, seed);
    Subscriber slow(bench, server.channel(), true);
    slow.send(stream().add("/interfaces").done());
    EXPECT_TRUE(bench.settleUntil([this] { return bench.runtime().calls().count() == 1; }));
    flood(edits);
    slow.readOn();
    expectTruth(slow, "/interfaces");
    EXPECT_TRUE(slow.applyUntil([&slow] { return slow.syncs == 1; }));
    slow.cancel();
    EXPECT_TRUE(bench.settleUntil([this] { return bench.runtime().calls().count() == 0; }));
  }
}

TEST_F(SmallQueues, aSnapshotThatFillsThemAgainAndAgainIsWhole) {
  constexpr int kInterfaces = 300;
  for (int i = 0; i < kInterfaces; ++i)
    bench.addInterface(fmt::format("eth{}", i));
  for (char const* const path : {"/", "/interfaces/interface[name=*]/state/mtu"}) {
    Subscriber client(bench, server.channel());
    client.send(once().add(path).done());
    int const updates = client.untilSync();
    EXPECT_EQ(updates, static_cast<int>(client.tree.size())) << "each leaf once";
    EXPECT_GE(client.tree.size(), static_cast<std::size_t>(kInterfaces));
    EXPECT_TRUE(client.status().ok());
  }
}

class LittleMemory : public SubscribeLaw {
protected:
  LittleMemory() : SubscribeLaw({.memoryBytes = 1U << 20}) {}
};

TEST_F(LittleMemory, isNotUsedUpByThoseWhoDoNotRead) {
  for (int i = 0; i < 2000; ++i)
    bench.addInterface(fmt::format("eth{}", i));
  std::vector<std::unique_ptr<Subscriber>> unread;
  for (int i = 0; i < 30; ++i) {
    unread.push_back(std::make_unique<Subscriber>(bench, server.channel(), true));
    unread.back()->send(stream().add("/").done());
  }
  Subscriber last(bench, server.channel());
  last.send(gnmi::SubscribeRequest());
  EXPECT_EQ(last.status().error_code(), grpc::StatusCode::INVALID_ARGUMENT); // the others have come before
  EXPECT_TRUE(bench.settleUntil([&] {
    bench.settle();
    std::size_t const calls = bench.runtime().calls().count();
    return calls > 0 && calls < unread.size() / 2 && !bench.runtime().context().memory().queues->isOver();
  })) << "some of them are ended, and then there is room";
  unread.clear();
  EXPECT_TRUE(bench.settleUntil([&] { return bench.runtime().context().memory().whole->used() == 0; }));
}

class OneCallAtATime : public SmallQueues {
protected:
  OneCallAtATime() : SmallQueues(1) {}
};

TEST_F(OneCallAtATime, theCallOfOneThatDoesNotEvenTakeItsEndIsFreed) {
  Subscriber slow(bench, server.channel(), true);
  slow.send(stream().add("/interfaces").done());
  EXPECT_TRUE(bench.settleUntil([this] { return bench.runtime().calls().count() == 1; }));
  floodUntilItIsEnded();
  Subscriber early(bench, server.channel());
  EXPECT_EQ(early.status().error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
  bench.advance(7 * kSecond);
  EXPECT_TRUE(bench.settleUntil([this] {
    Subscriber next(bench, server.channel());
    next.send(once().add("/interfaces").updatesOnly().done());
    return next.status().ok();
  }));
  slow.readOn();
  EXPECT_EQ(slow.status().error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED) << "it learns why, too";
}

} // namespace
