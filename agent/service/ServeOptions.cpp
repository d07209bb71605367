// The options in three groups, then what they must keep together: TLS or --insecure, intervals, budgets.
#include "agent/service/ServeOptions.h"

#include <fmt/format.h>
#include <grp.h>

#include <charconv>
#include <system_error>

#include <CLI/CLI.hpp>

namespace Agent {
namespace {

constexpr char const* kCommand = "ondra-agent serve";
constexpr std::int64_t kMillisecondNs = 1'000'000;
constexpr std::int64_t kHourNs = 3'600'000 * kMillisecondNs;

// What the user wrote, before it is checked.
struct Raw {
  std::vector<std::string> listen = {"127.0.0.1:9339"};
  int insecure = 0;
  bool leavesMachineOut = false;
  bool leavesConstraintsOut = false;
  std::vector<std::string> providers;
  std::string providerMode, providerGroup;
};

void addConnection(CLI::App& app, Raw& raw, ServeOptions& options) {
  app.add_option("--listen", raw.listen,
                 "where to listen: HOST:PORT, [IPv6]:PORT or unix:PATH; may be repeated")
      ->type_name("ADDRESS")
      ->take_all()
      ->capture_default_str();
  app.add_option("--tls-cert", options.tls.certificate, "certificate with its chain, PEM")->type_name("FILE");
  app.add_option("--tls-key", options.tls.key, "its key, PEM")->type_name("FILE");
  app.add_option("--tls-client-ca", options.tls.clientCa,
                 "clients need a certificate that one of these authorities signed, PEM")
      ->type_name("FILE");
  app.add_option("--tls-client-crl", options.tls.clientCrl,
                 "revocation lists of these authorities, PEM: who is on one may call nothing")
      ->type_name("FILE");
  app.add_flag("--insecure", raw.insecure,
               "plaintext; say it twice to listen that way on other than loopback addresses");
  app.add_option("--users", options.usersFile,
                 "who may call: lines NAME:HASH, hashes as of crypt(5), made by 'mkpasswd'")
      ->type_name("FILE");
  app.add_option("--access", options.accessFile,
                 "who may read and write what: rules in JSON; what none of them permits is denied")
      ->type_name("FILE");
  app.add_option(
         "--audit", options.audit.file,
         "write a line of JSON for each Set and each caller who is turned away; 'journal': to journald")
      ->type_name("FILE");
  app.add_flag("--audit-values", options.audit.hasValues, "with the values of Sets");
}

void addLimits(CLI::App& app, Limits& limits, ConnectionLimits& connections) {
  auto const count = [&](char const* name, std::size_t& value, char const* description) {
    app.add_option(name, value, description)
        ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}))
        ->type_name("N")
        ->capture_default_str();
  };
  auto const bytes = [&](char const* name, std::size_t& value, char const* description) {
    app.add_option(name, value, description)
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::size_t{16} << 10, std::size_t{1} << 30))
        ->type_name("BYTES")
        ->capture_default_str();
  };
  count("--max-connections", connections.connections, "connections at a time");
  count("--max-connections-per-peer", connections.connectionsPerPeer,
        "of these, from one address (IPv6: /64 network)");
  count("--max-handshakes", connections.handshakes, "of these, that have not got beyond their handshake");
  durationOption(app, "--handshake-timeout", connections.handshakeNs, "how long a handshake may take (10s)");
  count("--max-streams", limits.streams, "Subscribe calls at a time");
  count("--max-streams-per-peer", limits.streamsPerPeer, "of these, from one address");
  count("--max-subscriptions", limits.subscriptionsPerCall, "subscriptions of one call");
  bytes("--max-message", limits.messageBytes, "size of a request");
  bytes("--max-get", limits.getBytes, "size of the answer to a Get");
  bytes("--max-queue", limits.queueBytes, "what waits for one subscriber, before it is coalesced");
  app.add_option("--memory-budget", limits.memoryBytes,
                 "memory for what clients make the agent keep; 0: half of what it may use, 1 GiB at most")
      ->transform(CLI::AsSizeValue(false))
      ->type_name("BYTES")
      ->capture_default_str();
  durationOption(app, "--sample-floor", limits.sampleFloorNs,
                 "the shortest interval of samples and heartbeats (1s)");
  durationOption(app, "--default-sample", limits.targetDefinedNs,
                 "the interval of what TARGET_DEFINED samples (5s)");
  durationOption(app, "--stuck-after", limits.stuckNs,
                 "how long a subscriber may take nothing before it is ended (30s)");
}

