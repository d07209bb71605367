// Walks of live objects to messages and to bytes, beside hand-written code that fills the same messages from
// a flat array.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Measures.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/responses/ArenaBlocks.h"
#include "Ports.h"
#include "Tovak/TaskScheduler.h"

namespace {

using namespace Bench;

Ondra::WalkResult walkAll(Tree& tree, Ondra::BaseRouter& router, std::uint64_t walkId) {
  auto info = Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(walkId)},
                                          Ondra::Path::strToPathIs("/bench/net/ports"), &tree.ports(),
                                          Ondra::flagSnapshot);
  return Ondra::FullKelTypeWalker::walkObject(info);
}

void BM_WalkToMessages(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  Tree tree(leaves);
  CountingRouter router(false);
  walkAll(tree, router, 1);
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    walkAll(tree, router, 1);
}

void BM_WalkToBytes(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  Tree tree(leaves);
  CountingRouter router(true);
  walkAll(tree, router, 1);
  state.counters["bytes/leaf"] = static_cast<double>(router.bytes) / static_cast<double>(leaves);
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    walkAll(tree, router, 1);
}

void BM_WalkDirect(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  Tree tree(leaves);
  CountingByteRouter router;
  walkAll(tree, router, 1);
  state.counters["bytes/leaf"] = static_cast<double>(router.bytes) / static_cast<double>(leaves);
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    walkAll(tree, router, 1);
}

// --- the floor -----------------------------------------------------------------------------------

struct FlatPort {
  std::array<std::uint64_t, 12> counters;
  std::array<std::string, 4> texts;
  std::array<bool, 4> flags;
};

void fillFlat(gnmi::Notification& notification, FlatPort const& port) {
  notification.set_timestamp(1'700'000'000'000'000'000);
  addPrefix(notification, port.texts[0]);
  notification.mutable_update()->Reserve(kLeavesPerPort);
  addLeaf(notification, kTextNames[0]).mutable_string_val()->assign(port.texts[0]);
  for (std::size_t i = 0; i < port.counters.size(); ++i)
    addLeaf(notification, kCounterNames[i]).set_uint_val(port.counters[i]);
  for (std::size_t i = 1; i < port.texts.size(); ++i)
    addLeaf(notification, kTextNames[i]).mutable_string_val()->assign(port.texts[i]);
  for (std::size_t i = 0; i < port.flags.size(); ++i)
    addLeaf(notification, kFlagNames[i]).set_bool_val(port.flags[i]);
}

std::vector<FlatPort> flatPorts(std::size_t leaves) {
  std::vector<FlatPort> ports(leaves / kLeavesPerPort);
  Port const like;
  for (std::size_t i = 0; i < ports.size(); ++i) {
    ports[i] = {{like.c0, like.c1, like.c2, like.c3, like.c4, like.c5, like.c6, like.c7, like.c8, like.c9,
                 like.c10, like.c11},
                {portName(i), "ethernetCsma", "abcdefghijkl", "mnopqrstuvwx"},
                {true, false, true, true}};
  }
  return ports;
}

void floorRun(benchmark::State& state, bool serialize) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  std::vector<FlatPort> const ports = flatPorts(leaves);
  google::protobuf::Arena arena(Ondra::ArenaBlocks::arenaOptions());
  std::vector<std::uint8_t> bytes(64 * 1024);
  auto const once = [&] {
    for (FlatPort const& port : ports) {
      auto* const response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena);
      fillFlat(*response->mutable_update(), port);
      if (serialize) {
        static_cast<void>(response->ByteSizeLong());
        response->SerializeWithCachedSizesToArray(bytes.data());
        benchmark::DoNotOptimize(bytes.data());
      }
      arena.Reset();
    }
  };
  once();
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    once();
}

// The same bytes written directly, from the end to the beginning.
void BM_FloorDirect(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  std::vector<FlatPort> const ports = flatPorts(leaves);
  Ondra::WireWriter out;
  auto const once = [&] {
    for (FlatPort const& port : ports) {
      out.clear();
      Ondra::WireRun run(out);
      for (std::size_t i = kFlagNames.size(); i-- > 0;)
        putWireLeaf(run, kFlagNames[i], [&] { run.varintField(0x20, port.flags[i] ? 1 : 0); });
      for (std::size_t i = kTextNames.size(); i-- > 1;)
        putWireLeaf(run, kTextNames[i], [&] { run.textField(0x0a, port.texts[i]); });
      for (std::size_t i = kCounterNames.size(); i-- > 0;)
        putWireLeaf(run, kCounterNames[i], [&] { run.varintField(0x18, port.counters[i]); });
      putWireLeaf(run, kTextNames[0], [&] { run.textField(0x0a, port.texts[0]); });
      putWireHead(run, port.texts[0], 1'700'000'000'000'000'000);
      run.finish();
      benchmark::DoNotOptimize(out.bytes().data());
    }
  };
  once();
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state)
    once();
}

void BM_FloorToMessages(benchmark::State& state) { floorRun(state, false); }
void BM_FloorToBytes(benchmark::State& state) { floorRun(state, true); }

// --- memory --------------------------------------------------------------------------------------

// What an object of 20 leaves costs, its place in its collection included.
void BM_ObjectMemory(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  double held = 0;
  for (auto _ : state) {
    Ballast const ballast;
    std::size_t const before = heapInUse();
    Tree const tree(leaves);
    held = static_cast<double>(heapInUse()) - static_cast<double>(before);
  }
  std::size_t const ports = leaves / kLeavesPerPort;
  state.counters["bytes/object"] = held / static_cast<double>(ports);
}

// A walk that the pipe stops after the given number of notifications: what is held while it is parked, beyond
// the model and its notifiees, must not depend on how much was walked.
void BM_ParkedWalk(benchmark::State& state) {
  auto const leaves = static_cast<std::size_t>(state.range(0));
  auto const walked = static_cast<std::size_t>(state.range(1));
  Tree tree(leaves);
  CountingRouter router(false);
  walkAll(tree, router, 1); // notifiees and warm lists
  double held = 0;
  std::uint64_t walkId = 2;
  for (auto _ : state) {
    router.pushes = 0;
    router.refuseAfter = walked;
    std::size_t const before = heapInUse();
    auto const result = walkAll(tree, router, walkId++);
    held = static_cast<double>(heapInUse()) - static_cast<double>(before);
    if (result != Ondra::WalkResult::PipeFull) state.SkipWithError("the walk was not stopped");
    Ondra::FullKelTypeWalker::flushWalkMap();
  }
  state.counters["heldBytes"] = held;
}

BENCHMARK(BM_FloorToMessages)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_FloorDirect)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_FloorToBytes)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_WalkToMessages)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_WalkToBytes)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_WalkDirect)->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(BM_ObjectMemory)->ArgName("leaves")->Arg(1'000'000)->Iterations(1);
BENCHMARK(BM_ParkedWalk)
    ->ArgNames({"leaves", "walked"})
    ->Args({1'000'000, 10})
    ->Args({1'000'000, 40'000})
    ->Iterations(3);

} // namespace
