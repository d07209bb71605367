// Agent::Context: what all that serves clients stands on: the clock, the scheduler and its thread, the tree,
// the limits, the budgets.
#pragma once

#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "Tovak/Clock.h"
#include "Tovak/TaskScheduler.h"
#include "agent/context/Limits.h"
#include "agent/context/LoopTime.h"
#include "agent/context/Memory.h"
#include "agent/context/Tally.h"
#include "agent/context/TimeHistogram.h"
#include "agent/context/Worker.h"
#include "agent/model/Tree.h"

namespace Agent {

// One a process, because the model is: made first, gone last. Made, started and stopped by one thread. Tests
// do not start it but drive the scheduler by hand, on a simulated clock.
class Context {
public:
  struct Options {
    Limits limits = {};
    Tovak::Clock* clock = nullptr; // the machine's when null; outlives the context
  };

  explicit Context(Options const& options);
  ~Context(); // stops
  Context(Context const&) = delete;
  Context& operator=(Context const&) = delete;

  // `post` of it may be called from any thread; the rest belongs to its own.
  [[nodiscard]] std::shared_ptr<Tovak::TaskScheduler> const& scheduler() const noexcept { return scheduler_; }
  [[nodiscard]] Tovak::Clock& clock() const noexcept { return clock_; }
  // Scheduler thread.
  [[nodiscard]] Tree const& tree() const noexcept { return tree_; }
  [[nodiscard]] Limits const& limits() const noexcept { return limits_; }
  // Of all that is kept for clients. Any thread.
  [[nodiscard]] MemoryBudgets const& memory() const noexcept { return memory_; }
  // Of the answers to all Gets that are being read or wait for their clients. Any thread.
  [[nodiscard]] std::shared_ptr<ByteBudget> const& getBudget() const noexcept { return getBudget_; }
  // Of the calls there have been. Any thread.
  [[nodiscard]] Tally& tally() noexcept { return tally_; }
  // How long the slices of all work took. Scheduler thread.
  [[nodiscard]] TimeHistogram const& slices() const noexcept { return slices_; }
  // For what takes long and needs no model. Any thread.
  [[nodiscard]] Worker& worker() noexcept { return worker_; }

  // Called on the scheduler thread before time goes back (see LoopTime): ends whatever has been told of a
  // later one. May be null.
  using ClockGoesBack = std::function<void()>;
  void clockGoesBackIs(ClockGoesBack goesBack) { clockGoesBack_ = std::move(goesBack); }

  // Runs the loop on a thread of its own. What is set up before needs no `post`.
  void start();
  // Ends the loop and joins its thread; does nothing when it is not running.
  void stop();

private:
  Limits const limits_;
  std::shared_ptr<ByteBudget> const getBudget_;
  MemoryBudgets const memory_;
  Tally tally_;
  TimeHistogram slices_;
  Tovak::Clock& clock_;
  LoopTime loopTime_; // before what reads the time
  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  Tree const tree_;
  ClockGoesBack clockGoesBack_;
  std::thread thread_;
  std::jthread memoryKeeper_; // so that the loop's thread need not wait for memory
  Worker worker_;             // ends before what it may work for
};

} // namespace Agent
