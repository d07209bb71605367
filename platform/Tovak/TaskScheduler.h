// Tovak::TaskScheduler: the event loop of one thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include <absl/functional/any_invocable.h>

#include "Kstd/Export.h"
#include "Kstd/Result.h"
#include "Tovak/Id64.h"
#include "Tovak/String.h"
#include "Tovak/Task.h"

namespace Tovak {

class Clock;

struct _TimerId;
struct _FdWatchId;
struct _LoopHookId;
using TimerId = Id64<_TimerId>;       // of a timer
using FdWatchId = Id64<_FdWatchId>;   // of a watched descriptor
using LoopHookId = Id64<_LoopHookId>; // of a hook

// The runs that were counted under one statistics name. Times are nanoseconds of the scheduler's clock.
struct TaskStats {
  std::uint64_t runs = 0;   // slices
  std::int64_t totalNs = 0; // all runs together
  std::int64_t maxNs = 0;   // the longest run
};

// What a watched file descriptor is ready for, as bits. `broken` (error, hang-up) is reported without being
// asked.
struct FdEvents {
  enum : std::uint32_t { readable = 1, writable = 2, broken = 4 };
};

// A cooperative, single-threaded event loop. One pass of the loop
//   1. collects what is ready, waiting for it if nothing else is to be done,
//   2. calls the loop hooks,
//   3. calls ready file descriptors, then posted work, then due timers,
//   4. runs one scheduled task for one slice.
// Step 3 does what was there when the pass began; what it adds waits for the next pass.
//
// Priorities: the most urgent queue is served first, in the order of scheduling, but every `fairTurn`-th turn
// that it could take goes to the queues below it. So work of every priority gets on, at worst slowly.
//
// Everything but post, stop and isSchedulerThread belongs to one thread: the one inside run (or runOnce...),
// or before that the one that sets things up. Callbacks may add and remove anything, themselves included.
// They are not expected to throw; an exception leaves the loop through run, after which the loop can be run
// again.
//
// Made with std::make_shared; tasks share it. The clock must outlive it.
class KTD_EXPORT TaskScheduler {
public:
  using Callback = absl::AnyInvocable<void()>; // called on the scheduler's thread, then destroyed there
  using FdCallback = absl::AnyInvocable<void(std::uint32_t events)>; // `events`: bits of FdEvents

  static constexpr std::int64_t defaultSliceNs = 5'000'000; // how long a task may run
  static constexpr std::uint32_t fairTurn = 8;              // see above
  static constexpr std::uint32_t yieldStride = 16; // questions for each look at the machine's clock, at most
  static constexpr std::int64_t busySlices = 10;   // what a run may take before it is called busy

  // Runs on the machine's clock.
  TaskScheduler();
  explicit TaskScheduler(Clock& clock);
  ~TaskScheduler();
  TaskScheduler(TaskScheduler const&) = delete;
  TaskScheduler& operator=(TaskScheduler const&) = delete;

  Clock& clock() const; // that it runs on

  // Runs passes until stop.
  void run();
  // Runs one pass without waiting; false when there was nothing to do.
  bool runOnce();
  // Runs passes without waiting until one has nothing to do, or until stop. A simulated clock is not moved.
  void runUntilIdle();
  // Runs passes until the monotonic clock reaches that time, or until stop. A simulated clock moves from
  // timer to timer, and to that time in the end.
  void runUntil(std::int64_t monotonicNs);
  // Ends the current run..., or the next one at once when none is on. Any thread.
  void stop();

  // Has `work` called on the scheduler's thread; work is called in the order of posting. Any thread. Work
  // that is still waiting when the scheduler goes is destroyed uncalled.
  void post(Callback work);

  // Whether the caller is inside run..., or nobody is.
  bool isSchedulerThread() const;

  // Has `callback` called once the monotonic clock reads `deadlineNs` or more. Timers are called in the order
  // of their deadlines, equal ones in the order of making.
  TimerId timerAt(std::int64_t deadlineNs, Callback callback);
  // The same, counted from now.
  TimerId timerAfter(std::int64_t delayNs, Callback callback);
  // Calls `callback` every `periodNs`, first after one period; ticks that are missed are left out, not made
  // up for. REQUIRES periodNs > 0 (asserted).
  TimerId timerEvery(std::int64_t periodNs, Callback callback);
  // Removes a timer; does nothing when it has gone.
  void timerDel(TimerId id);

  // Watches a descriptor for `events` (bits of FdEvents), level-triggered. The caller keeps it open, and
  // removes the watch before closing it. The error is the system's text: not a watchable file, or watched
  // already.
  Kstd::Result<FdWatchId, String> fdWatchIs(int fd, std::uint32_t events, FdCallback callback);
  // Changes what is watched for; does nothing when the watch has gone.
  void fdWatchEventsIs(FdWatchId id, std::uint32_t events);
  // Removes a watch; does nothing when it has gone.
  void fdWatchDel(FdWatchId id);

  // Has `hook` called at the start of every pass, in the order of adding.
  LoopHookId loopHookIs(Callback hook);
  // Removes a hook; does nothing when it has gone.
  void loopHookDel(LoopHookId id);

  // How long a task may run before taskShouldYield says so; 0: it says so at every question.
  std::int64_t sliceNs() const;
  // From the next run on.
  void sliceNsIs(std::int64_t ns);

  // The task whose taskExecute is on; null between runs.
  Task* currentTask() const;

  // The figures of a statistics name; zeros when nothing ran under it.
  TaskStats stats(std::string_view statsName) const;
  // One line "<name>: runs <n>, total <ns> ns, max <ns> ns" per name, in the order of the names.
  String statsDump() const;
  // Has `hook` called after each run of a task with the nanoseconds that it took; null: nobody.
  using SliceHook = absl::AnyInvocable<void(std::int64_t tookNs)>;
  void sliceHookIs(SliceHook hook); // see SliceHook
  // Clears all figures and calls handleResetStats of every task.
  void statsReset();

private:
  friend class Task;
  struct State;

  void taskAdd(Task& task);
  void taskDel(Task& task);
  void taskSchedule(Task& task);
  bool sliceUsedUp(Task const& task);

  bool pass(std::int64_t waitUntilNs);
  bool runTask();
  Task* nextTask();

  std::unique_ptr<State> state_;
};

} // namespace Tovak
