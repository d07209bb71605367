// Agent::Server: gRPC around the gNMI service: TLS, health, reflection, limits, the end. Connections come
// from an `Acceptor`.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/model/Schema.h"
#include "agent/service/Acceptor.h"
#include "agent/service/ListenAddress.h"
#include "agent/service/Tls.h"

namespace grpc {
class Server;
} // namespace grpc

namespace Agent {

class Audit;
class Gate;
class GnmiService;
class Runtime;
struct Tree;

// Serves from being made to `drain` or destruction. Made and drained by one thread; the runtime's loop must
// be running when calls come in, and outlives it.
class Server {
public:
  // Who may open a socket: its mode, and the group that it is given; none: the process's own.
  struct SocketAccess {
    std::uint32_t mode = 0600;
    std::optional<std::uint32_t> group = std::nullopt;
  };
  struct Options {
    std::vector<ListenAddress> listen;
    ServerSecurity security;
    std::shared_ptr<Gate> gate; // null: everybody may call, and do everything
    ConnectionLimits connections = {};
    Writer writer = Writer::Client; // of the Sets that come in
    Audit* audit = nullptr;         // outlives the server
    // Of sockets for providers: what they may do is for those who may open them.
    SocketAccess socket = {};
  };

  // The error names the address and why it cannot be listened on.
  [[nodiscard]] static Kstd::Result<std::unique_ptr<Server>, std::string> start(Options const& options,
                                                                                Runtime& runtime);
  ~Server(); // drains, with no patience
  Server(Server const&) = delete;
  Server& operator=(Server const&) = delete;

  // Where it listens, with the ports that were chosen for 0.
  [[nodiscard]] std::vector<ListenAddress> const& addresses() const noexcept { return addresses_; }

  // Health says not serving, new calls are refused, streams end with UNAVAILABLE, calls that run are waited
  // for, for so long at most; what is left then is cancelled. Returns when no call is left. Needs the
  // runtime's loop.
  void drain(std::int64_t patienceNs);

private:
  explicit Server(Runtime& runtime);
  [[nodiscard]] Kstd::Result<void, std::string> listen(Options const& options);

  Runtime& runtime_;
  std::unique_ptr<GnmiService> service_;
  std::vector<ListenAddress> addresses_;
  std::unique_ptr<grpc::Server> server_;
  std::unique_ptr<Acceptor> acceptor_; // stops before gRPC does
};

// Enters the server in the model: /system/grpc-servers/grpc-server[name]. Scheduler thread.
void serverFactsIs(Tree const& tree, std::string const& name, std::vector<ListenAddress> const& addresses,
                   bool isSecure);

} // namespace Agent
