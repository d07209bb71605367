// One changed leaf, from the setter to a serialized response, beside hand-written code that makes the same
// message; a million changes in a row; and what a watched leaf costs in memory.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Measures.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/responses/ArenaBlocks.h"
#include "Ports.h"

namespace {

using namespace Bench;

void watchAll(Tree& tree, Ondra::BaseRouter& router) {
  auto info = Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(1)},
                                          Ondra::Path::strToPathIs("/bench/net/ports"), &tree.ports(),
                                          Ondra::flagStream | Ondra::flagSnapshot);
  Ondra::FullKelTypeWalker::walkObject(info);
}

// The ports in an order that no cache can foresee.
std::vector<Kel::Ptr<Port>> scattered(Tree& tree) {
  std::vector<Kel::Ptr<Port>> ports;
  for (auto const& [name, port] : tree.ports().ports)
    ports.push_back(port);
  shuffle(ports);
  return ports;
}

void BM_FloorChange(benchmark::State& state) {
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  std::vector<std::uint8_t> bytes(1024);
  std::string const name = portName(17);
  std::uint64_t value = 0;
  HeapCallsPerOp const calls(state);
  for (auto _ : state) {
    auto* const response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena);
    gnmi::Notification& notification = *response->mutable_update();
    notification.set_timestamp(1'700'000'000'000'000'000 + static_cast<std::int64_t>(value));
    addPrefix(notification, name);
    addLeaf(notification, kCounterNames[0]).set_uint_val(++value);
    static_cast<void>(response->ByteSizeLong());
    response->SerializeWithCachedSizesToArray(bytes.data());
    benchmark::DoNotOptimize(bytes.data());
    arena.Reset();
  }
}

void BM_FloorChangeDirect(benchmark::State& state) {
  std::string const name = portName(17);
  std::uint64_t value = 0;
  Ondra::WireWriter out;
  HeapCallsPerOp const calls(state);
  for (auto _ : state) {
    out.clear();
    Ondra::WireRun run(out);
    putWireLeaf(run, kCounterNames[0], [&] { run.varintField(0x18, ++value); });
    putWireHead(run, name, 1'700'000'000'000'000'000 + value);
    run.finish();
    benchmark::DoNotOptimize(out.bytes().data());
  }
}

// Range 0: watched leaves. Range 1: how many ports take turns in changing.
template <class Router>
void change(benchmark::State& state, Router& router) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  Tree tree(leaves);
  watchAll(tree, router);
  std::vector<Kel::Ptr<Port>> ports = scattered(tree);
  ports.resize(static_cast<std::size_t>(state.range(1)));
  std::uint64_t value = 0;
  changesInTurn(state, router, ports.size(), [&](std::size_t which) { ports[which]->counterIs(++value); });
}

void BM_Change(benchmark::State& state) {
  CountingRouter router(true);
  change(state, router);
}

void BM_ChangeDirect(benchmark::State& state) {
  CountingByteRouter router;
  change(state, router);
}

void BM_MillionChanges(benchmark::State& state) {
  Tree tree(20'000);
  CountingRouter router(true);
  watchAll(tree, router);
  std::vector<Kel::Ptr<Port>> const ports = scattered(tree);
  std::uint64_t value = 0;
  double grown = 0;
  double calls = 0;
  for (auto _ : state) {
    for (int round = 0; round < 2; ++round) { // the first one warms up
      std::size_t const before = heapInUse();
      std::uint64_t const callsBefore = heapCalls();
      for (int i = 0; i < 1'000'000; ++i)
        ports[static_cast<std::size_t>(i) % ports.size()]->counterIs(++value);
      grown = static_cast<double>(heapInUse()) - static_cast<double>(before);
      calls = static_cast<double>(heapCalls() - callsBefore);
    }
  }
  state.counters["grownBytes"] = grown;
  state.counters["heapCalls"] = calls;
}

void BM_WatchedLeafMemory(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  double held = 0;
  for (auto _ : state) {
    Tree tree(leaves);
    CountingRouter router(false);
    Ballast const ballast;
    std::size_t const before = heapInUse();
    watchAll(tree, router);
    held = static_cast<double>(heapInUse()) - static_cast<double>(before);
  }
  state.counters["bytes/leaf"] = held / static_cast<double>(leaves);
}

BENCHMARK(BM_FloorChange);
BENCHMARK(BM_FloorChangeDirect);
BENCHMARK(BM_ChangeDirect)
    ->ArgNames({"leaves", "ports"})
    ->Args({1'000, 50})
    ->Args({1'000'000, 50})
    ->Args({1'000'000, 50'000});
BENCHMARK(BM_Change)
    ->ArgNames({"leaves", "ports"})
    ->Args({1'000, 50})
    ->Args({1'000'000, 50})
    ->Args({1'000'000, 50'000});
BENCHMARK(BM_MillionChanges)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WatchedLeafMemory)
    ->ArgName("leaves")
    ->Arg(1'000'000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace
