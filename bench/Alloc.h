// Counts the calls of the general heap: this program's global operator new is replaced (Alloc.cpp), the libraries' included.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

namespace Bench {

// Calls of operator new by this thread so far.
[[nodiscard]] std::uint64_t heapCalls() noexcept;

// Made before a benchmark's loop, after one warm call; prints the calls per iteration of the loop as "allocs".
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

} // namespace Bench
