// Signals that end the process are blocked and waited for; a second one ends it at once.
#include "agent/service/Signals.h"

#include <csignal>
#include <unistd.h>

namespace Agent {
namespace {

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t endings() {
  sigset_t set;
  sigemptyset(&set);
  for (int const signal : {SIGTERM, SIGINT, SIGHUP}) {
    if (signal != SIGHUP || !isIgnored(SIGHUP)) sigaddset(&set, signal);
  }
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
  for (int const each : {SIGTERM, SIGINT, SIGHUP}) {
    if (sigismember(&set, each) == 1) ::sigaction(each, &action, nullptr);
  }
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

} // namespace Agent
