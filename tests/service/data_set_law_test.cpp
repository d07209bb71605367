// The laws of Set, over seeded random requests against the agent's tree and over all that can be read back.
#include <gmock/gmock.h>

#include <random>
#include <semaphore>

#include <fmt/format.h>

#include "agent/StoreDisk.h"
#include "agent/context/Memory.h"
#include "agent/data/GetRun.h"
#include "agent/data/SetRestore.h"
#include "agent/data/SetRun.h"
#include "agent/paths/TypeTree.h"
#include "agent/store/ConfigStore.h"
#include "service/data_testing.h"
#include "service/subscribe_testing.h"

namespace {

using namespace ServiceTesting;
using Agent::TypeNode;
using gnmi::GetRequest;

// Random operations over the types: mostly sound ones, over few keys so that they meet.
class Operations {
public:
  explicit Operations(std::uint64_t seed) : random_(seed) {}

  gnmi::SetRequest request(int count, bool mayBeWrong) {
    gnmi::SetRequest made;
    for (int i = 0; i < count; ++i) {
      mayBeWrong_ = mayBeWrong && oneIn(2 * count);
      switch (below(3)) {
      case 0: *made.add_delete_() = place(true).first; break;
      case 1: fill(*made.add_replace()); break;
      default: fill(*made.add_update());
      }
    }
    return made;
  }

private:
  std::size_t below(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
  }
  bool oneIn(int count) { return below(static_cast<std::size_t>(count)) == 0; }

  std::string key(TypeNode const& list) {
    if (list.key().name() == "index") return std::to_string(below(3));
    static char const* const names[] = {"eth0", "eth1", "new"};
    static char const* const addresses[] = {"192.0.2.1", "192.0.2.53", "192.0.2.99"};
    static char const* const addressesV6[] = {"2001:db8::1", "::1", "::2"};
    bool const isName = list.name == "interface" || (mayBeWrong_ && oneIn(9));
    return isName                                           ? names[below(3)]
           : list.type == Kel::typeOf<Agent::Ipv6Address>() ? addressesV6[below(3)]
                                                            : addresses[below(3)];
  }
  static bool isUseful(TypeNode const& node) {
    Agent::LeafInfo const* const leaf = node.leaf();
    return hasWritable(node) && !(leaf != nullptr && leaf->isKeyCopy) &&
           !(node.attr && node.attr.isKeyField());
  }

  // A place where something can be written, from the root down; now and then one where nothing can.
  std::pair<gnmi::Path, TypeNode> place(bool wildcards) {
    gnmi::Path path;
    TypeNode node = TypeNode::root();
    while (node.leaf() == nullptr && (node.isRoot() || !oneIn(6))) {
      std::vector<TypeNode> fitting;
      for (TypeNode const& child : node.children())
        if (child.attr && child.attr.isKeyField() ? mayBeWrong_ : mayBeWrong_ || isUseful(child))
          fitting.push_back(child);
      if (fitting.empty()) break;
      node = fitting[below(fitting.size())];
      gnmi::PathElem& elem = *path.add_elem();
      elem.set_name(std::string(node.name));
      if (node.isList() && !(wildcards && oneIn(4)))
        (*elem.mutable_key())[node.key().name().str()] = wildcards && oneIn(4) ? "*" : key(node);
    }
    return {path, node};
  }

