// The loop: queues by priority, slices, one pass after the other. Timers and descriptors have files of their
// own.
//
// Invariants:
//  1. A task is in the queue of its priority exactly while isScheduled(); the queues and the list of known
//     tasks hold tasks without owning them, and a task that dies takes itself out of both.
//  2. `current` is the running task, or null once that has died during its run.
//  3. Callbacks are called from nowhere but a pass, and passes do not nest.
#include "Tovak/TaskScheduler.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <thread>

#include <boost/intrusive/list.hpp>
#include <fmt/format.h>

#include "Tovak/CallbackCall.h"
#include "Tovak/Clock.h"
#include "Tovak/FdPoller.h"
#include "Tovak/Lock.h"
#include "Tovak/TimerQueue.h"
#include "Tovak/Trace.h"

namespace Tovak {

namespace {

namespace bi = boost::intrusive;

template <typename Tag>
using TaskList = bi::list<Task, bi::base_hook<Impl::TaskHook<Tag>>, bi::constant_time_size<false>>;

constexpr std::int64_t noWait = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t strideOfSlice = 16; // which part of one may pass between two looks at the clock
constexpr std::int64_t waitForever = Impl::TimerQueue::never;

DebugHandler const& debugHandler() {
  static DebugHandler const& handler = Platform::getDebugHandler("TovakTask", false);
  return handler;
}

// Rounded up: a wait that ends too early would spin until the deadline.
int toBlockMs(std::int64_t ns) {
  return static_cast<int>(std::min<std::int64_t>(ns / 1'000'000 + (ns % 1'000'000 != 0), 60'000));
}

struct LoopHook {
  TaskScheduler::Callback callback;
};

} // namespace

struct TaskScheduler::State {
  explicit State(Clock& theClock) : clock(theClock), strideMax(theClock.isSimulated() ? 1 : yieldStride) {}

  Clock& clock;
  Impl::FdPoller poller;
  Impl::TimerQueue timers;
  std::map<LoopHookId, LoopHook> hooks;
  std::uint64_t lastHookId = 0;

  // From any thread.
  std::atomic<std::thread::id> thread{}; // the one inside run...
  std::atomic<bool> stop{false};
  Locking::Lock postLock;
  std::vector<Callback> posted; // guarded by postLock

  // The posted work that is being called, and how far that has come.
  std::vector<Callback> batch;
  size_t batchNext = 0;

  TaskList<Impl::KnownTag> tasks;
  std::array<TaskList<Impl::ScheduledTag>, TaskPriority::count> queues;
  std::array<std::uint32_t, TaskPriority::count> turns{}; // taken while somebody less urgent waited
  std::map<String, TaskStats, std::less<>> stats;         // entries are never removed: tasks point at them

  SliceHook sliceHook;

  std::int64_t sliceNs = defaultSliceNs;
  Task* current = nullptr;
  std::int64_t sliceEndNs = 0;
  bool sliceOver = false;
  // Of taskShouldYield: how many calls make one look at the clock, at most and just now; how many are left.
  std::uint32_t const strideMax;
  std::uint32_t stride = 1;
  std::uint32_t callsToRead = 0;
  std::int64_t readNs = 0; // what the clock said then

  bool anyScheduled() const {
    return std::any_of(queues.begin(), queues.end(), [](auto const& queue) { return !queue.empty(); });
  }

  std::int64_t fromNow(std::int64_t ns) const {
    std::int64_t deadlineNs;
    return __builtin_add_overflow(clock.monotonicNs(), ns, &deadlineNs) ? Impl::TimerQueue::never
                                                                        : deadlineNs;
  }

  bool onThread() const {
    std::thread::id const running = thread.load(std::memory_order_relaxed);
    return running == std::thread::id() || running == std::this_thread::get_id();
  }

  void requireThread(char const* what) const {
    TOVAK_ASSERT(onThread(), debugHandler(), "{} from a thread that is not the scheduler's", what);
  }

  void runHooks();
  bool runPosted();

  // Marks the thread that runs the loop for as long as it does.
  struct Running {
    explicit Running(State& theState) : state(theState) {
      std::thread::id nobody;
      bool const entered = state.thread.compare_exchange_strong(nobody, std::this_thread::get_id());
      TOVAK_ASSERT(entered, debugHandler(), "the scheduler is running already");
    }
    ~Running() { state.thread.store(std::thread::id()); }
    State& state;
  };
};

void TaskScheduler::State::runHooks() {
  LoopHookId const last(lastHookId); // those added meanwhile begin with the next pass
  for (auto hook = hooks.begin(); hook != hooks.end() && hook->first <= last;) {
    LoopHookId const id = hook->first;
    Impl::callEntry(hooks, id);
    hook = hooks.upper_bound(id);
  }
}

bool TaskScheduler::State::runPosted() {
  if (batch.empty()) {
    std::lock_guard const guard(postLock);
    batch.swap(posted);
  }
  if (batch.empty()) return false;
  std::int64_t const endNs = clock.monotonicNs() + sliceNs;
  while (batchNext < batch.size()) {
    Callback work = std::move(batch[batchNext++]);
    work();
    if (batchNext < batch.size() && sliceNs > 0 && clock.monotonicNs() >= endNs)
      return true; // timers and tasks have their turn; the rest goes before what was posted later
  }
  batch.clear();
  batchNext = 0;
  return true;
}

TaskScheduler::TaskScheduler() : TaskScheduler(SystemClock::instance()) {}
TaskScheduler::TaskScheduler(Clock& clock) : state_(std::make_unique<State>(clock)) {}

TaskScheduler::~TaskScheduler() {
  // What the callbacks hold may remove timers and watches from its destructor, so those still have to work.
  state_->timers.clear();
  state_->poller.clear();
  while (!state_->hooks.empty())
    state_->hooks.extract(state_->hooks.begin());
  std::vector<Callback> const posted = std::move(state_->posted);
}

Clock& TaskScheduler::clock() const { return state_->clock; }

// ---- the loop ---------------------------------------------------------------------------------------------

bool TaskScheduler::pass(std::int64_t waitUntilNs) {
  State& s = *state_;
  // Looks before it waits: a simulated clock must not move while anything is ready.
  bool const ready = s.poller.wait(0);
  if (!ready && waitUntilNs != noWait && !s.anyScheduled() && s.batch.empty()) {
    std::int64_t const deadlineNs = std::min(waitUntilNs, s.timers.nextNs());
    s.poller.wait(deadlineNs == waitForever ? -1 : toBlockMs(s.clock.blockNs(deadlineNs)));
  }
  s.runHooks();
  bool did = s.poller.run();
  did |= s.runPosted();
  did |= s.timers.run(s.clock.monotonicNs());
  did |= runTask();
  return did;
}

void TaskScheduler::run() {
  State::Running const running(*state_);
  while (!state_->stop.exchange(false))
    pass(waitForever);
}

bool TaskScheduler::runOnce() {
  State::Running const running(*state_);
  return pass(noWait);
}

void TaskScheduler::runUntilIdle() {
  State::Running const running(*state_);
  while (!state_->stop.exchange(false) && pass(noWait)) {
  }
}

void TaskScheduler::runUntil(std::int64_t monotonicNs) {
  State::Running const running(*state_);
  while (state_->clock.monotonicNs() < monotonicNs) {
    if (state_->stop.exchange(false)) return;
    pass(monotonicNs);
  }
  // Simulated time stands still while there is work, so what became due at the end is done, too.
  while (state_->clock.isSimulated() && !state_->stop.exchange(false) && pass(noWait)) {
  }
}

void TaskScheduler::stop() {
  state_->stop.store(true);
  state_->poller.wake();
}

bool TaskScheduler::isSchedulerThread() const { return state_->onThread(); }

void TaskScheduler::post(Callback work) {
  {
    std::lock_guard const guard(state_->postLock);
    state_->posted.push_back(std::move(work));
  }
  state_->poller.wake();
}

// ---- timers, descriptors, hooks ---------------------------------------------------------------------------

TimerId TaskScheduler::timerAt(std::int64_t deadlineNs, Callback callback) {
  state_->requireThread("timer");
  return state_->timers.add(deadlineNs, 0, std::move(callback));
}

TimerId TaskScheduler::timerAfter(std::int64_t delayNs, Callback callback) {
  return timerAt(state_->fromNow(delayNs), std::move(callback));
}

TimerId TaskScheduler::timerEvery(std::int64_t periodNs, Callback callback) {
  state_->requireThread("timer");
  TOVAK_ASSERT(periodNs > 0, debugHandler(), "timer with a period of {} ns", periodNs);
  return state_->timers.add(state_->fromNow(periodNs), periodNs, std::move(callback));
}

void TaskScheduler::timerDel(TimerId id) {
  state_->requireThread("timer");
  state_->timers.del(id);
}

Kstd::Result<FdWatchId, String> TaskScheduler::fdWatchIs(int fd, std::uint32_t events, FdCallback callback) {
  state_->requireThread("fd watch");
  return state_->poller.add(fd, events, std::move(callback));
}

void TaskScheduler::fdWatchEventsIs(FdWatchId id, std::uint32_t events) {
  state_->requireThread("fd watch");
  state_->poller.eventsIs(id, events);
}

void TaskScheduler::fdWatchDel(FdWatchId id) {
  state_->requireThread("fd watch");
  state_->poller.del(id);
}

LoopHookId TaskScheduler::loopHookIs(Callback hook) {
  state_->requireThread("loop hook");
  LoopHookId const id(++state_->lastHookId);
  state_->hooks.emplace(id, LoopHook{std::move(hook)});
  return id;
}

void TaskScheduler::loopHookDel(LoopHookId id) {
  state_->requireThread("loop hook");
  auto const gone = state_->hooks.extract(id); // dies outside the map
}

// ---- tasks ------------------------------------------------------------------------------------------------

void TaskScheduler::taskAdd(Task& task) {
  state_->requireThread("task");
  state_->tasks.push_back(task);
}

void TaskScheduler::taskDel(Task& task) {
  // The hooks take it off the lists by themselves.
  if (state_->current == &task) state_->current = nullptr;
}

void TaskScheduler::taskSchedule(Task& task) {
  state_->requireThread("scheduleTask");
  if (!task.isScheduled()) state_->queues[task.priority()].push_back(task);
}

Task* TaskScheduler::nextTask() {
  State& s = *state_;
  Task* next = nullptr;
  size_t nextPriority = 0;
  for (size_t priority = 0; priority < TaskPriority::count; ++priority) {
    if (s.queues[priority].empty()) continue;
    if (next && ++s.turns[nextPriority] < fairTurn)
      return next; // somebody waits below, but it is not their turn
    if (next) s.turns[nextPriority] = 0;
    next = &s.queues[priority].front();
    nextPriority = priority;
  }
  return next;
}

bool TaskScheduler::runTask() {
  State& s = *state_;
  Task* const task = nextTask();
  if (!task) return false;
  task->descheduleTask();
  std::shared_ptr<Task> const kept = task->weak_from_this().lock(); // null for a task on a test's stack
  if (!task->stats_) task->stats_ = &s.stats[task->taskStatsName()];
  TaskStats& stats = *task->stats_;
  std::int64_t const startNs = s.clock.monotonicNs();
  s.sliceEndNs = startNs + s.sliceNs;
  s.sliceOver = false;
  s.callsToRead = 0;
  s.stride = 1;
  s.readNs = startNs;
  s.current = task;
  struct Ended {
    ~Ended() { current = nullptr; }
    Task*& current;
  } const ended{s.current};

  task->taskExecute();

  std::int64_t const tookNs = s.clock.monotonicNs() - startNs;
  ++stats.runs;
  stats.totalNs += tookNs;
  stats.maxNs = std::max(stats.maxNs, tookNs);
  if (s.sliceHook) s.sliceHook(tookNs);
  if (s.current && s.sliceNs > 0 && tookNs > busySlices * s.sliceNs) s.current->handleTaskBusy();
  return true;
}

bool TaskScheduler::sliceUsedUp(Task const& task) {
  State& s = *state_;
  if (s.current != &task) return false;
  if (s.sliceOver) return true;
  if (s.callsToRead > 0) {
    --s.callsToRead;
    return false;
  }
  std::int64_t const nowNs = s.clock.monotonicNs();
  std::int64_t const sinceNs = std::max<std::int64_t>(nowNs - std::exchange(s.readNs, nowNs), 1);
  std::int64_t const affordable = s.sliceNs / strideOfSlice * s.stride / sinceNs;
  s.stride = static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(affordable, 1, std::min(2 * s.stride, s.strideMax)));
  s.callsToRead = s.stride - 1;
  s.sliceOver = nowNs >= s.sliceEndNs;
  return s.sliceOver;
}

std::int64_t TaskScheduler::sliceNs() const { return state_->sliceNs; }
void TaskScheduler::sliceNsIs(std::int64_t ns) { state_->sliceNs = ns; }
Task* TaskScheduler::currentTask() const { return state_->current; }

// ---- statistics -------------------------------------------------------------------------------------------

TaskStats TaskScheduler::stats(std::string_view statsName) const {
  auto const found = state_->stats.find(statsName);
  return found == state_->stats.end() ? TaskStats() : found->second;
}

String TaskScheduler::statsDump() const {
  fmt::memory_buffer out;
  for (auto const& [name, stats] : state_->stats) {
    fmt::format_to(fmt::appender(out), "{}: runs {}, total {} ns, max {} ns\n", name, stats.runs,
                   stats.totalNs, stats.maxNs);
  }
  return fmt::to_string(out);
}

void TaskScheduler::sliceHookIs(SliceHook hook) { state_->sliceHook = std::move(hook); }

void TaskScheduler::statsReset() {
  for (auto& [name, stats] : state_->stats)
    stats = TaskStats();
  // A handler may end any task, so the tasks still to be told stand in a list that they can leave.
  TaskList<Impl::KnownTag> untold;
  untold.splice(untold.end(), state_->tasks);
  while (!untold.empty()) {
    Task& task = untold.front();
    untold.pop_front();
    state_->tasks.push_back(task);
    task.handleResetStats();
  }
}

} // namespace Tovak
