// ondra-agent: this machine over gNMI, and a client for people. Puts the parts together, and nothing else.
#include <fmt/format.h>

#include <array>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kel/Dir.h"
#include "Kstd/Version.h"
#include "Tovak/DebugHandler.h"
#include "agent/client/Commands.h"
#include "agent/collect/Collectors.h"
#include "agent/collect/ConfigApplier.h"
#include "agent/collect/LinkBefore.h"
#include "agent/context/Memory.h"
#include "agent/data/SetRecord.h"
#include "agent/data/SetRestore.h"
#include "agent/data/SetRun.h"
#include "agent/model/Figures.h"
#include "agent/options/Console.h"
#include "agent/service/AccessCommand.h"
#include "agent/service/Audit.h"
#include "agent/service/Gate.h"
#include "agent/service/Runtime.h"
#include "agent/service/SelfReport.h"
#include "agent/service/ServeOptions.h"
#include "agent/service/Server.h"
#include "agent/service/ServiceManager.h"
#include "agent/service/Signals.h"
#include "agent/store/ConfigStore.h"
#include "agent/synthetic/Synthetic.h"
#include "agent/yang/Constraints.h"
#include "agent/yang/PathsCommand.h"
#include "agent/yang/YangData.h"
#include "agent/yang/YangModel.h"

namespace {

constexpr std::int64_t kFillNs = 5'000'000'000; // the machine's first values are waited for, at most
constexpr std::int64_t kFillStepNs = 5'000'000;
constexpr std::int64_t kPatienceNs = 5'000'000'000; // with calls that run when the agent is to end

int cannotStart(std::string const& why) {
  Agent::say(stderr, fmt::format("ondra-agent serve: {}\n", why));
  return Agent::ExitCode::start;
}

// Loads the modules of the options and tells what they say; the text is an error's.
Kstd::Result<std::unique_ptr<Agent::YangModel>, std::string> yangModelOf(Agent::ServeOptions const& options) {
  auto model = Agent::YangModel::load({.folders = options.yangFolders, .modules = options.yangModules});
  if (!model) return model;
  for (std::string const& note : (*model)->modules().notes())
    Agent::say(stderr, fmt::format("ondra-agent serve: note: {}\n", note));
  std::vector<std::string> const& leftOut = (*model)->types().leftOut;
  if (options.checksOnly) {
    for (std::string const& each : leftOut)
      Agent::say(stdout, fmt::format("left out: {}\n", each));
  } else if (!leftOut.empty()) {
    Agent::say(stderr, fmt::format("ondra-agent serve: note: {} nodes of the modules are left out; "
                                   "--check-config tells which and why\n",
                                   leftOut.size()));
  }
  return model;
}

// Puts the data of the options into the model. What Sets are held to then; null for nothing.
Kstd::Result<std::unique_ptr<Agent::Constraints>, std::string> fillYang(Agent::YangModel const& model,
                                                                        Agent::ServeOptions const& options) {
  auto filled = Agent::yangDataInto(*Kel::globalDir(), model, options.dataFiles, options.checksConstraints);
  if (!filled) return Kstd::Err(filled.error());
  for (std::string const& note : filled->notes)
    Agent::say(stderr, fmt::format("ondra-agent serve: note: {}\n", note));
  if (filled->leftOut > 0)
    Agent::say(stderr,
               fmt::format("ondra-agent serve: note: {} nodes of the data are left out\n", filled->leftOut));
  std::unique_ptr<Agent::Constraints> constraints;
  if (options.checksConstraints)
    constraints = std::make_unique<Agent::Constraints>(model, std::move(filled->configuration));
  return constraints;
}

void warn(std::string const& what) {
  Agent::say(stderr, fmt::format("ondra-agent serve: warning: configuration: {}\n", what));
}

// What feeds the model. Goes before the runtime; its parts belong to the scheduler thread.
struct Sources {
  Sources(Agent::Runtime& theRuntime, Agent::ServeOptions const& options) : runtime(theRuntime) {
    Agent::Context& context = runtime.context();
    if (options.syntheticLeaves > 0) {
      auto const ports = Agent::syntheticIn(*Kel::globalDir(), options.syntheticLeaves);
      if (options.syntheticRate > 0)
        changes =
            std::make_unique<Agent::SyntheticChanges>(context.scheduler(), *ports, options.syntheticRate);
    }
    if (options.appliesConfig) {
      applier = std::make_unique<Agent::ConfigApplier>(context.scheduler());
      runtime.sets().carrierIs(applier.get());
    }
    if (!options.servesMachine) return;
    Agent::Collectors::Options collecting;
    collecting.periodNs = options.samplePeriodNs;
    collecting.linkHasCome = [this](std::string const& link) { runtime.sets().linkIs(link, warn); };
    collectors = std::make_unique<Agent::Collectors>(context.scheduler(), context.tree(), collecting);
    collectors->start();
    // Who asks first is not to find the machine half there. The scheduler is driven from here, as its thread
    // does not run yet.
    Tovak::Clock const& clock = context.clock();
    std::int64_t const deadline = clock.monotonicNs() + kFillNs;
    while (!collectors->isFilled() && clock.monotonicNs() < deadline)
      context.scheduler()->runUntil(clock.monotonicNs() + kFillStepNs);
  }
  ~Sources() { runtime.sets().carrierIs(nullptr); }
  Sources(Sources const&) = delete;
  Sources& operator=(Sources const&) = delete;