  std::string leafJson(TypeNode const& leaf) {
    if (mayBeWrong_ && oneIn(3)) return "{}";
    Agent::LeafInfo const& info = *leaf.leaf();
    if (info.isLeafList) return below(2) == 0 ? "[]" : R"(["a","b"])";
    switch (info.type) {
    case Agent::LeafType::Boolean: return below(2) == 0 ? "true" : "false";
    case Agent::LeafType::Enumeration:
    case Agent::LeafType::Identity: {
      auto const& all = info.held.enumerators();
      return fmt::format("\"{}\"", all[below(all.size())].name.view());
    }
    case Agent::LeafType::String:
      if (info.text == &Agent::macAddress()) return fmt::format("\"02:00:00:00:00:0{}\"", below(3));
      return fmt::format("\"text{}{}\"", info.text == nullptr || (mayBeWrong_ && oneIn(9)) ? " " : "-",
                         below(3));
    default: return std::to_string(info.range.min + below(mayBeWrong_ ? 100'000 : 33));
    }
  }
  std::string containerJson(TypeNode const& node, std::string const& entryKey) {
    std::string text = "{";
    auto const member = [&](TypeNode const& child, std::string const& value) {
      text += fmt::format("{}\"{}{}\":{}", text.size() > 1 ? "," : "",
                          oneIn(4) ? std::string(child.module) + ":" : std::string(), child.name, value);
    };
    for (TypeNode const& child : node.children()) {
      if (child.attr && child.attr.isKeyField()) {
        bool const isNumber = child.leaf()->type != Agent::LeafType::String;
        if (!entryKey.empty()) member(child, isNumber ? entryKey : fmt::format("\"{}\"", entryKey));
      } else if (!isUseful(child) || below(3) == 0) {
        continue;
      } else if (child.isList()) {
        std::string const first = key(child), second = key(child);
        std::string entries = containerJson(child, first);
        if (first != second) entries += "," + containerJson(child, second);
        member(child, "[" + entries + "]");
      } else {
        member(child, child.leaf() != nullptr ? leafJson(child) : containerJson(child, ""));
      }
    }
    return text + "}";
  }
  void fill(gnmi::Update& update) {
    auto const [path, node] = place(mayBeWrong_);
    *update.mutable_path() = path;
    std::string entryKey;
    if (node.isList() && !mayBeWrong_) entryKey = path.elem(path.elem_size() - 1).key().begin()->second;
    update.mutable_val()->set_json_val(node.leaf() != nullptr ? leafJson(node)
                                                              : containerJson(node, entryKey));
  }

  std::mt19937_64 random_;
  bool mayBeWrong_ = false;
};

class DataSetLaws : public testing::Test {
protected:
  DataSetLaws() {
    bench.fill();
    subscriber.send(stream().add("/").done());
    subscriber.untilSync();
  }
  // What has been told since the sync, but for the time of the last configuration.
  std::string toldSince() {
    // A change of our own, so that there is an end to wait for.
    std::string const mark = std::to_string(++marks_);
    bench.tree().system->state->leafIs(&Agent::SystemState::softwareVersion, Kel::String(mark));
    std::string told;
    for (;;) {
      gnmi::SubscribeResponse const next = subscriber.next();
      subscriber.apply(next);
      for (gnmi::Path const& each : next.update().delete_())
        told += "- " + text(next.update().prefix(), each) + "\n";
      for (gnmi::Update const& update : next.update().update()) {
        std::string const where = text(next.update().prefix(), update.path());
        if (where.ends_with("/software-version") && update.val().string_val() == mark) return told;
        if (!where.ends_with("-timestamp")) told += "+ " + where + "\n";
      }
      if (!next.has_update()) return told + "nothing more";
    }
  }

  DataBench bench;
  Subscriber subscriber{bench, bench.channel()};

private:
  int marks_ = 0;
};

TEST_F(DataSetLaws, aRefusedRequestIsInvisible) {
  int refused = 0, accepted = 0;
  for (std::uint64_t seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    gnmi::SetRequest const request = Operations(seed).request(4, true);
    static_cast<void>(toldSince());
    auto const before = bench.leaves();
    bool const ok = bench.setHere(request).ok();
    ok ? ++accepted : ++refused;
    if (ok) continue;
    EXPECT_EQ(difference(before, bench.leaves()), "") << request.DebugString();
    ASSERT_EQ(toldSince(), "") << request.DebugString();
  }
  EXPECT_GT(refused, 15);
  EXPECT_GT(accepted, 15);
}

// Together or one after the other: the configuration is the same. And replacing all of it by what was read
// restores it.
TEST_F(DataSetLaws, operationsTakeEffectInTheirOrder) {
  std::string const start = bench.value("/", gnmi::JSON_IETF, GetRequest::CONFIG);
  gnmi::SetRequest restore;
  restore.add_replace()->mutable_val()->set_json_ietf_val(start);
  for (std::uint64_t seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    gnmi::SetRequest const request = Operations(seed).request(5, false);
    grpc::Status const together = bench.setHere(request);
    ASSERT_TRUE(together.ok()) << together.error_message() << request.DebugString();
    auto const atOnce = bench.leaves(GetRequest::CONFIG);
    ASSERT_TRUE(bench.setHere(restore).ok());
    EXPECT_EQ(bench.value("/", gnmi::JSON_IETF, GetRequest::CONFIG), start);
    auto const single = [&](auto const& operations, auto const& add) {
      for (auto const& operation : operations) {
        gnmi::SetRequest one;
        *add(one) = operation;
        ASSERT_TRUE(bench.setHere(one).ok());
      }
    };
    single(request.delete_(), [](gnmi::SetRequest& one) { return one.add_delete_(); });
    single(request.replace(), [](gnmi::SetRequest& one) { return one.add_replace(); });
    single(request.update(), [](gnmi::SetRequest& one) { return one.add_update(); });
    EXPECT_EQ(difference(bench.leaves(GetRequest::CONFIG), atOnce), "") << request.DebugString();
    ASSERT_TRUE(bench.setHere(restore).ok());
  }
}

void collectPlaces(TypeNode const& node, std::string const& path, std::vector<std::string>& to) {
  for (TypeNode const& child : node.children()) {
    if (!hasWritable(child)) continue;
    std::string below = fmt::format("{}/{}", path, child.name);
    if (child.isList())
      below += fmt::format("[{}={}]", child.key().name().view(),
                           child.name == "interface"          ? "eth0"
                           : child.name == "subinterface"     ? "0"
                           : child.name == "server"           ? "192.0.2.53"
                           : below.find("ipv4") == below.npos ? "2001:db8::1"
                                                              : "192.0.2.2");
    to.push_back(below);
    collectPlaces(child, below, to);
  }
}

// What is read, set again, changes nothing and tells nothing.
TEST_F(DataSetLaws, whatIsReadCanBeSetAgain) {
  std::vector<std::string> places = {"/"};
  collectPlaces(TypeNode::root(), "", places);
  int written = 0;
  auto const before = bench.leaves();
  static_cast<void>(toldSince());
  for (std::string const& place : places) {
    for (gnmi::Encoding const encoding : {gnmi::JSON, gnmi::JSON_IETF, gnmi::PROTO}) {
      gnmi::GetResponse read;
      if (!bench.get(getRequest({place}, encoding, GetRequest::CONFIG), read).ok()) continue;
      gnmi::SetRequest request;
      for (gnmi::Update const& update : read.notification(0).update()) {
        // A container is no value in PROTO: its leaves are.
        bool const isLeaf = encoding == gnmi::PROTO && read.notification(0).update_size() > 1;
        *(isLeaf ? request.add_update() : request.add_replace()) = update;
        ++written;
      }
      grpc::Status const status = bench.set(request);
      EXPECT_TRUE(status.ok()) << place << ": " << status.error_message();
    }
  }
  EXPECT_GT(written, 100);
  auto after = bench.leaves();
  after["/system/state/software-version"] = ""; // our own mark
  auto expected = before;
  expected["/system/state/software-version"] = "";
  EXPECT_EQ(difference(expected, after), "");
  EXPECT_EQ(toldSince(), "");
}

// A Set that takes many turns, while the machine and other clients have theirs: who reads finds all of it,
// what is told of other places passes by, and what the machine does to the same places comes in the right
// order.
TEST_F(DataSetLaws, aSetInSlicesIsSeenWholeOrNotAtAll) {
  bench.runtime().context().scheduler()->sliceNsIs(0); // a pause wherever there may be one
  auto const& servers = bench.tree().system->dns->servers->server;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    std::mt19937_64 random(seed);
    std::string text = "update /interfaces/interface[name=eth1]/config/description \"a\"\n";
    for (int i = 0; i < 130; ++i)
      text += fmt::format("update /system/dns/servers/server[address=10.0.{}.{}]/config/port {}\n", seed, i,
                          seed);
    text += "delete /system/dns/servers/server\n";
    static_cast<void>(toldSince());
    std::size_t const before = servers.size();
    auto plan = Agent::setPlanOf(setRequest(text));
    ASSERT_TRUE(plan.ok());
    bool isDone = false;
    bench.runtime().sets().setIs(
        {std::move(*plan), nullptr, [&isDone](grpc::Status const& status, std::int64_t) {
           EXPECT_TRUE(status.ok()) << status.error_message();
           isDone = true;
         }});
    std::shared_ptr<Agent::GetRun> read;
    bool isRead = false;
    int turns = 0;
    auto const mtu = static_cast<std::uint16_t>(2000 + seed);
    for (; !isDone; ++turns) {
      ASSERT_TRUE(bench.runtime().context().scheduler()->runOnce());
      if (servers.size() == before || isDone) continue;
      if (!read) { // half of it is there
        auto order = Agent::GetOrder::of(getRequest({"/system/dns/servers"}));
        read = std::make_shared<Agent::GetRun>(bench.runtime().router(), std::move(*order), "");
        read->start([&](grpc::Status const&) { isRead = true; });
        bench.tree().interfaces->interface.find("eth0")->state->leafIs(&Agent::InterfaceState::mtu, mtu);
      } else if (random() % 40 == 0) {
        bench.tree().interfaces->entryDel(&Agent::Interfaces::interface, Kel::String("eth1"));
        if (random() % 2 == 0) bench.addInterface("eth1", mtu);
      }
      EXPECT_FALSE(isRead);
    }
    EXPECT_GT(turns, 20);
    std::string const told = toldSince();
    EXPECT_LT(told.find("eth0]/state/mtu"), told.find("server["));
    EXPECT_TRUE(isRead);
    grpc::ByteBuffer bytes = read->takeResponse();
    gnmi::GetResponse response;
    ASSERT_TRUE(grpc::SerializationTraits<gnmi::GetResponse>::Deserialize(&bytes, &response).ok());
    auto const all = nlohmann::json::parse(response.notification(0).update(0).val().json_val());
    EXPECT_EQ(all["server"].size(), 131U); // one is the machine's
    Subscriber fresh(bench, bench.channel());
    fresh.send(once().add("/").done());
    fresh.untilSync();
    EXPECT_EQ(difference(fresh.tree, subscriber.tree), "");
    EXPECT_THAT(subscriber.complaints, testing::IsEmpty());
  }
}

// What it would tell has no room: everything is put back, and nobody hears of it, nor reads it, wherever a
// Get is when the Set begins.
TEST(DataSetMemory, aSetThatHasNoRoomIsTakenBack) {
  Agent::Limits limits;
  limits.memoryBytes = 4U << 20;
  DataBench bench(limits);
  bench.fill();
  bench.runtime().context().scheduler()->sliceNsIs(0);
  Subscriber subscriber(bench, bench.channel());
  subscriber.send(stream().add("/").done());
  subscriber.untilSync();
  auto const before = bench.leaves();
  std::string text;
  for (int i = 0; i < 400; ++i)
    text += fmt::format("update /system/dns/servers/server[address=10.0.{}.{}] {{}}\n", i / 200, i % 200);
  for (int round = 0; round < 12; ++round) { // the Set comes at another point of a Get each time
    std::string refusal;
    for (int passes = 0; refusal.empty();) {
      auto const read = std::make_shared<Agent::GetRun>(
          bench.runtime().router(), *Agent::GetOrder::of(getRequest({"/system/dns/servers"})), "");
      bool isRead = false;
      read->start([&isRead](grpc::Status const&) { isRead = true; });
      for (; !isRead; ++passes) {
        if (passes == round)
          bench.runtime().sets().setIs(
              {std::move(*Agent::setPlanOf(setRequest(text))), nullptr,
               [&refusal](grpc::Status const& status, std::int64_t) { refusal = status.error_message(); }});
        ASSERT_TRUE(bench.runtime().context().scheduler()->runOnce());
      }
      grpc::ByteBuffer bytes = read->takeResponse();
      gnmi::GetResponse response;
      ASSERT_TRUE(grpc::SerializationTraits<gnmi::GetResponse>::Deserialize(&bytes, &response).ok());
      EXPECT_THAT(response.ShortDebugString(), testing::Not(testing::HasSubstr("10.0."))) << round;
    }
    EXPECT_THAT(refusal, testing::HasSubstr("what it would tell"));
    EXPECT_EQ(difference(before, bench.leaves()), "");
  }
  EXPECT_TRUE(bench.setHere(setRequest("update /system/config/hostname \"after\"")).ok());
  EXPECT_EQ(subscriber.next().update().update(0).val().string_val(), "after");
  EXPECT_EQ(bench.runtime().context().memory().plans->used(), 0U);
}

// A filled tree whose configuration a store keeps.
struct StoredBench {
  explicit StoredBench(AgentTesting::StoreDisk& disk) : store(disk.files()) {
    EXPECT_TRUE(store.open().ok());
    bench.fill();
    EXPECT_THAT(Agent::restore(bench.runtime().sets(), store.journal().map()), testing::IsEmpty());
    bench.runtime().sets().storeIs(&store);
  }
  // All at once; the codes of their ends.
  std::vector<grpc::StatusCode> set(std::vector<gnmi::SetRequest> const& requests) {
    std::vector<grpc::StatusCode> codes(requests.size());
    std::size_t ended = 0;
    for (std::size_t i = 0; i < requests.size(); ++i) {
      auto plan = Agent::setPlanOf(requests[i]);
      auto extensions = Agent::SetExtensions::of(requests[i]);
      EXPECT_TRUE(extensions.ok());
      auto const end = [&codes, &ended, i](grpc::Status const& status, std::int64_t) {
        codes[i] = status.error_code();
        ++ended;
      };
      if (plan)
        bench.runtime().sets().setIs({std::move(*plan), nullptr, end, std::move(*extensions)});
      else
        end(plan.error(), 0);
    }
    EXPECT_TRUE(bench.settleUntil([&] { return ended == requests.size(); }));
    return codes;
  }

