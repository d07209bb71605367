// Agent::LocalUsers: tells calls that come over Unix sockets which user of this machine has connected.
//
// gRPC says nothing of the peer of such a socket, and a call knows of its connection only what the
// credentials of the acceptor say. So each user has an acceptor of his own, whose credentials say his name,
// for as long as the server lives: no connection is ever taken for another user's.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace grpc {
class AuthContext;
class ServerBuilder;
} // namespace grpc

namespace grpc::experimental {
class ExternalConnectionAcceptor;
} // namespace grpc::experimental

namespace Agent {

// Made while the server is built, which is plaintext; then the acceptor's thread's.
class LocalUsers {
public:
  using Grpc = grpc::experimental::ExternalConnectionAcceptor;
  // Those who come later are all one.
  static constexpr std::size_t kUsersMax = 32;
  static constexpr char const* kPrefix = "unix:";

  explicit LocalUsers(grpc::ServerBuilder& builder);
  ~LocalUsers();
  LocalUsers(LocalUsers const&) = delete;
  LocalUsers& operator=(LocalUsers const&) = delete;

  // What takes a connection of a Unix socket. The machine is asked for the user's name when he comes for the
  // first time.
  [[nodiscard]] Grpc& acceptorOf(int fd);

  // "unix:" and the name, or number, of the user on whose connection a call has come; "unix:" where that is
  // not known. Any thread.
  [[nodiscard]] static std::string nameIn(grpc::AuthContext const* context);

private:
  class Teller;
  struct Slot {
    uid_t user;
    std::shared_ptr<Teller> teller;
    std::unique_ptr<Grpc> grpc;
  };
  std::vector<Slot> slots_; // the last one is everybody else's
  std::size_t known_ = 0;   // those in front that have a user
};

} // namespace Agent
