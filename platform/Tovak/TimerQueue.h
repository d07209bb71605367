#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "Tovak/TaskScheduler.h"

namespace Tovak::Impl {

/**
 * The timers of one scheduler, on its thread. Invariant: `order_` has exactly one entry per timer, with the timer's
 * deadline. Ids are never used twice.
 */
class TimerQueue {
public:
  /** What nextNs gives when there is no timer. */
  static constexpr int64_t never = std::numeric_limits<int64_t>::max();

  /** Adds a timer; with a period of 0 it is called once. */
  TimerId add(int64_t deadlineNs, int64_t periodNs, TaskScheduler::Callback callback);
  void del(TimerId id);
  void clear();

  int64_t nextNs() const { return order_.empty() ? never : order_.begin()->first; }

  /** Calls what is due at `nowNs`, except what is added meanwhile; false when nothing was due. */
  bool run(int64_t nowNs);

private:
  struct Timer {
    int64_t deadlineNs;
    int64_t periodNs;
    TaskScheduler::Callback callback;
  };

  void runTimer(TimerId id, int64_t nowNs);

  std::map<TimerId, Timer> timers_;
  std::set<std::pair<int64_t, TimerId>> order_;
  std::vector<TimerId> due_; // scratch of run
  uint64_t lastId_ = 0;
};

} // namespace Tovak::Impl
