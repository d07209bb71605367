// What systemd is told of the process: that it is ready, well, and what it does (sd_notify(3)).
#pragma once

#include <cstdint>
#include <memory>

#include "Tovak/TaskScheduler.h"

namespace Agent {

class Calls;
class Context;

// Does nothing where no service manager listens (no NOTIFY_SOCKET in the environment). Made and dropped by
// one thread while the scheduler's own runs, between the first listening and the last. Context and calls
// outlive it.
//
// Signs of life come from the scheduler's loop, twice as often as they are wanted (WatchdogSec=): an agent
// whose loop is stuck is started anew.
class ServiceManager {
public:
  // READY.
  ServiceManager(Context& context, Calls& calls);
  // STOPPING.
  ~ServiceManager();

  // RELOADING, and READY again once `read` has returned.
  template <class Read>
  void whileReading(Read const& read) {
    readingBegins();
    read();
    readingEnds();
  }
  ServiceManager(ServiceManager const&) = delete;
  ServiceManager& operator=(ServiceManager const&) = delete;

private:
  struct Signs; // the scheduler thread's

  void readingBegins();
  void readingEnds();

  Context& context_;
  std::shared_ptr<Signs> const signs_;
};

} // namespace Agent
