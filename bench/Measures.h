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
  return static_cast<std::size_t>(heap.uordblks + heap.hblkhd);
}

// The same order in every run, one that no cache can foresee.
template <class T>
void shuffle(std::vector<T>& all) {
  std::shuffle(all.begin(), all.end(), std::mt19937_64(88172645463325252ULL));
}

} // namespace Bench
