// Small objects: walks, changes, Sets, Gets and memory of a tree whose objects have one to five leaves,
// beside hand-written code that makes the same of flat arrays. What real trees cost; the other benchmarks'
// objects have twenty leaves each.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <string>
#include <utility>
#include <vector>

#include "Interfaces.h"
#include "Measures.h"
#include "Ondra/responses/ArenaBlocks.h"
#include "SetMessages.h"

namespace {

using namespace Bench;

std::size_t leavesOf(benchmark::State const& state) { return static_cast<std::size_t>(state.range(0)); }

// By the host's own calls.
void Small_Make(benchmark::State& state) {
  PerLeaf const perLeaf(state, leavesOf(state) / kLeavesPerInterface * kLeavesPerInterface);
  for (auto _ : state)
    InterfaceTree const tree(leavesOf(state));
}

// --- walks ----------------------------------------------------------------------------------------------

// Once the objects are watched, as they are in an agent that anybody subscribes to.
template <class Router>
void walks(benchmark::State& state, Router& router) {
  InterfaceTree tree(leavesOf(state));
  tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
  if (router.pushes != tree.size() * kResponsesPerInterface) state.SkipWithError("the walk is not whole");
  state.counters["bytes/leaf"] = static_cast<double>(router.bytes) / static_cast<double>(tree.leaves());
  PerLeaf const perLeaf(state, tree.leaves());
  for (auto _ : state)
    tree.walk(router, Ondra::flagSnapshot);
}

void Small_WalkToMessages(benchmark::State& state) {
  CountingRouter router(false);
  walks(state, router);
}
void Small_WalkToBytes(benchmark::State& state) {
  CountingRouter router(true);
  walks(state, router);
}
void Small_WalkDirect(benchmark::State& state) {
  CountingByteRouter router;
  walks(state, router);
}

// The first walk that watches: it makes a notifiee of each object.
void Small_FirstWalkDirect(benchmark::State& state) {
  CountingByteRouter router;
  InterfaceTree tree(leavesOf(state));
  firstWalks(state, tree.leaves(), &Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees,
             [&] { tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot); });
}

void floorMessages(benchmark::State& state, bool serialize) {
  std::vector<FlatInterface> const all = flatInterfaces(leavesOf(state));
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  std::vector<std::uint8_t> bytes(64 * 1024);
  std::size_t written = 0;
  auto const once = [&] {
    for (FlatInterface const& one : all)
      interfaceMessages(one, [&](Below below, auto const& fill) {
        auto* const response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena);
        gnmi::Notification& notification = *response->mutable_update();
        notification.set_timestamp(kTime);
        addInterfacePrefix(notification, one.name, below);
        fill(notification);
        if (serialize) {
          written += response->ByteSizeLong();
          response->SerializeWithCachedSizesToArray(bytes.data());
          benchmark::DoNotOptimize(bytes.data());
        }
        arena.Reset();
      });
  };
  once();
  std::size_t const leaves = all.size() * kLeavesPerInterface;
  state.counters["bytes/leaf"] = static_cast<double>(written) / static_cast<double>(leaves);
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    once();
}
void Small_FloorToMessages(benchmark::State& state) { floorMessages(state, false); }
void Small_FloorToBytes(benchmark::State& state) { floorMessages(state, true); }

void Small_FloorDirect(benchmark::State& state) {
  std::vector<FlatInterface> const all = flatInterfaces(leavesOf(state));
  Ondra::WireWriter out;
  std::size_t written = 0;
  auto const once = [&] {
    for (FlatInterface const& one : all)
      interfaceBytes(one, [&](Below below, auto const& fill) {
        out.clear();
        Ondra::WireRun run(out);
        fill(run);
        putInterfaceHead(run, one.name, below, kTime);
        run.finish();
        written += out.size();
        benchmark::DoNotOptimize(out.bytes().data());
      });
  };
  once();
  std::size_t const leaves = all.size() * kLeavesPerInterface;
  state.counters["bytes/leaf"] = static_cast<double>(written) / static_cast<double>(leaves);
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    once();
}

// --- changes --------------------------------------------------------------------------------------------

