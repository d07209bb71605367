#include "agent/service/Signals.h"

#include <csignal>
#include <unistd.h>

namespace Agent {
namespace {

sigset_t endings() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}

extern "C" void endNow(int signal) { ::_exit(128 + signal); }

} // namespace

Signals::Signals() {
  sigset_t const set = endings();
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN); // a reader of our standard output that went away is not our end
}

void Signals::await() {
  sigset_t const set = endings();
  int signal = 0;
  ::sigwait(&set, &signal);
  struct sigaction action {};
  action.sa_handler = &endNow;
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

} // namespace Agent
