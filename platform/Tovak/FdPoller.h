// The scheduler's file descriptors: who waits for which of them.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <vector>

#include "Tovak/TaskScheduler.h"

namespace Tovak::Impl {

// The watched descriptors of one scheduler, and the means to wake it from other threads. All but wake belongs
// to the scheduler's thread. Ids are never used twice, so an event that was collected for a watch which has
// gone since, even one of the same descriptor, reaches nobody.
class FdPoller {
public:
  FdPoller();
  ~FdPoller();
  FdPoller(FdPoller const&) = delete;
  FdPoller& operator=(FdPoller const&) = delete;

  Kstd::Result<FdWatchId, String> add(int fd, std::uint32_t events, TaskScheduler::FdCallback callback);
  void eventsIs(FdWatchId id, std::uint32_t events);
  void del(FdWatchId id);
  void clear();

  // Ends the current wait, or the next one. Whatever was written before is seen after that wait. Any thread.
  void wake();

  // Collects what is ready, blocking for at most `blockMs` (-1: without limit); false when nothing was ready.
  bool wait(int blockMs);

  // Calls what wait has collected; false when that was nothing.
  bool run();

private:
  struct Watch {
    int fd;
    TaskScheduler::FdCallback callback;
  };
  struct Ready {
    FdWatchId id;
    std::uint32_t events;
  };

  int epollFd_;
  int wakeFd_;
  std::atomic<bool> woken_{false}; // the wake descriptor is, or is about to be, readable
  std::map<FdWatchId, Watch> watches_;
  std::vector<Ready> ready_;
  std::uint64_t lastId_ = 0; // 0 is the wake descriptor
};

} // namespace Tovak::Impl
