// The scheduler's timers, in the order of their deadlines.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "Tovak/TaskScheduler.h"

namespace Tovak::Impl {

// The timers of one scheduler, on its thread. Invariant: `order_` has exactly one entry per timer, with the
// timer's deadline. Ids are never used twice.
class TimerQueue {
public:
  // What nextNs gives when there is no timer.
  static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

  // Adds a timer; with a period of 0 it is called once.
  TimerId add(std::int64_t deadlineNs, std::int64_t periodNs, TaskScheduler::Callback callback);
  void del(TimerId id);
  void clear();

  std::int64_t nextNs() const { return order_.empty() ? never : order_.begin()->first; }

  // Calls what is due at `nowNs`, except what is added meanwhile; false when nothing was due.
  bool run(std::int64_t nowNs);

private:
  struct Timer {
    std::int64_t deadlineNs;
    std::int64_t periodNs;
    TaskScheduler::Callback callback;
  };

  void runTimer(TimerId id, std::int64_t nowNs);

  std::map<TimerId, Timer> timers_;
  std::set<std::pair<std::int64_t, TimerId>> order_;
  std::vector<TimerId> due_; // scratch of run
  std::uint64_t lastId_ = 0;
};

} // namespace Tovak::Impl
