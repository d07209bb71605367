// The process's wish to end, as signals tell it.
#pragma once

namespace Agent {

// SIGTERM, SIGINT and SIGHUP, awaited by the main thread; the last unless the process was started to ignore
// it (nohup).
class Signals {
public:
  // From now on they wait to be asked for; to be called before any other thread is started, which inherit
  // that.
  Signals();
  Signals(Signals const&) = delete;
  Signals& operator=(Signals const&) = delete;

  // Returns when one has arrived. From then on another one ends the process at once, with 128 and its number.
  void await();
};

} // namespace Agent
