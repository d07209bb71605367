// The event loop on a simulated clock: priorities, slices, timers, hooks, descriptors, posts, misuse.
#include <algorithm>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>
#include <unistd.h>

#include "Tovak/Clock.h"
#include "Tovak/TaskScheduler.h"
#include "Tovak/Trace.h"

namespace {

using testing::ElementsAre, Tovak::String, Tovak::Task, Tovak::TaskPriority, Tovak::TaskScheduler;

constexpr std::int64_t ms = 1'000'000;

// A task made of a function.
class FunctionTask : public Task {
public:
  using Body = std::function<void(FunctionTask&)>;
  FunctionTask(std::shared_ptr<TaskScheduler> scheduler, String name, TaskPriority::PriorityEnum priority,
               Body body)
      : Task(std::move(scheduler), std::move(name), priority)
      , body_(std::move(body)) {}
  void taskExecute() override { body_(*this); }
  void handleTaskBusy() override { ++busy_; }
  void handleResetStats() override { ++resets_; }

  Body body_;
  int busy_ = 0;
  int resets_ = 0;
};

class TovakScheduler : public ::testing::Test {
protected:
  std::shared_ptr<FunctionTask> task(String name, FunctionTask::Body body,
                                     TaskPriority::PriorityEnum priority = TaskPriority::normal) {
    return std::make_shared<FunctionTask>(scheduler_, std::move(name), priority, std::move(body));
  }

  Tovak::SimulatedClock clock_;
  std::shared_ptr<TaskScheduler> scheduler_ = std::make_shared<TaskScheduler>(clock_);
  std::vector<String> log_;
};

TEST_F(TovakScheduler, UrgentTasksGoFirstEqualOnesInOrder) {
  std::vector<std::shared_ptr<FunctionTask>> tasks;
  for (auto priority :
       {TaskPriority::background, TaskPriority::normal, TaskPriority::critical, TaskPriority::normal}) {
    tasks.push_back(task(
        fmt::format("{}{}", priority, tasks.size()),
        [this](FunctionTask& self) { log_.push_back(self.name()); }, priority));
    tasks.back()->scheduleTask();
    tasks.back()->scheduleTask(); // once is enough
    EXPECT_TRUE(tasks.back()->isScheduled());
  }
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("critical2", "normal1", "normal3", "background0"));
  EXPECT_FALSE(tasks[0]->isScheduled());
  EXPECT_FALSE(scheduler_->runOnce());
}

TEST_F(TovakScheduler, EveryPriorityGetsOnAtWorstSlowly) {
  // All five are always ready; each level must leave every fairTurn-th of its turns to those below.
  std::vector<std::shared_ptr<FunctionTask>> tasks;
  for (size_t priority = 0; priority < TaskPriority::count; ++priority) {
    tasks.push_back(task(
        std::to_string(priority), [](FunctionTask& self) { self.scheduleTask(); },
        static_cast<TaskPriority::PriorityEnum>(priority)));
    tasks.back()->scheduleTask();
  }
  std::uint64_t left =
      TaskScheduler::fairTurn * TaskScheduler::fairTurn * TaskScheduler::fairTurn * TaskScheduler::fairTurn;
  for (std::uint64_t i = 0; i < left; ++i)
    ASSERT_TRUE(scheduler_->runOnce());
  for (size_t priority = 0; priority < TaskPriority::count; ++priority) {
    bool const last = priority + 1 == TaskPriority::count;
    std::uint64_t const expected = last ? left : left - left / TaskScheduler::fairTurn;
    EXPECT_EQ(scheduler_->stats(std::to_string(priority)).runs, expected) << priority;
    left -= expected;
  }
}