  Agent::Runtime& runtime;
  std::unique_ptr<Agent::SyntheticChanges> changes;
  std::unique_ptr<Agent::ConfigApplier> applier;
  std::unique_ptr<Agent::Collectors> collectors;
};

// The folder of `--config-store`, opened; null without one.
struct Stored {
  std::unique_ptr<Agent::ConfigStore> store;
  Agent::ConfigChange unconfirmed = {}; // a change that does not hold

  // The request that leads back from it; empty: none does.
  [[nodiscard]] std::string wayBack() const {
    for (auto const& [place, value] : unconfirmed.values)
      if (place == Agent::kWayBack) return value.value_or("");
    return {};
  }
};
Kstd::Result<Stored, std::string> storeOf(std::string const& folder) {
  if (folder.empty()) return Stored();
  auto const failed = [](std::string const& why) { return Kstd::Err("--config-store: " + why); };
  auto files = Agent::Files::at(folder);
  if (!files) return failed(files.error());
  auto store = std::make_unique<Agent::ConfigStore>(std::move(*files));
  auto found = store->open();
  if (!found) return failed(fmt::format("{}: {}", folder, found.error()));
  auto const say = [](std::string const& what) {
    Agent::say(stderr, fmt::format("ondra-agent serve: configuration: {}\n", what));
  };
  say(found->isNew
          ? fmt::format("none yet in {}", folder)
          : fmt::format("{} values from {}, as of change {}", Agent::inOrder(store->journal().map()).size(),
                        folder, store->journal().number()));
  if (found->tornBytes > 0)
    say(fmt::format("the last write was cut off ({} bytes): it is the configuration before that",
                    found->tornBytes));
  if (found->wasProvisional) say("the last change was not confirmed: it is the configuration before that");
  return Stored{std::move(store), std::move(found->unconfirmed)};
}

// Brings the model to it, and the machine where that is asked for.
void restore(Agent::Runtime& runtime, Stored const& stored, Agent::ConfigApplier* applier) {
  Agent::SetRuns& sets = runtime.sets();
  Agent::ConfigMap const map = stored.store->journal().map();
  for (std::string const& lost : Agent::restore(sets, map))
    warn("left out: " + lost);
  Agent::LinkBefores befores = Agent::beforesIn(map);
  if (!stored.unconfirmed.isEmpty()) {
    if (auto const back = Agent::goBack(sets, stored.wayBack()); !back) warn(back.error());
    for (auto const& [link, text] : Agent::beforesIn(stored.unconfirmed))
      befores[link] = Agent::mergedBefore(befores[link], text);
    Agent::ConfigChange remembered; // the way has been gone
    Agent::beforesInto(befores, remembered);
    stored.store->takeBack(std::move(remembered), nullptr);
  }
  sets.storeIs(stored.store.get());
  if (applier == nullptr) return;
  sets.wantedIs(map);
  std::set<std::string> links = sets.wantedLinks();
  for (auto const& [link, text] : befores)
    links.insert(link);
  applier->beforesAre(std::move(befores));
  for (std::string const& refused : Agent::carryLinks(sets, links))
    warn(refused);
}

void announce(Agent::Server const& server, Agent::ServerSecurity const& security) {
  for (Agent::ListenAddress const& address : server.addresses()) {
    Agent::say(stderr, fmt::format("ondra-agent serve: listening on {} ({})\n", address.text(),
                                   !security.isSecure     ? "plaintext"
                                   : security.asksClients ? "TLS, client certificates required"
                                                          : "TLS"));
  }
}

// All of it, or nothing.
void readAnew(Agent::ServeOptions const& options, Agent::Gate& gate,
              std::optional<Agent::TlsCredentials>& credentials) {
  auto terms = Agent::Terms::read(options);
  if (!terms) {
    Agent::say(stderr, fmt::format("ondra-agent serve: nothing is read anew: {}\n", terms.error()));
    return;
  }
  std::string said = fmt::format("ondra-agent serve: read anew: {}", terms->text());
  for (std::string const& warning : terms->keys ? terms->keys->warnings : std::vector<std::string>())
    said += fmt::format("; warning: {}", warning);
  if (credentials) credentials->keysAre(*terms->keys);
  if (std::size_t const ended = gate.termsAre(std::move(*terms)); ended > 0)
    said += fmt::format("; {} streams have ended", ended);
  Agent::say(stderr, said + "\n");
}

int serve(std::vector<std::string> const& arguments) {
  Agent::Signals signals; // before there are threads: gRPC starts some with the first credentials
  auto options = Agent::ServeOptions::parse(arguments);
  if (!options) {
    Agent::say(options.error().code == Agent::ExitCode::ok ? stdout : stderr, options.error().text);
    return options.error().code;
  }
  if (!options->trace.empty()) { // an empty one would take back what the environment says
    if (auto const traced = Tovak::Platform::traceIs(options->trace); !traced) {
      Agent::say(stderr, fmt::format("ondra-agent serve: --trace: {}\n", traced.error()));
      return Agent::ExitCode::usage;
    }
  }
  if (!options->yangFolders.empty() && !options->servesMachine) Agent::machineIsLeftOut();
  Agent::declareTypes();
  Agent::declareFigures();
  if (options->syntheticLeaves > 0) Agent::declareSynthetic();
  std::unique_ptr<Agent::YangModel> yang; // what it has made refers to it
  if (!options->yangFolders.empty()) {
    auto model = yangModelOf(*options);
    if (!model) return cannotStart(model.error());
    yang = std::move(*model);
  }
  auto terms = Agent::Terms::read(*options);
  if (!terms) return cannotStart(terms.error());
  std::unique_ptr<Agent::Audit> audit; // outlives the server and its calls
  if (!options->audit.file.empty()) {
    auto made = Agent::Audit::of(options->audit, Tovak::SystemClock::instance());
    if (!made) return cannotStart("--audit: " + made.error());
    audit = std::move(*made);
  }
  if (options->checksOnly) {
    if (yang)
      if (auto const filled = fillYang(*yang, *options); !filled) return cannotStart(filled.error());
    Agent::say(stdout, "configuration ok\n");
    return Agent::ExitCode::ok;
  }

  if (std::size_t const fit = Agent::connectionsThatFit(options->connections.connections);
      fit < std::exchange(options->connections.connections, fit))
    Agent::say(stderr,
               fmt::format("ondra-agent serve: warning: descriptors for {} connections at most\n", fit));

  auto const store = storeOf(options->configStore);
  if (!store) return cannotStart(store.error());
  std::unique_ptr<Agent::Constraints> constraints; // outlives the Sets
  Agent::Runtime runtime({.limits = options->limits});
  if (yang) {
    auto made = fillYang(*yang, *options);
    if (!made) return cannotStart(made.error());
    constraints = std::move(*made);
    runtime.sets().rulesIs(constraints.get());
  }
  std::optional<Agent::TlsCredentials> credentials;
  std::vector<std::string> const warnings = terms->keys ? terms->keys->warnings : std::vector<std::string>();
  if (terms->keys) credentials.emplace(*terms->keys);
  auto const security = credentials ? Agent::securityOf(*credentials) : Agent::plaintext();
  auto const gate = std::make_shared<Agent::Gate>(std::move(*terms), Tovak::SystemClock::instance());
  Sources sources(runtime, *options);
  if (store->store) restore(runtime, *store, sources.applier.get());
  Agent::SelfReport const report(runtime);
  runtime.context().start();
  // Who hears that clients are served can count on the device's own processes being so, too: they come first.
  Agent::ServerSecurity const local = Agent::plaintext();
  std::unique_ptr<Agent::Server> providers;
  if (!options->providers.empty()) {
    auto listening = Agent::Server::start({.listen = options->providers,
                                           .security = local,
                                           .gate = nullptr,
                                           .connections = options->connections,
                                           .writer = Agent::Writer::Provider,
                                           .socket = {options->providerMode, options->providerGroup}},
                                          runtime);
    if (!listening) {
      runtime.context().stop();
      return cannotStart(listening.error());
    }
    providers = std::move(*listening);
  }
  auto server = Agent::Server::start({.listen = options->listen,
                                      .security = security,
                                      .gate = gate,
                                      .connections = options->connections,
                                      .audit = audit.get()},
                                     runtime);
  if (!server) {
    runtime.context().stop();
    return cannotStart(server.error());
  }
  for (std::string const& warning : warnings)
    Agent::say(stderr, fmt::format("ondra-agent serve: warning: {}\n", warning));
  announce(**server, security);
  if (providers) announce(*providers, local);
  runtime.context().scheduler()->post(
      [&tree = runtime.context().tree(), addresses = (*server)->addresses(), isSecure = security.isSecure] {
        Agent::serverFactsIs(tree, "ondra-agent", addresses, isSecure);
      });
  {
    Agent::ServiceManager manager(runtime.context(), runtime.calls());
    while (signals.await() == Agent::Signals::Wish::ReadAnew)
      manager.whileReading([&] { readAnew(*options, *gate, credentials); });
  }
  if (providers) providers->drain(kPatienceNs);
  (*server)->drain(kPatienceNs);
  runtime.context().stop();
  return Agent::ExitCode::ok;
}

int access(std::vector<std::string> const& arguments) {
  std::unique_ptr<Agent::YangModel> yang;
  return Agent::accessCommand(
      arguments, [&yang](auto const& folders, auto const& modules) -> Kstd::Result<void, std::string> {
        auto model = Agent::YangModel::load({.folders = folders, .modules = modules});
        if (!model) return Kstd::Err(model.error());
        yang = std::move(*model);
        return {};
      });
}

struct Command {
  std::string_view name;
  std::string_view what;
  int (*run)(std::vector<std::string> const& arguments);
};
constexpr std::array<Command, 8> kCommands = {{
    {"serve", "serve this machine over gNMI", serve},
    {"watch", "print updates as they come", Agent::watchCommand},
    {"get", "print what is there", Agent::getCommand},
    {"set", "change the configuration", Agent::setCommand},
    {"top", "show what an agent does, and for whom", Agent::topCommand},
    {"capabilities", "print what a server can do", Agent::capabilitiesCommand},
    {"access", "tell what rules permit", access},
    {"paths", "print what modules would be served as", Agent::pathsCommand},
}};

int help(std::FILE* to, int code) {
  std::string text = "usage: ondra-agent COMMAND [OPTION...]\n\n";
  for (Command const& command : kCommands)
    text += fmt::format("  {:<14}{}\n", command.name, command.what);
  Agent::say(
      to, text + "\n'ondra-agent COMMAND --help' tells its options; 'ondra-agent --version' the version.\n");
  return code;
}

int run(std::vector<std::string> const& arguments) {
  if (arguments.empty()) return help(stderr, Agent::ExitCode::usage);
  for (Command const& command : kCommands)
    if (arguments.front() == command.name) return command.run({arguments.begin() + 1, arguments.end()});
  if (arguments.front() == "--help" || arguments.front() == "-h") return help(stdout, Agent::ExitCode::ok);
  if (arguments.front() == "--version") {
    Agent::say(stdout, fmt::format("ondra-agent {}\n", Kstd::libraryVersion()));
    return Agent::ExitCode::ok;
  }
  Agent::say(stderr, fmt::format("ondra-agent: no command '{}'\n", arguments.front()));
  return help(stderr, Agent::ExitCode::usage);
}

} // namespace

int main(int argc, char** argv) {
  Agent::HeapTrimmer::heapIsEven();
  Agent::standardStreamsAreOpen();
  return Agent::codeAfterPrinting(run({argv + 1, argv + argc}));
}
