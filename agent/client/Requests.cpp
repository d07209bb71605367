// The command lines by CLI11, and the gNMI requests made of them. A path or value that does not parse ends as
// wrong usage.
#include "agent/client/Requests.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <map>
#include <utility>

#include "agent/client/ValueText.h"
#include "agent/paths/PathText.h"

namespace Agent {
namespace {

std::map<std::string, gnmi::Encoding> const kEncodings = {
    {"json", gnmi::JSON}, {"json_ietf", gnmi::JSON_IETF}, {"proto", gnmi::PROTO}};
std::map<std::string, gnmi::GetRequest::DataType> const kTypes = {
    {"all", gnmi::GetRequest::ALL},
    {"config", gnmi::GetRequest::CONFIG},
    {"state", gnmi::GetRequest::STATE},
    {"operational", gnmi::GetRequest::OPERATIONAL}};

template <class Enum>
void choiceOption(CLI::App& app, char const* name, Enum& value, std::map<std::string, Enum> const& choices,
                  std::string const& description) {
  std::string names;
  for (auto const& [text, unused] : choices)
    names += (names.empty() ? "" : "|") + text;
  app.add_option(name, value, description)->transform(CLI::Transformer(choices))->type_name(names);
}

void pathsOption(CLI::App& app, std::vector<std::string>& paths, char const* description) {
  app.add_option("PATH", paths, description)->type_name("");
}

// Adds the paths of `texts` to a request, by `add`; the text of what is wrong, or empty.
template <class Add>
std::string pathsInto(std::vector<std::string> const& texts, Add add) {
  for (std::string const& text : texts) {
    auto path = pathOf(text);
    if (!path) return path.error();
    add(std::move(*path));
  }
  return {};
}

struct Modes {
  bool isOnce = false, isOnChange = false;
  std::int64_t sampleNs = 0, heartbeatNs = 0;
  bool suppressesRedundant = false;
};

gnmi::Subscription subscriptionOf(Modes const& modes) {
  gnmi::Subscription subscription;
  subscription.set_mode(modes.isOnChange     ? gnmi::ON_CHANGE
                        : modes.sampleNs > 0 ? gnmi::SAMPLE
                                             : gnmi::TARGET_DEFINED);
  subscription.set_sample_interval(static_cast<std::uint64_t>(modes.sampleNs));
  subscription.set_heartbeat_interval(static_cast<std::uint64_t>(modes.heartbeatNs));
  subscription.set_suppress_redundant(modes.suppressesRedundant);
  return subscription;
}

void addModes(CLI::App& app, Modes& modes) {
  CLI::Option* const once = app.add_flag("--once", modes.isOnce, "what is there now, and end");
  CLI::Option* const change =
      app.add_flag("--on-change", modes.isOnChange, "what is there, then changes")->excludes(once);
  CLI::Option* const sample = durationOption(app, "--sample", modes.sampleNs, "everything at this interval")
                                  ->excludes(once)
                                  ->excludes(change);
  durationOption(app, "--heartbeat", modes.heartbeatNs, "also unchanged, at this interval")->excludes(once);
  app.add_flag("--suppress-redundant", modes.suppressesRedundant, "leave out samples that have not changed")
      ->needs(sample);
}

std::string updatesInto(std::vector<std::string> const& texts,
                        google::protobuf::RepeatedPtrField<gnmi::Update>& updates) {
  for (std::string const& text : texts) {
    auto const [path, value, hasValue] = assignmentOf(text);
    if (!hasValue) return fmt::format("'{}' is not of the form PATH=VALUE", text);
    auto parsedPath = pathOf(path);
    if (!parsedPath) return parsedPath.error();
    auto parsedValue = valueOf(value);
    if (!parsedValue) return parsedValue.error();
    gnmi::Update& update = *updates.Add();
    *update.mutable_path() = std::move(*parsedPath);
    *update.mutable_val() = std::move(*parsedValue);
  }
  return {};
}

} // namespace

Kstd::Result<WatchOptions, EarlyExit> WatchOptions::parse(std::vector<std::string> const& arguments) {
  constexpr char const* kCommand = "ondra-agent watch";
  CLI::App app("Prints a line for every update below the paths, until interrupted.", kCommand);
  WatchOptions options;
  std::vector<std::string> paths;
  Modes modes;
  bool updatesOnly = false;
  std::uint64_t seconds = 0;
  gnmi::Encoding encoding = gnmi::PROTO;
  pathsOption(app, paths, "what to watch (/), as in '/interfaces/interface[name=lo]/state'");
  addModes(app, modes);
  app.add_flag("--updates-only", updatesOnly, "without what is there at the beginning");
  app.add_option("--seconds", seconds, "end after so many seconds")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000}))
      ->type_name("N");
  choiceOption(app, "--encoding", encoding, kEncodings, "encoding of the values (proto)");
  app.add_flag("--json", options.isJson, "a JSON object a line");
  connectionOptions(app, options.connection);
  if (auto const parsed = parseCommandLine(app, arguments); !parsed) return parsed.error();

  options.durationNs = static_cast<std::int64_t>(seconds) * 1'000'000'000;
  gnmi::SubscriptionList& list = *options.request.mutable_subscribe();
  list.mutable_prefix()->set_target(options.connection.target);
  list.set_mode(modes.isOnce ? gnmi::SubscriptionList::ONCE : gnmi::SubscriptionList::STREAM);
  list.set_encoding(encoding);
  list.set_updates_only(updatesOnly);
  if (paths.empty()) paths.emplace_back("/");
  std::string const fault = pathsInto(paths, [&](gnmi::Path path) {
    gnmi::Subscription& subscription = *list.add_subscription();
    if (!modes.isOnce) subscription = subscriptionOf(modes);
    *subscription.mutable_path() = std::move(path);
  });
  if (!fault.empty()) return wrongUsage(kCommand, fault);
  return options;
}

