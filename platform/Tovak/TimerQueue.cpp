// Timers by deadline, then by id. A periodic one that is late skips ticks and stays in step with its first
// one.
#include "Tovak/TimerQueue.h"

#include "Tovak/CallbackCall.h"

namespace Tovak::Impl {

TimerId TimerQueue::add(std::int64_t deadlineNs, std::int64_t periodNs, TaskScheduler::Callback callback) {
  TimerId const id(++lastId_);
  timers_.emplace(id, Timer{deadlineNs, periodNs, std::move(callback)});
  order_.emplace(deadlineNs, id);
  return id;
}

void TimerQueue::del(TimerId id) {
  // Out of the map before it dies: what the callback holds may come back here from its destructor.
  if (auto const timer = timers_.extract(id)) order_.erase({timer.mapped().deadlineNs, id});
}

void TimerQueue::clear() {
  while (!timers_.empty())
    del(timers_.begin()->first);
}

bool TimerQueue::run(std::int64_t nowNs) {
  due_.clear();
  for (auto const& [deadlineNs, id] : order_) {
    if (deadlineNs > nowNs) break;
    due_.push_back(id);
  }
  for (TimerId const id : due_)
    runTimer(id, nowNs);
  return !due_.empty();
}

void TimerQueue::runTimer(TimerId id, std::int64_t nowNs) {
  auto const found = timers_.find(id);
  if (found == timers_.end()) return; // removed by one before it
  Timer& timer = found->second;
  order_.erase({timer.deadlineNs, id});
  if (timer.periodNs == 0) {
    auto once = timers_.extract(found);
    once.mapped().callback();
    return;
  }
  // The next tick that is still to come, in step with the first one.
  timer.deadlineNs += ((nowNs - timer.deadlineNs) / timer.periodNs + 1) * timer.periodNs;
  order_.emplace(timer.deadlineNs, id);
  callEntry(timers_, id);
}

} // namespace Tovak::Impl
