// The process's wish to end, as signals tell it.
#pragma once

namespace Agent {

// SIGTERM and SIGINT, awaited by the main thread.
class Signals {
public:
  // From now on the two wait to be asked for; to be called before any other thread is started, which inherit that.
  Signals();
  Signals(Signals const&) = delete;
  Signals& operator=(Signals const&) = delete;

  // Returns when one has arrived. From then on another one ends the process at once, with 128 and its number.
  void await();
};

} // namespace Agent
