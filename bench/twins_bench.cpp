// What run-time types cost beside the same types declared: walks, changes, Sets and memory, by the same code
// over the same values (Twins.h). The declared rows are the floors of the run-time ones.
#include <benchmark/benchmark.h>

#include <utility>

#include "Measures.h"
#include "SetMessages.h"
#include "Twins.h"

namespace {

using namespace Bench;

std::size_t leavesOf(benchmark::State const& state) { return static_cast<std::size_t>(state.range(0)); }

// Once the objects are watched.
template <class Router>
void walks(benchmark::State& state, Router& router, Flavour flavour) {
  TwinTree tree(flavour, leavesOf(state));
  tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
  if (router.pushes != tree.size() * kResponsesPerInterface) state.SkipWithError("the walk is not whole");
  state.counters["bytes/leaf"] = static_cast<double>(router.bytes) / static_cast<double>(tree.leaves());
  PerLeaf const perLeaf(state, tree.leaves());
  for (auto _ : state)
    tree.walk(router, Ondra::flagSnapshot);
}

template <Flavour kFlavour>
void Twins_Walk(benchmark::State& state) {
  CountingByteRouter router;
  walks(state, router, kFlavour);
}

template <Flavour kFlavour>
void Twins_WalkMessages(benchmark::State& state) {
  CountingRouter router(true);
  walks(state, router, kFlavour);
}

template <Flavour kFlavour>
void Twins_FirstWalk(benchmark::State& state) {
  CountingByteRouter router;
  TwinTree tree(kFlavour, leavesOf(state));
  firstWalks(state, tree.leaves(), &Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees,
             [&] { tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot); });
}

// An MTU is written by the generic operation. Range 1: how many interfaces take turns.
template <class Router>
void changes(benchmark::State& state, Router& router, Flavour flavour) {
  TwinTree tree(flavour, leavesOf(state));
  tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
  auto configs = tree.configs();
  shuffle(configs);
  configs.resize(std::min(configs.size(), static_cast<std::size_t>(state.range(1))));
  Kel::KelAttr const attr = configs.front()->type().attr("mtu");
  std::uint16_t mtu = 0;
  changesInTurn(state, router, configs.size(),
                [&](std::size_t which) { attr.genericIfSet(configs[which], nullptr, Kel::handleOf(++mtu)); });
}

template <Flavour kFlavour>
void Twins_Change(benchmark::State& state) {
  CountingByteRouter router;
  changes(state, router, kFlavour);
}

template <Flavour kFlavour>
void Twins_ChangeMessages(benchmark::State& state) {
  CountingRouter router(true);
  changes(state, router, kFlavour);
}

// Of leaves whose types are made of others; "leaf" is an object here.
template <Flavour kFlavour>
void Twins_WalkValues(benchmark::State& state) {
  CountingByteRouter router;
  ValueTwin twin(kFlavour, leavesOf(state));
  twin.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
  state.counters["bytes/leaf"] =
      static_cast<double>(router.bytes) / static_cast<double>(twin.objects().size());
  PerLeaf const perLeaf(state, twin.objects().size());
  for (auto _ : state)
    twin.walk(router, Ondra::flagSnapshot);
}

