// How options become credentials (plaintext, verified TLS, TLS to whoever is there), and the wait until the
// channel is connected.
#include "agent/client/Connection.h"

#include <fmt/format.h>
#include <grpc/support/log.h>
#include <grpcpp/create_channel.h>
#include <grpcpp/security/credentials.h>
#include <grpcpp/security/tls_certificate_provider.h>
#include <grpcpp/security/tls_credentials_options.h>

#include <CLI/CLI.hpp>
#include <array>
#include <fstream>
#include <sstream>

#include "agent/options/CommandLine.h"

namespace Agent {
namespace {

using Credentials = std::shared_ptr<grpc::ChannelCredentials>;
using PemOrError = Kstd::Result<std::string, std::string>;

PemOrError pemOf(std::string const& path) {
  if (path.empty()) return std::string();
  std::ifstream file(path);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) return Kstd::Err(fmt::format("cannot read {}", path));
  return text.str();
}

// Encrypted, to whoever is there.
Credentials unverified(grpc::SslCredentialsOptions const& pem) {
  grpc::experimental::TlsChannelCredentialsOptions options;
  options.set_verify_server_certs(false);
  options.set_check_call_host(false);
  options.set_certificate_verifier(std::make_shared<grpc::experimental::NoOpCertificateVerifier>());
  if (!pem.pem_cert_chain.empty()) {
    options.set_certificate_provider(std::make_shared<grpc::experimental::StaticDataCertificateProvider>(
        std::vector<grpc::experimental::IdentityKeyCertPair>{{pem.pem_private_key, pem.pem_cert_chain}}));
    options.watch_identity_key_cert_pairs();
  }
  return grpc::experimental::TlsCredentials(options);
}

Kstd::Result<Credentials, std::string> credentialsOf(ConnectionOptions const& options) {
  if (options.isPlaintext) return grpc::InsecureChannelCredentials();
  PemOrError const ca = pemOf(options.ca);
  PemOrError const certificate = pemOf(options.certificate);
  PemOrError const key = pemOf(options.key);
  for (PemOrError const* pem : {&ca, &certificate, &key})
    if (!*pem) return Kstd::Err(pem->error());
  grpc::SslCredentialsOptions const pem{
      .pem_root_certs = ca.value(), .pem_private_key = key.value(), .pem_cert_chain = certificate.value()};
  return options.skipsVerification ? unverified(pem) : grpc::SslCredentials(pem);
}

} // namespace

void connectionOptions(CLI::App& app, ConnectionOptions& options) {
  app.add_option("-a,--address", options.address, "the server: HOST:PORT")
      ->type_name("ADDRESS")
      ->capture_default_str();
  CLI::Option* const plain = app.add_flag("--insecure", options.isPlaintext, "plaintext instead of TLS");
  app.add_option("--ca", options.ca, "authorities to trust instead of the system's, PEM")
      ->type_name("FILE")
      ->excludes(plain);
  CLI::Option* const certificate =
      app.add_option("--cert", options.certificate, "the client's certificate, PEM")
          ->type_name("FILE")
          ->excludes(plain);
  certificate->needs(
      app.add_option("--key", options.key, "its key, PEM")->type_name("FILE")->needs(certificate));
  app.add_option("--server-name", options.serverName, "the name to expect in the server's certificate")
      ->type_name("NAME")
      ->excludes(plain);
  app.add_flag("--skip-verify", options.skipsVerification, "trust whatever certificate the server has")
      ->excludes(plain);
  app.add_option("-u,--user", options.user, "user name")->type_name("NAME");
  app.add_option("-p,--password", options.password, "password; better given in the environment")
      ->type_name("TEXT")
      ->envname("ONDRA_AGENT_PASSWORD");
  app.add_option("--target", options.target, "the target in the prefix of requests")->type_name("NAME");
  durationOption(app, "--timeout", options.timeoutNs, "how long to wait for the connection (10s)");
}

Kstd::Result<std::unique_ptr<Stub>, std::string> connect(ConnectionOptions const& options) {
  // What fails is told by the status; gRPC's own lines say it twice.
  gpr_set_log_function([](gpr_log_func_args*) {});
  auto const credentials = credentialsOf(options);
  if (!credentials) return Kstd::Err(credentials.error());
  grpc::ChannelArguments arguments;
  arguments.SetMaxReceiveMessageSize(-1);
  // Somebody waits; do not let them wait longer than the server makes them.
  arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 100);
  arguments.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 1'000);
  arguments.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 1'000);
  arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
  if (!options.serverName.empty()) arguments.SetSslTargetNameOverride(options.serverName);
  auto const channel = grpc::CreateCustomChannel(options.address, credentials.value(), arguments);
  gpr_timespec const deadline =
      gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC), gpr_time_from_nanos(options.timeoutNs, GPR_TIMESPAN));
  if (!channel->WaitForConnected(deadline)) {
    return Kstd::Err(
        fmt::format("cannot connect to {} ({})", options.address, options.isPlaintext ? "plaintext" : "TLS"));
  }
  return gnmi::gNMI::NewStub(channel);
}

void contextIs(grpc::ClientContext& context, ConnectionOptions const& options) {
  if (options.user.empty()) return;
  context.AddMetadata("username", options.user);
  context.AddMetadata("password", options.password);
}

std::string statusText(grpc::Status const& status) {
  static constexpr std::array kNames = {
      "OK",        "CANCELLED",      "UNKNOWN",           "INVALID_ARGUMENT",   "DEADLINE_EXCEEDED",
      "NOT_FOUND", "ALREADY_EXISTS", "PERMISSION_DENIED", "RESOURCE_EXHAUSTED", "FAILED_PRECONDITION",
      "ABORTED",   "OUT_OF_RANGE",   "UNIMPLEMENTED",     "INTERNAL",           "UNAVAILABLE",
      "DATA_LOSS", "UNAUTHENTICATED"};
  auto const code = static_cast<std::size_t>(status.error_code());
  return fmt::format("{}: {}", code < kNames.size() ? kNames[code] : "UNKNOWN", status.error_message());
}

} // namespace Agent