  Agent::ConfigStore store;
  DataBench bench;
};

// Many on their way to the disk come to what they come to one after the other, and the next start finds it.
TEST(DataSetStore, whatIsKeptIsTheConfiguration) {
  int refused = 0;
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    std::vector<gnmi::SetRequest> requests;
    for (std::uint64_t i = 0; i < 12; ++i)
      requests.push_back(Operations(1000 * seed + i).request(2, true));
    std::vector<grpc::StatusCode> expected;
    DataBench::Leaves leaves;
    {
      DataBench bench;
      bench.fill();
      for (gnmi::SetRequest const& request : requests)
        expected.push_back(bench.setHere(request).error_code());
      leaves = bench.leaves(GetRequest::CONFIG);
    }
    refused += static_cast<int>(std::ranges::count_if(expected, [](auto code) { return code != grpc::OK; }));
    AgentTesting::StoreDisk disk;
    {
      StoredBench kept(disk);
      EXPECT_EQ(kept.set(requests), expected);
      EXPECT_EQ(difference(leaves, kept.bench.leaves(GetRequest::CONFIG)), "");
    }
    StoredBench again(disk);
    ASSERT_EQ(difference(leaves, again.bench.leaves(GetRequest::CONFIG)), "");
  }
  EXPECT_GT(refused, 10);
}

// A commit that is not confirmed leaves nothing, whether its time ends, somebody cancels it, or the process
// ends; one that is confirmed is as any other Set.
TEST(DataSetStore, aCommitHoldsWhenItIsConfirmed) {
  constexpr std::int64_t kSecondNs = 1'000'000'000;
  int committed = 0;
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    AgentTesting::StoreDisk disk;
    DataBench::Leaves expected;
    {
      StoredBench kept(disk);
      ASSERT_EQ(kept.set({Operations(seed).request(3, false)}).front(), grpc::OK);
      auto const before = kept.bench.leaves(GetRequest::CONFIG);
      auto request = Operations(seed + 1000).request(4, true);
      auto& commit = *request.add_extension()->mutable_commit();
      commit.set_id("1");
      commit.mutable_commit()->mutable_rollback_duration()->set_seconds(2);
      bool const isCommitted = kept.set({request}).front() == grpc::OK;
      committed += isCommitted ? 1 : 0;
      auto const after = kept.bench.leaves(GetRequest::CONFIG);
      gnmi::SetRequest end;
      end.add_extension()->mutable_commit()->set_id("1");
      expected = before;
      switch (seed % 4) {
      case 0: break; // it crashes
      case 1: kept.bench.advance(3 * kSecondNs); break;
      case 2: end.mutable_extension(0)->mutable_commit()->mutable_cancel(); break;
      default:
        end.mutable_extension(0)->mutable_commit()->mutable_confirm();
        expected = isCommitted ? after : before;
      }
      EXPECT_EQ(seed % 4 > 1 ? kept.set({end}).front() == grpc::OK : isCommitted, isCommitted);
      EXPECT_EQ(seed % 4 == 0 ? "" : difference(expected, kept.bench.leaves(GetRequest::CONFIG)), "");
    }
    StoredBench again(disk);
    ASSERT_EQ(difference(expected, again.bench.leaves(GetRequest::CONFIG)), "");
  }
  EXPECT_GT(committed, 30);
}

