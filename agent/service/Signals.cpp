// Signals are blocked and waited for; a second one to end does so at once.
#include "agent/service/Signals.h"

#include <csignal>
#include <initializer_list>
#include <unistd.h>

namespace Agent {
namespace {

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t awaited() {
  sigset_t set;
  sigemptyset(&set);
  for (int const signal : {SIGTERM, SIGINT, SIGHUP})
    if (signal != SIGHUP || !isIgnored(SIGHUP)) sigaddset(&set, signal);
  return set;
}

extern "C" void endNow(int signal) { ::_exit(128 + signal); }

} // namespace

Signals::Signals() {
  sigset_t const set = awaited();
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN); // a reader of our standard output that went away is not our end
}

Signals::Wish Signals::await() {
  sigset_t const set = awaited();
  int signal = 0;
  ::sigwait(&set, &signal);
  if (signal == SIGHUP) return Wish::ReadAnew;
  struct sigaction action {};
  action.sa_handler = &endNow;
  for (int const each : {SIGTERM, SIGINT})
    ::sigaction(each, &action, nullptr);
  std::signal(SIGHUP, SIG_IGN);
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  return Wish::End;
}

} // namespace Agent
