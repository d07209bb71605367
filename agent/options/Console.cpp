// Closed streams are opened on /dev/null; output that could not be written turns success into failure.
#include "agent/options/Console.h"

#include <fcntl.h>
#include <unistd.h>

#include "agent/options/CommandLine.h"

namespace Agent {

void standardStreamsAreOpen() {
  for (int const standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(standard, F_GETFD) < 0)
      static_cast<void>(::open("/dev/null", O_RDWR)); // takes the lowest number
}

void say(std::FILE* to, std::string_view text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), to));
  static_cast<void>(std::fflush(to));
}

int codeAfterPrinting(int code) {
  bool const isPrinted = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  return code == ExitCode::ok && !isPrinted ? ExitCode::failed : code;
}

} // namespace Agent
