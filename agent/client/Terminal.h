// Agent::Terminal: standard input and output as a screen and keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <termios.h>

namespace Agent {

// One a process: it takes the signals of the terminal, and gives everything back when it goes.
class Terminal {
public:
  // Whether both are a terminal that can be drawn on.
  [[nodiscard]] static bool isThere();

  Terminal();
  ~Terminal();
  Terminal(Terminal const&) = delete;
  Terminal& operator=(Terminal const&) = delete;

  struct Size {
    std::size_t rows = 24;
    std::size_t columns = 80;
  };
  [[nodiscard]] static Size size();
  // Lines with "\n" between them, no more than there are rows.
  void show(std::string const& lines);

  // A key; or what has happened otherwise.
  static constexpr int timeIsOver = -1;
  static constexpr int hasNewSize = -2;
  static constexpr int isToEnd = -3; // by a signal, or nobody is there any more
  [[nodiscard]] int nextKey(std::int64_t waitNs);

private:
  termios before_{};
};

} // namespace Agent
