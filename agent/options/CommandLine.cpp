// How errors of CLI11 become an exit code and a text, and durations as numbers with a unit from ns to h.
#include "agent/options/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <limits>
#include <sstream>
#include <utility>

namespace Agent {

EarlyExit wrongUsage(std::string const& command, std::string const& what) {
  return {ExitCode::usage, fmt::format("{}: {}\nTry '{} --help'.\n", command, what, command)};
}

Kstd::Result<void, EarlyExit> parseCommandLine(CLI::App& app, std::vector<std::string> const& arguments) {
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (CLI::Success const& success) { // --help
    std::ostringstream out;
    app.exit(success, out, out);
    return EarlyExit{ExitCode::ok, out.str()};
  } catch (CLI::Error const& error) {
    return wrongUsage(app.get_name(), error.what());
  }
  return {};
}

std::optional<std::int64_t> durationOf(std::string_view text) {
  static constexpr std::array<std::pair<std::string_view, double>, 6> kUnits = {
      {{"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}, {"m", 60e9}, {"h", 3600e9}}};
  double number = 0;
  auto const [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc() || !(number >= 0)) return std::nullopt;
  std::string_view const unit = text.substr(static_cast<std::size_t>(end - text.data()));
  for (auto const& [name, ns] : kUnits) {
    double const value = number * ns;
    if (unit == name && value < static_cast<double>(std::numeric_limits<std::int64_t>::max()))
      return static_cast<std::int64_t>(value);
  }
  return std::nullopt;
}

CLI::Option* durationOption(CLI::App& app, std::string const& name, std::int64_t& ns,
                            std::string const& description) {
  CLI::callback_t const take = [&ns](CLI::results_t const& texts) {
    auto const value = durationOf(texts.back());
    if (value) ns = *value;
    return value.has_value();
  };
  return app.add_option(name, take, description)->type_name("TIME");
}

} // namespace Agent
