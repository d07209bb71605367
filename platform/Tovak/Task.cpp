// Only what a task asks of its scheduler and the names of priorities; what is scheduled when is in
// TaskScheduler.cpp.
#include "Tovak/Task.h"

#include <utility>

#include "Tovak/TaskScheduler.h"
#include "Tovak/Trace.h"

namespace Tovak {

std::string_view taskPriorityToStringView(TaskPriority::PriorityEnum priority) {
  switch (priority) {
  case TaskPriority::critical: return "critical";
  case TaskPriority::high: return "high";
  case TaskPriority::normal: return "normal";
  case TaskPriority::low: return "low";
  case TaskPriority::background: return "background";
  }
  return "unknown";
}

Task::Task(std::shared_ptr<TaskScheduler> scheduler, String name, TaskPriority::PriorityEnum priority)
    : scheduler_(std::move(scheduler))
    , name_(std::move(name))
    , priority_(priority) {
  DebugHandler const& handler = Platform::getDebugHandler("TovakTask", false);
  TOVAK_ASSERT(scheduler_, handler, "task {} without a scheduler", name_);
  TOVAK_ASSERT(priority_ < TaskPriority::count, handler, "task {} with priority {}", name_,
               static_cast<unsigned>(priority_));
  scheduler_->taskAdd(*this);
}

Task::~Task() { scheduler_->taskDel(*this); }

void Task::scheduleTask() { scheduler_->taskSchedule(*this); }

void Task::descheduleTask() { Impl::TaskHook<Impl::ScheduledTag>::unlink(); }

bool Task::taskShouldYield() const { return scheduler_->sliceUsedUp(*this); }

void Task::taskStatsNameIs(String name) {
  statsName_ = std::move(name);
  stats_ = nullptr;
}

} // namespace Tovak