// Nobody sees a Set before the disk has it, nobody but the Set waits for the disk, and what the disk refuses
// has not been.
TEST(DataSetStore, theDiskComesFirst) {
  AgentTesting::StoreDisk disk;
  StoredBench kept(disk);
  auto const before = kept.bench.leaves();
  std::counting_semaphore<> gate(0);
  disk.whenSynced = [&gate] { gate.acquire(); };
  grpc::Status how(grpc::StatusCode::UNKNOWN, "");
  kept.bench.runtime().sets().setIs(
      {std::move(*Agent::setPlanOf(setRequest("update /system/config/hostname \"a\""))), nullptr,
       [&how](grpc::Status const& status, std::int64_t) { how = status; }});
  EXPECT_EQ(difference(before, kept.bench.leaves()), "");
  EXPECT_EQ(how.error_code(), grpc::StatusCode::UNKNOWN);
  gate.release(1000);
  EXPECT_TRUE(kept.bench.settleUntil([&how] { return how.ok(); }));
  EXPECT_EQ(kept.bench.value("/system/config/hostname"), "\"a\"");

  auto const set = setRequest("update /system/config/hostname \"b\"");
  auto const kept1 = kept.bench.leaves();
  disk.planIs({AgentTesting::StoreDisk::Fault::FromThereOn, 0, ENOSPC});
  EXPECT_THAT(kept.set({set, set}), testing::Each(grpc::StatusCode::RESOURCE_EXHAUSTED));
  disk.planIs({AgentTesting::StoreDisk::Fault::Once, 0, EIO});
  EXPECT_THAT(kept.set({set}), testing::Each(grpc::StatusCode::INTERNAL));
  EXPECT_EQ(difference(kept1, kept.bench.leaves()), "");
  EXPECT_THAT(kept.set({set}), testing::Each(grpc::StatusCode::OK));
}

} // namespace
