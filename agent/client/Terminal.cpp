// Keys come one by one; signals come by a pipe, whichever thread takes them.
#include "agent/client/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "agent/options/Console.h"

namespace Agent {
namespace {

constexpr char const* kBegin = "\x1b[?1049h\x1b[?25l"; // another screen, without a cursor
constexpr char const* kEnd = "\x1b[?25h\x1b[?1049l";
constexpr std::array kSignals = {SIGWINCH, SIGINT, SIGTERM, SIGHUP};

std::array<int, 2> pipeEnds = {-1, -1};

void note(int number) {
  int const error = errno;
  char const what = number == SIGWINCH ? 'w' : 'e';
  static_cast<void>(::write(pipeEnds[1], &what, 1) == 1); // a full one says it already
  errno = error;
}

} // namespace

bool Terminal::isThere() {
  char const* const term = std::getenv("TERM");
  return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1 && term != nullptr &&
         std::string_view(term) != "dumb";
}

Terminal::Terminal() {
  if (::pipe2(pipeEnds.data(), O_CLOEXEC | O_NONBLOCK) != 0) pipeEnds = {-1, -1};
  for (int const number : kSignals) {
    struct sigaction action {};
    action.sa_handler = note;
    ::sigaction(number, &action, nullptr);
  }
  ::tcgetattr(STDIN_FILENO, &before_);
  termios raw = before_;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VSUSP] = _POSIX_VDISABLE; // it would stop on the other screen
  raw.c_cc[VMIN] = 1;
  raw.c_cc[VTIME] = 0;
  ::tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  say(stdout, kBegin);
}

Terminal::~Terminal() {
  say(stdout, kEnd);
  ::tcsetattr(STDIN_FILENO, TCSANOW, &before_);
  for (int const number : kSignals)
    ::signal(number, SIG_DFL);
  for (int const end : pipeEnds)
    ::close(end);
}

Terminal::Size Terminal::size() {
  winsize found{};
  Size size;
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &found) == 0 && found.ws_row > 0 && found.ws_col > 0)
    size = {found.ws_row, found.ws_col};
  return size;
}

void Terminal::show(std::string const& lines) {
  std::string text = "\x1b[H";
  for (char const character : lines)
    character == '\n' ? text += "\x1b[K\n" : text += character;
  say(stdout, text + "\x1b[K\x1b[J");
}

int Terminal::nextKey(std::int64_t waitNs) {
  std::array<pollfd, 2> ends = {{{STDIN_FILENO, POLLIN, 0}, {pipeEnds[0], POLLIN, 0}}};
  int const ready = ::poll(ends.data(), ends.size(), static_cast<int>(waitNs / 1'000'000) + 1);
  if (ready < 0) return errno == EINTR ? hasNewSize : isToEnd;
  char what = 0;
  if (ready == 0) return timeIsOver;
  if (ends[1].revents != 0) return ::read(pipeEnds[0], &what, 1) == 1 && what == 'w' ? hasNewSize : isToEnd;
  return ::read(STDIN_FILENO, &what, 1) == 1 ? static_cast<unsigned char>(what) : isToEnd;
}

} // namespace Agent