Kstd::Result<GetOptions, EarlyExit> GetOptions::parse(std::vector<std::string> const& arguments) {
  constexpr char const* kCommand = "ondra-agent get";
  CLI::App app("Prints what is at and below the paths.", kCommand);
  GetOptions options;
  std::vector<std::string> paths;
  gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL;
  gnmi::Encoding encoding = gnmi::JSON_IETF;
  pathsOption(app, paths, "what to get (/)");
  choiceOption(app, "--type", type, kTypes, "which leaves (all)");
  choiceOption(app, "--encoding", encoding, kEncodings, "encoding of the values (json_ietf)");
  app.add_flag("--json", options.isJson, "a JSON object a line");
  connectionOptions(app, options.connection);
  if (auto const parsed = parseCommandLine(app, arguments); !parsed) return parsed.error();

  options.request.set_type(type);
  options.request.set_encoding(encoding);
  options.request.mutable_prefix()->set_target(options.connection.target);
  if (paths.empty()) paths.emplace_back("/");
  std::string const fault =
      pathsInto(paths, [&](gnmi::Path path) { *options.request.add_path() = std::move(path); });
  if (!fault.empty()) return wrongUsage(kCommand, fault);
  return options;
}

Kstd::Result<SetOptions, EarlyExit> SetOptions::parse(std::vector<std::string> const& arguments) {
  constexpr char const* kCommand = "ondra-agent set";
  CLI::App app("Changes the configuration, all of it or nothing: deletes, then replaces, then updates.\n"
               "A VALUE is JSON, or else a string; @FILE takes the JSON in a file.",
               kCommand);
  SetOptions options;
  std::vector<std::string> updates, moreUpdates, replaces, deletes;
  app.add_option("PATH=VALUE", updates, "updates")->type_name("");
  app.add_option("--update", moreUpdates, "updates")->type_name("PATH=VALUE")->expected(1)->take_all();
  app.add_option("--replace", replaces, "replaces")->type_name("PATH=VALUE")->expected(1)->take_all();
  app.add_option("--delete", deletes, "deletes")->type_name("PATH")->expected(1)->take_all();
  connectionOptions(app, options.connection);
  if (auto const parsed = parseCommandLine(app, arguments); !parsed) return parsed.error();

  options.request.mutable_prefix()->set_target(options.connection.target);
  updates.insert(updates.end(), moreUpdates.begin(), moreUpdates.end());
  if (updates.empty() && replaces.empty() && deletes.empty()) return wrongUsage(kCommand, "nothing to do");
  std::string fault =
      pathsInto(deletes, [&](gnmi::Path path) { *options.request.add_delete_() = std::move(path); });
  if (fault.empty()) fault = updatesInto(replaces, *options.request.mutable_replace());
  if (fault.empty()) fault = updatesInto(updates, *options.request.mutable_update());
  if (!fault.empty()) return wrongUsage(kCommand, fault);
  return options;
}

Kstd::Result<TopOptions, EarlyExit> TopOptions::parse(std::vector<std::string> const& arguments) {
  constexpr char const* kCommand = "ondra-agent top";
  CLI::App app("Shows what an agent does, and for whom: its Subscribe calls with their rates.\n"
               "On a terminal, s sorts by another column and q ends it.",
               kCommand);
  TopOptions options;
  std::map<std::string, TopSort> sorts;
  for (std::uint8_t i = 0; i < kTopSorts; ++i)
    sorts.emplace(topSortName(static_cast<TopSort>(i)), static_cast<TopSort>(i));
  durationOption(app, "--interval", options.intervalNs, "between two looks, at least 1s (1s)");
  choiceOption(app, "--sort", options.sort, sorts, "by which column (leaves/s)");
  app.add_flag("--once", options.isOnce, "one table, after an interval, and end");
  app.add_flag("--batch", options.isBatch, "a table each interval, also on a terminal");
  connectionOptions(app, options.connection);
  if (auto const parsed = parseCommandLine(app, arguments); !parsed) return parsed.error();

  constexpr std::int64_t kLeastNs = 1'000'000'000, kMostNs = 3'600 * kLeastNs;
  if (options.intervalNs < kLeastNs || options.intervalNs > kMostNs)
    return wrongUsage(kCommand, "--interval: from 1s to 1h");
  options.request.set_encoding(gnmi::PROTO);
  options.request.mutable_prefix()->set_target(options.connection.target);
  options.request.add_path()->add_elem()->set_name("ondra-agent");
  return options;
}

Kstd::Result<CapabilitiesOptions, EarlyExit>
CapabilitiesOptions::parse(std::vector<std::string> const& arguments) {
  CLI::App app("Prints what the server can do.", "ondra-agent capabilities");
  CapabilitiesOptions options;
  app.add_flag("--json", options.isJson, "as a JSON object");
  connectionOptions(app, options.connection);
  if (auto const parsed = parseCommandLine(app, arguments); !parsed) return parsed.error();
  return options;
}

} // namespace Agent