// Range 1: how many interfaces take turns in changing their MTU, in an order that no cache can foresee.
template <class Router>
void changes(benchmark::State& state, Router& router) {
  InterfaceTree tree(leavesOf(state));
  tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
  std::vector<Kel::Ptr<Agent::InterfaceConfig>> configs;
  for (auto const& [name, interface] : tree.interfaces().interface)
    configs.push_back(interface->config);
  shuffle(configs);
  configs.resize(std::min(configs.size(), static_cast<std::size_t>(state.range(1))));
  std::uint16_t mtu = 0;
  changesInTurn(state, router, configs.size(),
                [&](std::size_t which) { configs[which]->leafIs(&Agent::InterfaceConfig::mtu, ++mtu); });
}
void Small_Change(benchmark::State& state) {
  CountingRouter router(true);
  changes(state, router);
}
void Small_ChangeDirect(benchmark::State& state) {
  CountingByteRouter router;
  changes(state, router);
}

// The same turns, in flat interfaces.
class FlatTurns {
public:
  explicit FlatTurns(benchmark::State const& state) : all_(flatInterfaces(leavesOf(state))) {
    for (FlatInterface& one : all_)
      turns_.push_back(&one);
    shuffle(turns_);
    turns_.resize(std::min(turns_.size(), static_cast<std::size_t>(state.range(1))));
  }
  FlatInterface const& changed() {
    FlatInterface& one = *turns_[next_];
    next_ = next_ + 1 == turns_.size() ? 0 : next_ + 1;
    ++one.mtu;
    return one;
  }

  [[nodiscard]] std::size_t size() const noexcept { return turns_.size(); }

private:
  std::vector<FlatInterface> all_;
  std::vector<FlatInterface*> turns_;
  std::size_t next_ = 0;
};

void Small_FloorChange(benchmark::State& state) {
  FlatTurns turns(state);
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  std::vector<std::uint8_t> bytes(1024);
  for (auto _ : state) {
    FlatInterface const& one = turns.changed();
    auto* const response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena);
    gnmi::Notification& notification = *response->mutable_update();
    notification.set_timestamp(kTime);
    addInterfacePrefix(notification, one.name, {"config"});
    addLeaf(notification, "mtu").set_uint_val(one.mtu);
    static_cast<void>(response->ByteSizeLong());
    response->SerializeWithCachedSizesToArray(bytes.data());
    benchmark::DoNotOptimize(bytes.data());
    arena.Reset();
    eventEnds(turns.size());
  }
}
void Small_FloorChangeDirect(benchmark::State& state) {
  FlatTurns turns(state);
  Ondra::WireWriter out;
  for (auto _ : state) {
    FlatInterface const& one = turns.changed();
    out.clear();
    Ondra::WireRun run(out);
    putNumber(run, "mtu", one.mtu);
    putInterfaceHead(run, one.name, {"config"}, kTime);
    run.finish();
    benchmark::DoNotOptimize(out.bytes().data());
    eventEnds(turns.size());
  }
}

// --- Sets -----------------------------------------------------------------------------------------------

Kel::Ptr<Ondra::Path const> const& dataRoot() {
  static Kel::Ptr<Ondra::Path const> const root = Ondra::Path::strToPathIs("/openconfig");
  return root;
}

bool executed(std::string const& bytes, std::string& answer) {
  return executedBytes(dataRoot(), bytes, answer).ok();
}

void Small_SetExisting(benchmark::State& state) {
  constexpr std::size_t kCount = 250;
  InterfaceTree tree(leavesOf(state));
  std::size_t const count = std::min(tree.size(), kCount);
  std::string const bytes[] = {interfaceSet(0, count, 1500), interfaceSet(0, count, 1501)};
  std::string answer;
  PerLeaf const perLeaf(state, count * kWrittenPerInterface);
  std::size_t turn = 0;
  for (auto _ : state)
    if (!executed(bytes[turn++ % 2], answer)) state.SkipWithError("the Set was refused");
}

