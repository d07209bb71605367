// Agent::Runtime: what every part of the agent shares: the clock, the scheduler and its thread, the tree, the limits, the engine of
// the subscriptions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "Tovak/Clock.h"
#include "Tovak/TaskScheduler.h"
#include "agent/model/Tree.h"
#include "agent/service/LoopTime.h"

namespace Agent {

class ByteBudget;
class ClientEntries;
class Engine;
struct MemoryBudgets;
class SetRuns;
class Worker;

// What clients may ask of the agent. Sizes in bytes, times in nanoseconds.
struct Limits {
  std::size_t streams = 4096;                    // Subscribe calls at a time
  std::size_t streamsPerPeer = 1024;             // of them, from one address
  std::size_t subscriptionsPerCall = 256;        // in one list
  std::size_t messageBytes = 4U << 20;           // of a request
  std::size_t responseBytes = (4U << 20) - 4096; // of a response that can be split
  std::size_t getBytes = 32U << 20;              // of the answer to a Get, which is one; twice as much of all
  std::size_t queueBytes = 4U << 20;             // that wait for one subscriber, before they are coalesced
  std::size_t memoryBytes = 0;                   // that are kept for clients in all; 0: by what there is
  std::int64_t sampleFloorNs = 1'000'000'000;    // the shortest interval of samples and heartbeats
  std::int64_t targetDefinedNs = 5'000'000'000;  // the interval of what TARGET_DEFINED samples
  std::int64_t stuckNs = 30'000'000'000;         // a client may take nothing, or not say what it wants
};

// One a process, because the model is: made first, gone last. Made, started and stopped by one thread. Tests do not start it but
// drive the scheduler by hand, on a simulated clock.
class Runtime {
public:
  struct Options {
    Limits limits = {};
    Tovak::Clock* clock = nullptr; // the machine's when null; outlives the runtime
  };

  Runtime();
  explicit Runtime(Options const& options);
  // Stops, ends all calls and takes all watching off the model.
  ~Runtime();
  Runtime(Runtime const&) = delete;
  Runtime& operator=(Runtime const&) = delete;

  // `post` of it may be called from any thread; the rest belongs to its own.
  [[nodiscard]] std::shared_ptr<Tovak::TaskScheduler> const& scheduler() const noexcept { return scheduler_; }
  [[nodiscard]] Tovak::Clock& clock() const noexcept { return clock_; }
  // Scheduler thread.
  [[nodiscard]] ClientEntries& clientEntries() noexcept { return *clientEntries_; }
  [[nodiscard]] Tree const& tree() const noexcept { return tree_; }
  [[nodiscard]] Engine& engine() noexcept { return *engine_; }
  // Scheduler thread.
  [[nodiscard]] SetRuns& sets() noexcept { return *sets_; }
  [[nodiscard]] Limits const& limits() const noexcept { return limits_; }
  // Of the answers to all Gets that are being read or wait for their clients. Any thread.
  [[nodiscard]] std::shared_ptr<ByteBudget> const& getBudget() const noexcept { return getBudget_; }

  // Of all that is kept for clients. Any thread.
  [[nodiscard]] MemoryBudgets const& memory() const noexcept { return *memory_; }
  // For what takes long and needs no model. Any thread.
  [[nodiscard]] Worker& worker() noexcept { return *worker_; }

  // Called on the scheduler thread after a Set that wrote the configuration of interfaces, with their names. May be null.
  using ConfigChanged = std::function<void(std::set<std::string> const& interfaces)>;
  void configChangedIs(ConfigChanged changed) { configChanged_ = std::move(changed); }
  [[nodiscard]] ConfigChanged const& configChanged() const noexcept { return configChanged_; }

  // Runs the loop on a thread of its own. What is set up before needs no `post`.
  void start();
  // Ends the loop and joins its thread; does nothing when it is not running. Calls that are open stay open: see
  // `Engine::callsEnd`.
  void stop();

private:
  Limits const limits_;
  std::shared_ptr<ByteBudget> const getBudget_;
  std::unique_ptr<MemoryBudgets> const memory_;
  std::unique_ptr<ClientEntries> const clientEntries_;
  Tovak::Clock& clock_;
  LoopTime loopTime_; // before what reads the time
  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  Tree const tree_;
  std::unique_ptr<Engine> engine_;
  ConfigChanged configChanged_;
  std::thread thread_;
  std::unique_ptr<Worker> worker_; // ends before what it may work for
  std::unique_ptr<SetRuns> sets_;
};

} // namespace Agent
