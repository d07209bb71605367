// The verdict is the tree's, as when the agent serves; the reasons are read off the rules themselves.
#include "agent/service/AccessCommand.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "agent/access/AccessRules.h"
#include "agent/model/Tree.h"
#include "agent/options/CommandLine.h"
#include "agent/options/Console.h"
#include "agent/paths/PathText.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr char const* kCommand = "ondra-agent access check";

struct Question {
  std::string file;
  std::string user;
  std::string path;
  bool writes = false;
  std::vector<std::string> folders;
  std::vector<std::string> modules;
  bool leavesMachineOut = false;
};

Kstd::Result<Question, EarlyExit> questionOf(std::vector<std::string> const& arguments) {
  CLI::App app("Says whether access rules let a caller read or write a path, and which rule does.", kCommand);
  Question question;
  app.add_option("--access", question.file, "the file of the rules")->type_name("FILE")->required();
  app.add_option(
         "--user", question.user,
         "who: a user of --users, a SPIFFE id or common name of a certificate, 'unix:USER'; empty: anybody")
      ->type_name("NAME");
  app.add_option("--path", question.path, "what: a path without wildcards, '/interfaces/interface[name=lo]'")
      ->type_name("PATH")
      ->required();
  app.add_flag("--write", question.writes, "whether it may be written (else: read)");
  app.add_option("--yang", question.folders, "the modules of this folder are served, too; may be repeated")
      ->type_name("DIR")
      ->take_all();
  app.add_option("--module", question.modules,
                 "of these this one alone, with these features; may be repeated")
      ->type_name("NAME[:FEATURE,...]")
      ->take_all();
  app.add_flag("--no-machine", question.leavesMachineOut, "the machine's own tree is not served");
  if (auto parsed = parseCommandLine(app, arguments); !parsed) return parsed.error();
  return question;
}

Kstd::Result<Pattern, std::string> patternOf(std::string const& text) {
  auto const parsed = pathOf(text);
  if (!parsed) return Kstd::Err(parsed.error());
  auto const path = RequestPath::of({}, *parsed);
  if (!path) return Kstd::Err(path.error().error_message());
  auto pattern = Pattern::of(*path);
  if (!pattern) return Kstd::Err(pattern.error().error_message());
  if (!pattern->isConcrete()) return Kstd::Err(fmt::format("{}: without wildcards, with all keys", text));
  return std::move(pattern).value();
}

gnmi::Path gnmiPathOf(Pattern const& pattern) {
  gnmi::Path path;
  for (Pattern::Elem const& from : pattern.elems()) {
    gnmi::PathElem& elem = *path.add_elem();
    elem.set_name(from.name);
    for (auto const& [name, value] : from.keys)
      (*elem.mutable_key())[name] = value;
  }
  return path;
}

std::string ruleText(AccessRule const& rule) {
  std::string const id = rule.id.empty() ? std::string() : fmt::format(" '{}'", rule.id);
  return fmt::format("line {}{}: {}", rule.line, id, rule.text());
}

// Prints the verdict; whether it is permitted.
bool explain(AccessRules const& rules, Question const& question, Pattern const& pattern) {
  AccessMode const mode = question.writes ? AccessMode::Write : AccessMode::Read;
  auto const rights = rules.rightsOf(question.user);
  RuleTree::Place const place = (question.writes ? rights.writes : rights.reads)->at(pattern);
  std::string text =
      fmt::format("{} {} {} {}\n", question.user.empty() ? "anybody" : question.user,
                  place.permits() ? "may" : "may not", question.writes ? "write" : "read", pattern.text());
  gnmi::Path const path = gnmiPathOf(pattern);
  auto const matching = rules.matching(question.user, mode, PathView(path, 0));
  if (matching.empty()) text += "  no rule matches: denied\n";
  for (AccessRule const* rule : matching) {
    if (rule == matching.front()) {
      text += fmt::format("  by {}\n", ruleText(*rule));
    } else {
      std::string_view const why = strongerBy(*matching.front(), *rule);
      text += fmt::format("  over {} (the first is {})\n", ruleText(*rule), why.empty() ? "first" : why);
    }
  }
  if (place.cover() == Pattern::Cover::Partial)
    text += fmt::format("  some of what lies below is {}\n", place.permits() ? "denied" : "permitted");
  say(stdout, text);
  return place.permits();
}

int run(std::vector<std::string> const& arguments, ModulesIs const& modulesIs) {
  auto const question = questionOf(arguments);
  if (!question) {
    say(question.error().code == ExitCode::ok ? stdout : stderr, question.error().text);
    return question.error().code;
  }
  auto const failed = [](int code, std::string const& what) {
    say(stderr, fmt::format("{}: {}\n", kCommand, what));
    return code;
  };
  if (question->leavesMachineOut && !question->folders.empty()) machineIsLeftOut();
  declareTypes();
  if (!question->folders.empty()) {
    if (auto const declared = modulesIs(question->folders, question->modules); !declared)
      return failed(ExitCode::start, declared.error());
  }
  auto const rules = AccessRules::fromFile(question->file);
  if (!rules) return failed(ExitCode::start, rules.error());
  auto const pattern = patternOf(question->path);
  if (!pattern) return failed(ExitCode::usage, "--path: " + pattern.error());
  return explain(*rules, *question, *pattern) ? ExitCode::ok : ExitCode::failed;
}

} // namespace

int accessCommand(std::vector<std::string> const& arguments, ModulesIs const& modulesIs) {
  if (arguments.empty() || arguments.front() != "check") {
    bool const asks = !arguments.empty() && (arguments.front() == "--help" || arguments.front() == "-h");
    say(asks ? stdout : stderr, "usage: ondra-agent access check OPTION...\n\n"
                                "'ondra-agent access check --help' tells the options.\n");
    return asks ? ExitCode::ok : ExitCode::usage;
  }
  return run({arguments.begin() + 1, arguments.end()}, modulesIs);
}

} // namespace Agent
