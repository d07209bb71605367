// gRPC's settings with their reasons, start and drain, and what the model tells of the server itself.
#include "agent/service/Server.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/health_check_service_interface.h>
#include <grpcpp/resource_quota.h>
#include <grpcpp/server_builder.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

#include "agent/model/System.h"
#include "agent/model/TextRules.h"
#include "agent/model/Tree.h"
#include "agent/service/GnmiService.h"
#include "agent/service/LibraryLogs.h"
#include "agent/service/Runtime.h"

namespace Agent {
namespace {

constexpr int kSecondMs = 1'000;
constexpr std::size_t kGrpcBytes = std::size_t{128} << 20; // for connections, on top of the budget

void prepareGrpc() {
  static bool const once = [] {
    libraryLogsToTraces();
    grpc::EnableDefaultHealthCheckService(true);
    grpc::reflection::InitProtoReflectionServerBuilderPlugin();
    return true;
  }();
  static_cast<void>(once);
}

void limitsIs(grpc::ServerBuilder& builder, Limits const& limits, ConnectionLimits const& connections) {
  builder.SetMaxReceiveMessageSize(static_cast<int>(limits.messageBytes));
  builder.SetMaxSendMessageSize(-1);
  // Of TLS, and until the client's settings have come.
  builder.AddChannelArgument(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS,
                             static_cast<int>(connections.handshakeNs / 1'000'000));
  // Who has no calls comes again when he has some.
  builder.AddChannelArgument(GRPC_ARG_MAX_CONNECTION_IDLE_MS, 600 * kSecondMs);
  // Collectors ping as often as every 10 s, also while a stream says nothing: the default policy would end
  // such connections.
  builder.AddChannelArgument(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, 5 * kSecondMs);
  builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
  // A peer that vanished without a word is noticed.
  builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, 60 * kSecondMs);
  builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, 20 * kSecondMs);
  builder.AddChannelArgument(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
  // Beyond what Subscribe calls may be: those are refused with a status and a text.
  builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, static_cast<int>(limits.streams + 1'024));
}

// While this lives, files are made without these permissions; -1: as ever.
class ModeMask {
public:
  explicit ModeMask(int mask) : isSet_(mask >= 0), old_(isSet_ ? ::umask(static_cast<mode_t>(mask)) : 0) {}
  ~ModeMask() {
    if (isSet_) ::umask(old_);
  }
  ModeMask(ModeMask const&) = delete;
  ModeMask& operator=(ModeMask const&) = delete;

private:
  bool const isSet_;
  mode_t const old_;
};

// Else `errno` says why not.
bool isOpenedTo(Server::SocketAccess const& who, ListenAddress const& address) {
  char const* const path = address.host.c_str();
  auto const nobodyElse = static_cast<uid_t>(-1);
  return (!who.group || ::chown(path, nobodyElse, *who.group) == 0) && ::chmod(path, who.mode) == 0;
}

gpr_timespec fromNow(std::int64_t ns) {
  return gpr_time_add(gpr_now(GPR_CLOCK_REALTIME), gpr_time_from_nanos(ns, GPR_TIMESPAN));
}

} // namespace

Kstd::Result<std::unique_ptr<Server>, std::string> Server::start(Options const& options, Runtime& runtime) {
  prepareGrpc();
  std::unique_ptr<Server> server(new Server(runtime));
  server->service_ = std::make_unique<GnmiService>(runtime, options.gate, options.writer, options.audit);
  if (auto const listens = server->listen(options); !listens) return Kstd::Err(listens.error());
  return server;
}

Kstd::Result<void, std::string> Server::listen(Options const& options) {
  std::vector<Listener> listeners;
  // Its owner alone until it is given to others.
  bool const isForProviders = options.writer == Writer::Provider;
  ModeMask const mask(isForProviders ? 0177 : -1);
  for (ListenAddress const& address : options.listen) {
    auto made = Listener::at(address);
    if (!made) return Kstd::Err(fmt::format("cannot listen on {}: {}", address.text(), made.error()));
    if (isForProviders && !isOpenedTo(options.socket, address))
      return Kstd::Err(fmt::format("{} cannot be given to its group and mode: {}", address.text(),
                                   std::generic_category().message(errno)));
    addresses_.push_back(made->front().address());
    std::ranges::move(*made, std::back_inserter(listeners));
  }
  grpc::ServerBuilder builder;
  limitsIs(builder, runtime_.context().limits(), options.connections);
  builder.RegisterService(service_.get());
  auto grpcs = builder.experimental().AddExternalConnectionAcceptor(
      grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD, options.security.credentials);
  // With TLS certificates say who calls.
  bool const hasUsers =
      !options.security.isSecure && std::ranges::any_of(options.listen, &ListenAddress::isUnix);
  auto users = hasUsers ? std::make_unique<LocalUsers>(builder) : nullptr;
  server_ = builder.BuildAndStart();
  if (!server_) return Kstd::Err(std::string("gRPC does not start"));
  server_->GetHealthCheckService()->SetServingStatus(gnmi::gNMI::service_full_name(), true);
  ConnectionLimits connections = options.connections;
  connections.memoryRoom = runtime_.context().memory().whole->limit() + kGrpcBytes;
  acceptor_ = std::make_unique<Acceptor>(std::move(listeners), connections, options.security.isSecure,
                                         runtime_.context().clock());
  acceptor_->start(std::move(grpcs), std::move(users));
  return {};
}

Server::Server(Runtime& runtime) : runtime_(runtime) {}

Server::~Server() { drain(0); }

void Server::drain(std::int64_t patienceNs) {
  if (!server_) return;
  server_->GetHealthCheckService()->SetServingStatus(false);
  service_->closedIs();
  acceptor_->stop();
  runtime_.context().scheduler()->post([&calls = runtime_.calls()] {
    calls.end({grpc::StatusCode::UNAVAILABLE, "the agent is going down"});
  });
  server_->Shutdown(fromNow(patienceNs));
  server_->Wait();
  server_.reset();
}

void serverFactsIs(Tree const& tree, std::string const& name, std::vector<ListenAddress> const& addresses,
                   bool isSecure) {
  GrpcServerState& state =
      *tree.system->grpcServers->entryIs(&GrpcServers::grpcServer, Kel::String(name))->state;
  state.leafIs(&GrpcServerState::services, {GrpcService::Gnmi});
  state.leafIs(&GrpcServerState::enable, true);
  state.leafIs(&GrpcServerState::transportSecurity, isSecure);
  std::vector<Kel::String> hosts;
  bool isFirst = true;
  for (ListenAddress const& address : addresses) {
    if (address.isUnix) continue;
    if (std::exchange(isFirst, false)) state.leafIs(&GrpcServerState::port, address.port);
    if (listenAddress().check(address.host)) hosts.emplace_back(address.host); // a name is no address
  }
  state.leafIs(&GrpcServerState::listenAddresses, hosts);
}

} // namespace Agent
