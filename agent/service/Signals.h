// The wishes of whoever runs the process, as signals tell them: to end, to read its files anew.
#pragma once

#include <cstdint>

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

  enum class Wish : std::uint8_t { ReadAnew, End };
  // Returns when one has arrived. From `End` on another one ends the process at once, with 128 and its
  // number; a SIGHUP is passed over then.
  [[nodiscard]] Wish await();
};

} // namespace Agent