// Makes so many leaves' interfaces in one request, in a tree that has none.
template <class Execute>
void makeBySet(benchmark::State& state, Execute const& execute) {
  InterfaceTree tree(0);
  std::size_t const count = leavesOf(state) / kWrittenPerInterface;
  std::string const bytes = interfaceSet(0, count, 1500);
  PerLeaf const perLeaf(state, count * kWrittenPerInterface);
  for (auto _ : state) {
    if (!execute(bytes) || tree.size() != count) state.SkipWithError("they were not made");
    state.PauseTiming();
    std::vector<Kel::String> names;
    for (auto const& [name, interface] : tree.interfaces().interface)
      names.push_back(name);
    for (Kel::String const& name : names)
      tree.interfaces().entryDel(&Agent::Interfaces::interface, name);
    state.ResumeTiming();
  }
}

void Small_SetMaking(benchmark::State& state) {
  std::string answer;
  makeBySet(state, [&answer](std::string const& bytes) { return executed(bytes, answer); });
}

// What the library does of it: the clock stands while the request is parsed.
void Small_SetMakingExecute(benchmark::State& state) {
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  makeBySet(state, [&state, &arena](std::string const& bytes) {
    state.PauseTiming();
    arena.Reset();
    auto& request = *google::protobuf::Arena::CreateMessage<gnmi::SetRequest>(&arena);
    auto& response = *google::protobuf::Arena::CreateMessage<gnmi::SetResponse>(&arena);
    request.ParseFromString(bytes);
    state.ResumeTiming();
    return Ondra::KelGnmiSet::Set(dataRoot(), request, response).executeInPlace().ok();
  });
}

void Small_FloorSet(benchmark::State& state) {
  std::size_t const count = leavesOf(state) / kWrittenPerInterface;
  std::string const bytes = interfaceSet(0, count, 1500);
  std::string answer;
  PerLeaf const perLeaf(state, count * kWrittenPerInterface);
  for (auto _ : state)
    messagesAlone(bytes, answer);
}

// --- memory ---------------------------------------------------------------------------------------------

// Of the model, and of watching all of it: with what a second walk leaves, too.
void Small_Memory(benchmark::State& state) {
  double model = 0;
  double watching = 0;
  double leaves = 1;
  for (auto _ : state) {
    Ballast const ballast;
    std::size_t const before = heapInUse();
    InterfaceTree tree(leavesOf(state));
    std::size_t const made = heapInUse();
    CountingByteRouter router;
    tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
    tree.walk(router, Ondra::flagSnapshot);
    leaves = static_cast<double>(tree.leaves());
    model = static_cast<double>(made - before);
    watching = static_cast<double>(heapInUse() - made);
  }
  state.counters["bytes/leaf"] = model / leaves;
  state.counters["bytes/object"] = model / leaves * kLeavesPerInterface / kObjectsPerInterface;
  state.counters["watching/leaf"] = watching / leaves;
  state.counters["watching/object"] = watching / leaves * kLeavesPerInterface / kObjectsPerInterface;
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
}
void changing(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"leaves", "objects"})
      ->Args({1'000, 50})
      ->Args({1'000'000, 50})
      ->Args({1'000'000, 50'000});
}

BENCHMARK(Small_FloorToMessages)->Apply(sizes);
BENCHMARK(Small_FloorToBytes)->Apply(sizes);
BENCHMARK(Small_FloorDirect)->Apply(sizes);
BENCHMARK(Small_Make)->Apply(sizes);
BENCHMARK(Small_WalkToMessages)->Apply(sizes);
BENCHMARK(Small_WalkToBytes)->Apply(sizes);
BENCHMARK(Small_WalkDirect)->Apply(sizes);
BENCHMARK(Small_FirstWalkDirect)->Apply(sizes);
BENCHMARK(Small_FloorChange)->Apply(changing);
BENCHMARK(Small_FloorChangeDirect)->Apply(changing);
BENCHMARK(Small_Change)->Apply(changing);
BENCHMARK(Small_ChangeDirect)->Apply(changing);
BENCHMARK(Small_FloorSet)->Apply(sizes);
BENCHMARK(Small_SetExisting)->Apply(sizes);
BENCHMARK(Small_SetMaking)->Apply(sizes);
BENCHMARK(Small_SetMakingExecute)->Apply(sizes);
BENCHMARK(Small_Memory)->ArgName("leaves")->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