TEST_F(TovakScheduler, ATaskYieldsWhenItsSliceIsOver) {
  scheduler_->sliceNsIs(10 * ms);
  int steps = 0;
  auto const walk = task("SyncWalkId-5:12", [this, &steps](FunctionTask& self) {
    EXPECT_EQ(scheduler_->currentTask(), &self);
    for (; steps < 25; ++steps) {
      if (self.taskShouldYield()) {
        EXPECT_TRUE(self.taskShouldYield()) << "stays over";
        self.scheduleTask();
        log_.push_back(std::to_string(steps));
        return;
      }
      clock_.advance(1 * ms);
    }
    log_.push_back("done");
  });
  walk->taskStatsNameIs("WalkTask");
  EXPECT_FALSE(walk->taskShouldYield()) << "not running";
  walk->scheduleTask();
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("10", "20", "done"));
  EXPECT_FALSE(walk->taskShouldYield());
  EXPECT_EQ(scheduler_->statsDump(), "WalkTask: runs 3, total 25000000 ns, max 10000000 ns\n");
  EXPECT_EQ(walk->busy_, 0);

  walk->body_ = [this](FunctionTask&) { clock_.advance(TaskScheduler::busySlices * ms + 1); };
  scheduler_->sliceNsIs(1 * ms);
  walk->scheduleTask();
  scheduler_->runUntilIdle();
  EXPECT_EQ(walk->busy_, 1);
  scheduler_->statsReset();
  EXPECT_EQ(walk->resets_, 1);
  EXPECT_EQ(scheduler_->stats("WalkTask").runs, 0u);
}

// The machine's clock is looked at seldom while steps are short, and with every step while they are long.
TEST(TovakSchedulerClock, YieldsComeInTimeWhateverAStepTakes) {
  struct Counting : Tovak::Clock {
    std::int64_t monotonicNs() const override { return ++reads, nowNs; }
    std::int64_t wallNs() const override { return 0; }
    std::int64_t blockNs(std::int64_t) override { return 0; }
    bool isSimulated() const override { return false; }
    std::int64_t nowNs = 0;
    mutable std::int64_t reads = 0;
  } clock;
  auto const scheduler = std::make_shared<TaskScheduler>(clock);
  constexpr std::int64_t sliceNs = 100'000;
  scheduler->sliceNsIs(sliceNs);
  for (std::int64_t const stepNs : {std::int64_t(100), sliceNs / 20, sliceNs / 4, 2 * sliceNs}) {
    SCOPED_TRACE(stepNs);
    std::int64_t steps = 0, reads = 0, tookNs = 0;
    auto const task =
        std::make_shared<FunctionTask>(scheduler, "t", TaskPriority::normal, [&](FunctionTask& self) {
          std::int64_t const startNs = clock.nowNs;
          reads = -clock.reads;
          do {
            ++steps;
            clock.nowNs += stepNs;
          } while (!self.taskShouldYield());
          reads += clock.reads;
          tookNs = clock.nowNs - startNs;
        });
    task->scheduleTask();
    scheduler->runOnce();
    EXPECT_TRUE(stepNs > 100 || reads <= steps / TaskScheduler::yieldStride + 6) << reads << " for " << steps;
    EXPECT_LE(tookNs, sliceNs + std::max(stepNs, TaskScheduler::yieldStride * std::int64_t(100)));
  }
}

TEST_F(TovakScheduler, TasksMayEndAtAnyTime) {
  auto dropped = task("dropped", [](FunctionTask&) { FAIL() << "ran after its end"; });
  auto descheduled = task("descheduled", [](FunctionTask&) { FAIL() << "ran though descheduled"; });
  // Lets go of itself in its own run, having queued itself again.
  std::shared_ptr<FunctionTask> own;
  own = task("own", [&](FunctionTask& self) {
    self.scheduleTask();
    own.reset();
    log_.push_back(self.name()); // still alive: the scheduler holds it
  });
  // Not shared at all, and deletes itself.
  auto* const raw = new FunctionTask(scheduler_, "raw", TaskPriority::low, [this](FunctionTask& self) {
    auto* const test = this; // the captures go with the task
    clock_.advance(2 * TaskScheduler::busySlices * scheduler_->sliceNs());
    delete &self;
    EXPECT_EQ(test->scheduler_->currentTask(), nullptr) << "else the dead would be told that it was busy";
    test->log_.push_back("raw");
  });
  for (FunctionTask* one : {dropped.get(), descheduled.get(), own.get(), raw})
    one->scheduleTask();
  descheduled->descheduleTask();
  dropped.reset();
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("own", "raw"));
  // One that is told of a reset may end others that are still to be told.
  auto victim = task("victim", nullptr);
  struct Killer : FunctionTask {
    using FunctionTask::FunctionTask;
    void handleResetStats() override { victim->reset(); }
    std::shared_ptr<FunctionTask>* victim = nullptr;
  };
  Killer killer(scheduler_, "killer", TaskPriority::low, nullptr);
  killer.victim = &victim;
  auto const after = task("after", nullptr);
  scheduler_->statsReset();
  EXPECT_EQ(victim, nullptr);
  EXPECT_EQ(after->resets_, 1);
}