void addModel(CLI::App& app, Raw& raw, ServeOptions& options) {
  durationOption(app, "--machine-period", options.samplePeriodNs, "how often the machine is read (1s)");
  app.add_flag("--no-machine", raw.leavesMachineOut, "leave the machine's values out");
  app.add_flag("--apply-config", options.appliesConfig,
               "carry description, mtu, enabled and addresses of interfaces to the kernel");
  app.add_option("--config-store", options.configStore,
                 "keep what clients configure in this folder, and begin with it")
      ->type_name("DIR");
  app.add_option("--synthetic", options.syntheticLeaves, "serve a generated tree of about N leaves as well")
      ->check(CLI::Range(std::size_t{0}, std::size_t{20'000'000}))
      ->type_name("N");
  app.add_option("--synthetic-rate", options.syntheticRate, "change so many of its counters a second")
      ->check(CLI::Range(std::size_t{0}, std::size_t{200'000}))
      ->type_name("N");
}

void addYang(CLI::App& app, Raw& raw, ServeOptions& options) {
  app.add_option("--yang", options.yangFolders,
                 "serve the modules of YANG in this folder and its subfolders too; may be repeated")
      ->type_name("DIR")
      ->take_all();
  app.add_option(
         "--module", options.yangModules,
         "of these this one alone, with these features ('*': all), and what it needs; may be repeated")
      ->type_name("NAME[:FEATURE,...]")
      ->take_all();
  app.add_option("--data", options.dataFiles,
                 "fill what these modules have from this file, JSON (RFC 7951) or XML; may be repeated")
      ->type_name("FILE")
      ->take_all();
  app.add_flag(
      "--no-constraints", raw.leavesConstraintsOut,
      "take configuration that does not hold as a whole: must, when, mandatory, leafref and the like");
  app.add_option("--provider", raw.providers,
                 "a socket, unix:PATH, for processes of the device: there a Set may write state, too")
      ->type_name("ADDRESS")
      ->take_all();
  app.add_option("--provider-mode", raw.providerMode, "who may open that socket, as chmod has it (600)")
      ->type_name("OCTAL");
  app.add_option("--provider-group", raw.providerGroup, "the group that the socket is given")
      ->type_name("NAME");
}

Kstd::Err<std::string> wrong(std::string what) { return Kstd::Err<std::string>(std::move(what)); }

// Who may open the sockets of providers.
Kstd::Result<void, std::string> completeProviders(Raw const& raw, ServeOptions& options) {
  for (std::string const& text : raw.providers) {
    auto address = ListenAddress::parse(text);
    if (!address) return wrong(fmt::format("--provider: {}", address.error()));
    if (!text.starts_with("unix:"))
      return wrong("--provider: unix:PATH alone, which nobody on the network reaches");
    options.providers.push_back(std::move(*address));
  }
  if (raw.providers.empty() && !(raw.providerMode + raw.providerGroup).empty())
    return wrong("--provider-mode and --provider-group need --provider");
  if (std::string const& mode = raw.providerMode; !mode.empty()) {
    auto const [end, error] =
        std::from_chars(mode.data(), mode.data() + mode.size(), options.providerMode, 8);
    if (error != std::errc() || end != mode.data() + mode.size() || options.providerMode > 0777)
      return wrong(fmt::format("--provider-mode: '{}' is none, such as 660", mode));
  }
  if (!raw.providerGroup.empty()) {
    ::group const* const group = ::getgrnam(raw.providerGroup.c_str());
    if (group == nullptr) return wrong(fmt::format("--provider-group: no group '{}'", raw.providerGroup));
    options.providerGroup = group->gr_gid;
  }
  return {};
}

// The options as a whole; those that follow from others are filled in. The error says what is wrong.
Kstd::Result<void, std::string> complete(Raw const& raw, ServeOptions& options) {
  for (std::string const& text : raw.listen) {
    auto address = ListenAddress::parse(text);
    if (!address) return wrong(fmt::format("--listen: {}", address.error()));
    options.listen.push_back(std::move(*address));
  }
  options.isSecure = !options.tls.certificate.empty();
  options.servesMachine = !raw.leavesMachineOut;
  options.checksConstraints = !raw.leavesConstraintsOut;
  if (options.isSecure == options.tls.key.empty()) return wrong("--tls-cert and --tls-key need each other");
  if (!options.isSecure && !options.tls.clientCa.empty()) return wrong("--tls-client-ca needs --tls-cert");
  if (options.tls.clientCa.empty() && !options.tls.clientCrl.empty())
    return wrong("--tls-client-crl needs --tls-client-ca");
  if (options.isSecure && raw.insecure > 0) return wrong("--insecure contradicts --tls-cert");
  if (!options.isSecure && raw.insecure == 0)
    return wrong("give --tls-cert and --tls-key, or --insecure for plaintext");
  for (ListenAddress const& address : options.listen) {
    if (!options.isSecure && raw.insecure < 2 && !address.isLoopback()) {
      return wrong(
          fmt::format("plaintext on {} is open to others: use TLS, or say --insecure twice", address.text()));
    }
  }
  if (options.limits.sampleFloorNs < kMillisecondNs) return wrong("--sample-floor: at least 1ms");
  if (options.limits.targetDefinedNs < options.limits.sampleFloorNs)
    return wrong("--default-sample: at least the sample floor");
  if (options.samplePeriodNs < 10 * kMillisecondNs) return wrong("--machine-period: at least 10ms");
  if (options.limits.memoryBytes != 0 && options.limits.memoryBytes < std::size_t{8} << 20)
    return wrong("--memory-budget: at least 8MiB");
  if (options.connections.handshakeNs < 100 * kMillisecondNs || options.connections.handshakeNs > kHourNs)
    return wrong("--handshake-timeout: between 100ms and 1h");
  if (options.limits.stuckNs < 10 * kMillisecondNs) return wrong("--stuck-after: at least 10ms");
  if (options.syntheticRate > 0 && options.syntheticLeaves == 0)
    return wrong("--synthetic-rate needs --synthetic");
  if (!options.yangModules.empty() && options.yangFolders.empty()) return wrong("--module needs --yang");
  if (!options.dataFiles.empty() && options.yangFolders.empty()) return wrong("--data needs --yang");
  if (raw.leavesConstraintsOut && options.yangFolders.empty()) return wrong("--no-constraints needs --yang");
  return completeProviders(raw, options);
}

} // namespace

Kstd::Result<ServeOptions, EarlyExit> ServeOptions::parse(std::vector<std::string> const& arguments) {
  CLI::App app("Serves this machine over gNMI until SIGTERM or SIGINT.", kCommand);
  app.allow_config_extras(false);
  app.set_config("--config", "", "read options from this file: lines OPTION = VALUE (TOML)")
      ->type_name("FILE");
  Raw raw;
  ServeOptions options;
  addConnection(app, raw, options);
  addLimits(app, options.limits, options.connections);
  addModel(app, raw, options);
  addYang(app, raw, options);
  app.add_option("--trace", options.trace, "trace levels, as in 'OndraWalker/0-5,AgentGrpc/*'")
      ->type_name("SPEC");
  app.add_flag("--check-config", options.checksOnly, "check options and files, and end")->configurable(false);

  if (auto const parsed = parseCommandLine(app, arguments); !parsed) return parsed.error();
  if (auto const completed = complete(raw, options); !completed)
    return wrongUsage(kCommand, completed.error());
  return options;
}

} // namespace Agent
