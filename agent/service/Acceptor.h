// Agent::Acceptor: accepts connections and hands them to gRPC, which would stop accepting for good once
// descriptors run out, lets peers begin handshakes without end and has no limits for each of them.
//
// 1. A connection counts from being accepted until gRPC, or this object, has shut it down: a second
//    descriptor of it tells when, because gRPC shuts a socket down before it closes it. With the second one
//    it can be shut down at any time, whatever has become of the first.
// 2. gRPC gets a connection once it has opened as its protocol begins. Until then it costs a descriptor, and
//    may take `handshakeNs`.
// 3. At most `handshakes` connections have not got further than that, or, with TLS, than the server's answer:
//    when there is one more, the oldest of the place that has the most of them makes way. So a newcomer who
//    speaks gets in, whoever else is silent.
// 4. Beyond `connections`, and `connectionsPerPeer` of one place, a connection is closed as soon as it is
//    accepted.
// 5. Before a call's credentials can be asked for, gRPC keeps for a peer what he likes: calls that are reset
//    as soon as they begin, header fields without end. When memory runs short (`MemoryGuard`), who has sent
//    the most since the last look is shut down, and his place refused for a second: by the time that he is
//    found out, one who comes back at once has made gRPC hold as much again. Of Unix sockets it cannot be told
//    how much came.
// 6. One descriptor is held back: when there is no other, it is given up for a moment to accept and close.
//    When even that does not help, accepting pauses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "agent/service/Listener.h"
#include "agent/service/LocalUsers.h"
#include "agent/service/MemoryGuard.h"

namespace grpc::experimental {
class ExternalConnectionAcceptor;
} // namespace grpc::experimental

namespace Tovak {
class Clock;
} // namespace Tovak

namespace Agent {

struct ConnectionLimits {
  std::size_t connections = 2048;
  std::size_t connectionsPerPeer =
      1024; // of one IPv4 address or /64 network of IPv6; Unix sockets have no peers
  std::size_t handshakes = 256;
  std::int64_t handshakeNs = 10'000'000'000;
  std::size_t memoryRoom = std::size_t{1}
                           << 30; // bytes that may come on top of what the process has at the start
};

// Of so many connections those that there are descriptors for, two for each; raises the process's own limit
// of them as far as it may.
[[nodiscard]] std::size_t connectionsThatFit(std::size_t connections);

// Has a thread of its own, from `start` to `stop`. `start` and `stop` are one thread's. The clock outlives
// it.
class Acceptor {
public:
  using Grpc = grpc::experimental::ExternalConnectionAcceptor;
  Acceptor(std::vector<Listener> listeners, ConnectionLimits const& limits, bool isTls, Tovak::Clock& clock);
  ~Acceptor(); // stops
  Acceptor(Acceptor const&) = delete;
  Acceptor& operator=(Acceptor const&) = delete;

  // `grpc` takes connections from now on, until `stop`; those of Unix sockets `users`, where there are any.
  void start(std::unique_ptr<Grpc> grpc, std::unique_ptr<LocalUsers> users = nullptr);
  // Nobody listens any more. Connections that gRPC has stay its own.
  void stop();

private:
  struct Place {
    std::size_t connections = 0;
    std::size_t handshakes = 0;
  };
  using Places = std::map<std::string, Place>;
  using Id = std::uint64_t;
  struct Connection {
    Id id;
    int fd; // the second one, once gRPC has the first
    int listener;
    Places::iterator place;
    bool hasPeer; // an address, that is
    std::int64_t sinceNs;
    std::string said;         // of its opening
    std::uint64_t heard = 0;  // bytes, when gRPC got it
    std::uint64_t looked = 0; // bytes, when memory was looked at
    bool isGrpcs = false;
    bool isSettled = false; // no handshake any more
  };
  using Connections = std::list<Connection>;

  void run();
  [[nodiscard]] int timeoutMs() const;
  void handle(Id id, std::uint32_t events);
  void acceptFrom(Listener const& listener);
  // Whether there may be more to accept.
  [[nodiscard]] bool acceptOne(Listener const& listener);
  [[nodiscard]] bool outOfDescriptors(Listener const& listener);
  void accepted(int fd, std::string const& place, bool hasPeer, Listener const& listener);
  // Whether there is more to wait for; the connection may have gone.
  bool read(Connections::iterator connection);
  void handOver(Connections::iterator connection);
  void makeWay();
  [[nodiscard]] bool hasGotFurther(Connection const& connection) const;
  void handshakeEnds(Connections::iterator connection);
  void overdueEnd();
  void memoryLook();
  [[nodiscard]] bool greediestEnd(bool isMeant);
  [[nodiscard]] bool isRefused(std::string const& place);
  void closeNow(Connections::iterator connection);
  void pausedIs(bool isPaused);
  void watch(int fd, Id id, std::uint32_t events);

  std::vector<Listener> listeners_;
  ConnectionLimits const limits_;
  bool const isTls_;
  Tovak::Clock& clock_;
  std::unique_ptr<Grpc> grpc_;
  std::unique_ptr<LocalUsers> users_;
  std::thread thread_;
  int const epoll_;
  int const wake_;                 // written to end
  int reserve_;                    // see 6
  std::int64_t pausedUntilNs_ = 0; // 0: not paused
  Id nextId_;
  Places places_;
  Connections handshakes_; // by age; see 3
  Connections settled_;
  std::unordered_map<Id, Connections::iterator> byId_;
  std::unordered_map<std::string, std::int64_t> refused_; // places, until when; see 5
  bool ends_ = false;
  MemoryGuard guard_;
  std::int64_t lookedNs_ = 0;
  std::int64_t rankedNs_ = 0; // who has sent how much
};

} // namespace Agent