TEST_F(TovakScheduler, TimersFireInOrderOfDeadlines) {
  std::int64_t const start = clock_.monotonicNs();
  auto note = [&](String name) {
    return [&, name] { log_.push_back(fmt::format("{}@{}", name, (clock_.monotonicNs() - start) / ms)); };
  };
  scheduler_->timerAfter(30 * ms, note("late"));
  scheduler_->timerAfter(10 * ms, note("a"));
  scheduler_->timerAfter(10 * ms, note("b"));
  Tovak::TimerId const removed = scheduler_->timerAfter(15 * ms, note("removed"));
  scheduler_->timerAfter(10 * ms, [&] { scheduler_->timerDel(removed); });
  Tovak::TimerId tick;
  tick = scheduler_->timerEvery(12 * ms, [&, ticks = 0]() mutable {
    note("tick")();
    if (++ticks == 2) scheduler_->timerDel(tick); // its own
  });
  scheduler_->timerAfter(0, [&] { scheduler_->timerAfter(0, note("at once")); });
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("at once@0"));
  scheduler_->runUntil(start + 50 * ms);
  EXPECT_THAT(log_, ElementsAre("at once@0", "a@10", "b@10", "tick@12", "tick@24", "late@30"));
  EXPECT_EQ(clock_.monotonicNs(), start + 50 * ms);
  scheduler_->timerDel(tick); // gone already: nothing
}

TEST_F(TovakScheduler, MissedTicksAreLeftOut) {
  std::vector<std::int64_t> ticks;
  std::int64_t const start = clock_.monotonicNs();
  scheduler_->timerEvery(10 * ms, [&] { ticks.push_back((clock_.monotonicNs() - start) / ms); });
  clock_.advance(35 * ms);
  scheduler_->runUntilIdle();
  scheduler_->runUntil(start + 60 * ms);
  EXPECT_THAT(ticks, ElementsAre(35, 40, 50, 60));
}

TEST_F(TovakScheduler, HooksOpenEveryPassAndTimePassesOnlyWhenIdle) {
  std::vector<std::int64_t> times;
  auto const hook = scheduler_->loopHookIs([&] { times.push_back(clock_.monotonicNs()); });
  Tovak::LoopHookId once;
  once = scheduler_->loopHookIs([&] {
    log_.push_back("once");
    scheduler_->loopHookDel(once);
    scheduler_->loopHookIs([&] { log_.push_back("later"); });
  });
  std::int64_t const due = clock_.monotonicNs() + 5 * ms;
  scheduler_->timerAt(due, [&] { EXPECT_EQ(times.back(), due) << "the hook saw the time first"; });
  scheduler_->post([&] { EXPECT_EQ(clock_.monotonicNs(), due - 5 * ms) << "work before waiting"; });
  scheduler_->runUntil(due);
  EXPECT_GE(times.size(), 2u);
  EXPECT_EQ(log_.at(0), "once");
  EXPECT_EQ(log_.at(1), "later");
  scheduler_->loopHookDel(hook);
}

TEST_F(TovakScheduler, WatchesDescriptors) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  Tovak::FdWatchId reader;
  auto const watched = scheduler_->fdWatchIs(ends[0], Tovak::FdEvents::readable, [&](std::uint32_t events) {
    if (events & Tovak::FdEvents::readable) {
      char c = 0;
      EXPECT_EQ(::read(ends[0], &c, 1), 1);
      log_.push_back(String(1, c));
    } else {
      log_.push_back(events == Tovak::FdEvents::broken ? "broken" : "?");
      scheduler_->fdWatchDel(reader); // its own
    }
  });
  ASSERT_TRUE(watched.ok()) << watched.error();
  reader = watched.value();
  auto const twice = scheduler_->fdWatchIs(ends[0], Tovak::FdEvents::readable, [](std::uint32_t) {});
  ASSERT_FALSE(twice.ok());
  EXPECT_EQ(twice.error(), fmt::format("cannot watch file descriptor {}: File exists", ends[0]));

  scheduler_->runUntilIdle();
  ASSERT_EQ(::write(ends[1], "xy", 2), 2);
  scheduler_->runUntilIdle();
  scheduler_->fdWatchEventsIs(reader, 0);
  ASSERT_EQ(::write(ends[1], "z", 1), 1);
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("x", "y")); // nothing while not asked for
  scheduler_->fdWatchEventsIs(reader, Tovak::FdEvents::readable);
  ::close(ends[1]);
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("x", "y", "z", "broken"));
  ::close(ends[0]);
}

