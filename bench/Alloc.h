// Counts the calls of the general heap: this program's global operator new is replaced (Alloc.cpp), the
// libraries' included.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Kel/Memory.h"

namespace Bench {

// Calls of operator new by this thread so far.
[[nodiscard]] std::uint64_t heapCalls() noexcept;

// Made before a benchmark's loop, after one warm call; prints the calls per iteration of the loop as
// "allocs".
class HeapCallsPerOp {
public:
  explicit HeapCallsPerOp(benchmark::State& state) : state_(state), before_(heapCalls()) {}
  HeapCallsPerOp(HeapCallsPerOp const&) = delete;
  HeapCallsPerOp& operator=(HeapCallsPerOp const&) = delete;
  ~HeapCallsPerOp() {
    std::uint64_t const calls = heapCalls() - before_;
    auto const iterations = static_cast<double>(state_.iterations());
    state_.counters["allocs"] = iterations == 0 ? 0 : static_cast<double>(calls) / iterations;
  }

private:
  benchmark::State& state_;
  std::uint64_t const before_;
};

// Holds all blocks that the model's free lists had left over: whoever allocates now takes fresh memory, which
// is seen.
class Ballast {
public:
  Ballast() {
    for (std::size_t size = 16; size <= Kel::kKelMemLargestClass; size += 16) {
      std::size_t const before = Kel::kelMemStats().chunks;
      while (Kel::kelMemStats().chunks == before)
        blocks_.emplace_back(Kel::kelMemAlloc(size), size);
    }
  }
  ~Ballast() {
    for (auto const& [block, size] : blocks_)
      Kel::kelMemFree(block, size);
  }

private:
  std::vector<std::pair<void*, std::size_t>> blocks_;
};

} // namespace Bench
