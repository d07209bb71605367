// What the commands' options have in common: how they are parsed, what a wrong one ends with, durations.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kstd/Result.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Agent {

// What a process ends with.
struct ExitCode {
  static constexpr int ok = 0;
  static constexpr int failed = 1; // a call failed
  static constexpr int usage = 2;  // wrong options or configuration file
  static constexpr int start = 3;  // cannot start: a port, a certificate, the users file
};

// The process is to end without having done anything: after --help, or after a wrong option.
struct EarlyExit {
  int code = ExitCode::ok;
  std::string text; // for standard output with code 0, else for standard error; ends with a line end
};
[[nodiscard]] EarlyExit wrongUsage(std::string const& command, std::string const& what);

// Parses a command's arguments, those after its name, into the variables that the app was given.
[[nodiscard]] Kstd::Result<void, EarlyExit> parseCommandLine(CLI::App& app,
                                                             std::vector<std::string> const& arguments);

// Nanoseconds of "250ms", "1s", "1.5s", "2m", "1h"; nothing for other texts, for negative ones and for what
// does not fit.
[[nodiscard]] std::optional<std::int64_t> durationOf(std::string_view text);
// Adds an option that takes such a text.
CLI::Option* durationOption(CLI::App& app, std::string const& name, std::int64_t& ns,
                            std::string const& description);

} // namespace Agent