TEST_F(TovakScheduler, AWatchThatIsRemovedWhileReadyIsNotCalled) {
  int ends[2][2];
  Tovak::FdWatchId ids[2];
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(::pipe(ends[i]), 0);
    ASSERT_EQ(::write(ends[i][1], "x", 1), 1);
    // Whichever is called first removes both.
    ids[i] = scheduler_
                 ->fdWatchIs(ends[i][0], Tovak::FdEvents::readable,
                             [&](std::uint32_t) {
                               log_.push_back("called");
                               scheduler_->fdWatchDel(ids[0]);
                               scheduler_->fdWatchDel(ids[1]);
                             })
                 .value();
  }
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("called"));
  for (auto const& pipe : ends) {
    ::close(pipe[0]);
    ::close(pipe[1]);
  }
}

TEST(TovakSchedulerThreads, WorkPostedFromThreadsRunsOnceInOrderAndWakesTheLoop) {
  auto const scheduler = std::make_shared<TaskScheduler>();
  constexpr int threads = 4;
  constexpr int each = 2000;
  std::vector<int> seen[threads];
  int left = threads * each;
  std::vector<std::thread> posters;
  posters.reserve(threads);
  for (int t = 0; t < threads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < each; ++i)
        scheduler->post([&, t, token = std::make_unique<int>(i)] { // move-only captures are fine
          EXPECT_TRUE(scheduler->isSchedulerThread());
          seen[t].push_back(*token);
          if (--left == 0) scheduler->stop();
        });
    });
  }
  scheduler->run(); // blocks whenever it has caught up; ends by stop alone
  for (std::thread& poster : posters)
    poster.join();
  for (auto const& order : seen) {
    ASSERT_EQ(order.size(), static_cast<size_t>(each));
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  }
  EXPECT_EQ(left, 0);
}

TEST_F(TovakScheduler, MisuseIsAsserted) {
  Tovak::ScopedAssertHandler const throwing;
  EXPECT_THROW(FunctionTask(nullptr, "t", TaskPriority::normal, nullptr), Tovak::AssertionError);
  EXPECT_THROW(scheduler_->timerEvery(0, [] {}), Tovak::AssertionError);
  scheduler_->post([&] { EXPECT_THROW(scheduler_->runOnce(), Tovak::AssertionError); });
  scheduler_->post([&] {
    std::thread other([&] {
      EXPECT_FALSE(scheduler_->isSchedulerThread());
      EXPECT_THROW(scheduler_->timerAfter(0, [] {}), Tovak::AssertionError);
    });
    other.join();
  });
  scheduler_->runUntilIdle();
}

TEST_F(TovakScheduler, AnExceptionLosesNothingElse) {
  scheduler_->post([] { throw std::runtime_error("first"); });
  scheduler_->post([&] { log_.push_back("second"); });
  auto const throwing = task("t", [](FunctionTask&) { throw std::runtime_error("task"); });
  Tovak::TimerId const tick = scheduler_->timerEvery(1 * ms, [&, count = 0]() mutable {
    log_.push_back("tick");
    if (++count == 1) throw std::runtime_error("tick");
  });
  throwing->scheduleTask();
  EXPECT_THROW(scheduler_->runUntilIdle(), std::runtime_error);
  EXPECT_THROW(scheduler_->runUntilIdle(), std::runtime_error);
  EXPECT_EQ(scheduler_->currentTask(), nullptr);
  clock_.advance(1 * ms);
  EXPECT_THROW(scheduler_->runUntilIdle(), std::runtime_error);
  clock_.advance(1 * ms);
  scheduler_->runUntilIdle();
  EXPECT_THAT(log_, ElementsAre("second", "tick", "tick"));
  scheduler_->timerDel(tick);
}

TEST(TovakSchedulerEnd, CallbacksMayUseItFromTheirDestructors) {
  Tovak::SimulatedClock clock;
  TaskScheduler scheduler(clock);
  auto const remover = [&](Tovak::TimerId id) {
    return std::shared_ptr<void>(nullptr, [&, id](void*) { scheduler.timerDel(id); });
  };
  Tovak::TimerId last = scheduler.timerAfter(1, [] {});
  for (int i = 0; i < 5; ++i)
    last = scheduler.timerAfter(1, [held = remover(last)] {});
  scheduler.loopHookIs([held = remover(last)] {});
  scheduler.post([held = remover(last)] {});
}

} // namespace
