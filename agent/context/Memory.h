// How much memory the agent may use, and what it keeps for its clients.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "agent/context/ByteBudget.h"

namespace Agent {

// What the machine has, or the control group of this process or one above it allows, if that is less. `root`:
// of the file system, for tests.
[[nodiscard]] std::size_t memoryLimit(std::string const& root = "");

// One budget of real bytes for all that clients make the agent keep, with a share for each use. The shares
// add up to more than the whole: who comes first may have his in full. Any thread.
struct MemoryBudgets {
  // `bytes`: of the whole; 0: half of what the agent may use, 1 GiB at most.
  explicit MemoryBudgets(std::size_t bytes);

  std::shared_ptr<ByteBudget> const whole;
  std::shared_ptr<ByteBudget> const queues;  // what waits for subscribers: a half
  std::shared_ptr<ByteBudget> const answers; // to Gets: a quarter, as the others
  std::shared_ptr<ByteBudget> const sent;    // what `suppress_redundant` remembers
  std::shared_ptr<ByteBudget> const plans;   // of Sets that wait or run
  std::shared_ptr<ByteBudget> const entries; // of lists, that clients have made
};

// Gives memory back to the system once a burst is over: what has been freed stays with the heap otherwise.
class HeapTrimmer {
public:
  explicit HeapTrimmer(ByteBudget const& budget) : budget_(budget) {}

  // To be asked every second or so: whether much has been let go since the heap was trimmed last.
  [[nodiscard]] bool isDue(std::int64_t nowNs);
  // Takes its time, and is not for the scheduler thread.
  static void trim();

  // To be called before there are threads. From then on small pieces are put together with their neighbours
  // when they are freed, not all of them when a large one is: for that the scheduler stood still for 20 ms.
  static void heapIsEven();

private:
  ByteBudget const& budget_;
  std::size_t peak_ = 0; // since then
  std::int64_t trimmedNs_ = 0;
};

} // namespace Agent
