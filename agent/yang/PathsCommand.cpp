// Loads the modules without the machine's own tree and prints the tables of docs/supported-paths.md for them.
#include "agent/yang/PathsCommand.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "agent/model/SupportedPaths.h"
#include "agent/model/Tree.h"
#include "agent/options/CommandLine.h"
#include "agent/options/Console.h"
#include "agent/yang/YangModel.h"

namespace Agent {

int pathsCommand(std::vector<std::string> const& arguments) {
  constexpr char const* kCommand = "ondra-agent paths";
  CLI::App app("Prints the paths that modules of YANG would be served under.", kCommand);
  ModuleOrder order;
  app.add_option("--yang", order.folders, "the modules of this folder and its subfolders; may be repeated")
      ->type_name("DIR")
      ->required()
      ->take_all();
  app.add_option("--module", order.modules, "of these this one alone, with these features; may be repeated")
      ->type_name("NAME[:FEATURE,...]")
      ->take_all();
  if (auto const options = parseCommandLine(app, arguments); !options) {
    say(options.error().code == ExitCode::ok ? stdout : stderr, options.error().text);
    return options.error().code;
  }
  machineIsLeftOut();
  auto const model = YangModel::load(order);
  if (!model) {
    say(stderr, fmt::format("{}: {}\n", kCommand, model.error()));
    return ExitCode::start;
  }
  say(stdout, pathTables());
  return ExitCode::ok;
}

} // namespace Agent