// A union is written by the generic operation.
template <Flavour kFlavour>
void Twins_ChangeUnion(benchmark::State& state) {
  CountingByteRouter router;
  ValueTwin twin(kFlavour, 1'000);
  twin.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
  Kel::KelAttr const attr = twin.objects().front()->type().attr("selector");
  ValueTwin::Handle const values[] = {ValueTwin::valueOf(attr.type(), Fixture::Selector(std::uint32_t{17})),
                                      ValueTwin::valueOf(attr.type(), Fixture::Selector(Kel::String("x")))};
  std::size_t turn = 0;
  changesInTurn(state, router, twin.objects().size(), [&](std::size_t which) {
    attr.genericIfSet(twin.objects()[which], nullptr, values[turn++ / twin.objects().size() % 2]);
  });
}

bool executed(std::string const& bytes, std::string& answer) {
  static Kel::Ptr<Ondra::Path const> const dataRoot = Ondra::Path::strToPathIs("/openconfig");
  return executedBytes(dataRoot, bytes, answer).ok();
}

template <Flavour kFlavour>
void Twins_SetExisting(benchmark::State& state) {
  constexpr std::size_t kCount = 250;
  TwinTree const tree(kFlavour, leavesOf(state));
  std::size_t const count = std::min(tree.size(), kCount);
  std::string const bytes[] = {interfaceSet(0, count, 1500), interfaceSet(0, count, 1501)};
  std::string answer;
  PerLeaf const perLeaf(state, count * kWrittenPerInterface);
  std::size_t turn = 0;
  for (auto _ : state)
    if (!executed(bytes[turn++ % 2], answer)) state.SkipWithError("the Set was refused");
}

// Makes so many leaves' interfaces in one request, in a tree that has none.
template <Flavour kFlavour>
void Twins_SetMaking(benchmark::State& state) {
  TwinTree tree(kFlavour, 0);
  std::size_t const count = leavesOf(state) / kWrittenPerInterface;
  std::string const bytes = interfaceSet(0, count, 1500);
  std::string answer;
  PerLeaf const perLeaf(state, count * kWrittenPerInterface);
  for (auto _ : state) {
    if (!executed(bytes, answer) || tree.size() != count) state.SkipWithError("they were not made");
    state.PauseTiming();
    tree.clear();
    state.ResumeTiming();
  }
}

// Of the model, and of watching all of it.
template <Flavour kFlavour>
void Twins_Memory(benchmark::State& state) {
  double model = 0, watching = 0, leaves = 1;
  for (auto _ : state) {
    Ballast const ballast;
    std::size_t const before = heapInUse();
    TwinTree tree(kFlavour, leavesOf(state));
    std::size_t const made = heapInUse();
    CountingByteRouter router;
    tree.walk(router, Ondra::flagStream | Ondra::flagSnapshot);
    leaves = static_cast<double>(tree.leaves());
    model = static_cast<double>(made - before);
    watching = static_cast<double>(heapInUse() - made);
  }
  state.counters["bytes/leaf"] = model / leaves;
  state.counters["bytes/object"] = model / leaves * kLeavesPerInterface / kObjectsPerInterface;
  state.counters["watching/leaf"] = watching / leaves;
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("leaves")->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
}
void changing(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"leaves", "objects"})->Args({1'000, 50})->Args({1'000'000, 50'000});
}

#define TWINS(name) BENCHMARK_TEMPLATE(name, Flavour::Declared)->Name(#name "/Declared")
#define TWINR(name) BENCHMARK_TEMPLATE(name, Flavour::Runtime)->Name(#name "/Runtime")
TWINS(Twins_Walk)->Apply(sizes);
TWINR(Twins_Walk)->Apply(sizes);
TWINS(Twins_WalkMessages)->Apply(sizes);
TWINR(Twins_WalkMessages)->Apply(sizes);
TWINS(Twins_FirstWalk)->Apply(sizes);
TWINR(Twins_FirstWalk)->Apply(sizes);
TWINS(Twins_Change)->Apply(changing);
TWINR(Twins_Change)->Apply(changing);
TWINS(Twins_ChangeMessages)->Apply(changing);
TWINR(Twins_ChangeMessages)->Apply(changing);
TWINS(Twins_WalkValues)->ArgName("objects")->Arg(1'000)->Arg(100'000);
TWINR(Twins_WalkValues)->ArgName("objects")->Arg(1'000)->Arg(100'000);
TWINS(Twins_ChangeUnion);
TWINR(Twins_ChangeUnion);
TWINS(Twins_SetExisting)->Apply(sizes);
TWINR(Twins_SetExisting)->Apply(sizes);
TWINS(Twins_SetMaking)->Apply(sizes);
TWINR(Twins_SetMaking)->Apply(sizes);
TWINS(Twins_Memory)->ArgName("leaves")->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);
TWINR(Twins_Memory)->ArgName("leaves")->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
