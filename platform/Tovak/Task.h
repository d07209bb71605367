// Tovak::Task: work that the scheduler does in slices.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include <boost/intrusive/list_hook.hpp>
#include <fmt/core.h>

#include "Kstd/Export.h"
#include "Tovak/String.h"

namespace Tovak {

class TaskScheduler;
struct TaskStats;

// How urgent a task is, the most urgent first. See TaskScheduler for what the order means.
struct TaskPriority {
  // The most urgent first.
  enum PriorityEnum : std::uint8_t { critical, high, normal, low, background };
  static constexpr size_t count = 5; // of the priorities
};

// "critical", "high", "normal", "low", "background"; "unknown" for any other number.
KTD_EXPORT std::string_view taskPriorityToStringView(TaskPriority::PriorityEnum priority);

namespace Impl {
struct ScheduledTag;
struct KnownTag;
template <typename Tag>
using TaskHook = boost::intrusive::list_base_hook<boost::intrusive::tag<Tag>,
                                                  boost::intrusive::link_mode<boost::intrusive::auto_unlink>>;
} // namespace Impl

// A piece of work that the scheduler runs in slices on its thread: taskExecute does some work, asks
// taskShouldYield now and then, and when told to yield parks what is left, calls scheduleTask and returns.
//
// Owned by std::shared_ptr (shared_from_this of the base; a subclass does not derive from
// enable_shared_from_this again). The scheduler does not own it: a task that is dropped while it is scheduled
// is simply not run. While taskExecute runs the scheduler holds a reference, so a task may let go of itself.
// The task keeps its scheduler alive.
//
// Everything here belongs to the scheduler's thread; from other threads, TaskScheduler::post.
class KTD_EXPORT Task : public std::enable_shared_from_this<Task>,
                        public Impl::TaskHook<Impl::ScheduledTag>,
                        public Impl::TaskHook<Impl::KnownTag> {
public:
  // Makes an unscheduled task. REQUIRES a scheduler (asserted) and a priority of the enumeration (asserted).
  Task(std::shared_ptr<TaskScheduler> scheduler, String name, TaskPriority::PriorityEnum priority);
  virtual ~Task();
  Task(Task const&) = delete;
  Task& operator=(Task const&) = delete;

  // Queues the task behind the others of its priority; does nothing when it is queued already. A task that is
  // running may queue itself for another run.
  void scheduleTask();
  // Takes the task off the queue; does nothing when it is not queued. A run in progress goes on.
  void descheduleTask();
  bool isScheduled() const { return Impl::TaskHook<Impl::ScheduledTag>::is_linked(); } // It is queued.

  // Does a slice of the work; called once per scheduleTask.
  virtual void taskExecute() = 0;

  // Whether the running task has used up its slice. Once true it stays true for the rest of the run; false
  // for a task that is not running. Cheap enough for the inner loop: at most one clock read, and where calls
  // follow each other quickly, on the machine's clock only at every TaskScheduler::yieldStride-th of them.
  // Virtual so that a test can force a yield.
  virtual bool taskShouldYield() const;

  // Called after a run that took more than TaskScheduler::busySlices slices: the task holds up everybody
  // else.
  virtual void handleTaskBusy() {}
  // Called when the scheduler's statistics are reset, for tasks that keep figures of their own.
  virtual void handleResetStats() {}

  String const& name() const { return name_; }                                   // as traces print it
  TaskPriority::PriorityEnum priority() const { return priority_; }              // fixed at its making
  std::shared_ptr<TaskScheduler> const& scheduler() const { return scheduler_; } // that runs it

  // Under which name the runs are counted: the task's own unless set. Tasks that are made by the thousand
  // share one.
  String const& taskStatsName() const { return statsName_.empty() ? name_ : statsName_; }
  void taskStatsNameIs(String name); // REQUIRES that it is not running

private:
  friend class TaskScheduler;

  std::shared_ptr<TaskScheduler> const scheduler_;
  String const name_;
  String statsName_;
  TaskStats* stats_ = nullptr; // of taskStatsName(), looked up at the first run
  TaskPriority::PriorityEnum const priority_;
};

} // namespace Tovak

// Prints the priority's text; takes no format options.
template <>
struct fmt::formatter<Tovak::TaskPriority::PriorityEnum> {
  constexpr auto parse(format_parse_context& context) { return context.begin(); }

  template <typename Context>
  auto format(Tovak::TaskPriority::PriorityEnum priority, Context& context) const {
    return fmt::format_to(context.out(), "{}", Tovak::taskPriorityToStringView(priority));
  }
};
