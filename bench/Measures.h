// What the benchmarks count beside time: leaves, calls of the heap, memory.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "Alloc.h"
#include "Kel/Memory.h"

namespace Bench {

// Made before a benchmark's loop, after one warm call; prints the time and the heap calls of a leaf.
class PerLeaf {
public:
  PerLeaf(benchmark::State& state, std::size_t leaves)
      : state_(state)
      , leaves_(static_cast<double>(leaves))
      , before_(heapCalls()) {}
  PerLeaf(PerLeaf const&) = delete;
  PerLeaf& operator=(PerLeaf const&) = delete;
  ~PerLeaf() {
    double const done = static_cast<double>(state_.iterations()) * leaves_;
    state_.counters["s/leaf"] =
        benchmark::Counter(done, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state_.counters["allocs/leaf"] = done == 0 ? 0 : static_cast<double>(heapCalls() - before_) / done;
  }

private:
  benchmark::State& state_;
  double leaves_;
  std::uint64_t before_;
};

// Of this process; what lies idle in the model's free lists, which take their chunks from there, is counted:
// see `Ballast`.
inline std::size_t heapInUse() {
  auto const heap = mallinfo2();
  return static_cast<std::size_t>(heap.uordblks + heap.hblkhd) + Kel::kelMemStats().mappedBytes;
}

// The same order in every run, one that no cache can foresee.
template <class T>
void shuffle(std::vector<T>& all) {
  std::shuffle(all.begin(), all.end(), std::mt19937_64(88172645463325252ULL));
}

// Walks of what is not watched yet. `forget`: what has been watched; its time does not count.
template <class Forget, class Walk>
void firstWalks(benchmark::State& state, std::size_t leaves, Forget const& forget, Walk const& walk) {
  walk(); // makes what a process makes once
  PerLeaf const perLeaf(state, leaves);
  for (auto _ : state) {
    state.PauseTiming();
    forget();
    state.ResumeTiming();
    walk();
  }
}

inline constexpr std::size_t kWarmObjects = 1'000;

// Ends one of many events that are about so many objects. Of cold ones none begins before the one before is
// done: a processor that looks ahead would wait for the memory of several at once, which nobody does who is
// told of one change after the other.
inline void eventEnds([[maybe_unused]] std::size_t objects) {
#ifdef __x86_64__
  if (objects > kWarmObjects) __builtin_ia32_lfence();
#endif
}

// Changes one of so many objects after the other, `change(which)`, after two warm rounds. REQUIRES that each
// change is one response.
template <class Router, class Change>
void changesInTurn(benchmark::State& state, Router& router, std::size_t objects, Change const& change) {
  std::size_t next = 0;
  auto const changeOne = [&] {
    change(next);
    eventEnds(objects);
    next = next + 1 == objects ? 0 : next + 1;
  };
  for (std::size_t i = 0; i < 2 * objects; ++i)
    changeOne();
  std::size_t const before = router.pushes;
  std::size_t const bytesBefore = router.bytes;
  {
    HeapCallsPerOp const calls(state);
    for (auto _ : state)
      changeOne();
  }
  auto const changes = static_cast<std::size_t>(state.iterations());
  if (router.pushes - before != changes) state.SkipWithError("each change is one response");
  state.counters["bytes/leaf"] =
      static_cast<double>(router.bytes - bytesBefore) / static_cast<double>(changes);
}

} // namespace Bench
