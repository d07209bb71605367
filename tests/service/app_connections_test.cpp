// Connections until gRPC has them: who listens where, what opens them, how many there may be, their ends.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>

#include <grpcpp/server_builder.h>

#include "Tovak/Clock.h"
#include "agent/service/Acceptor.h"
#include "agent/service/FirstBytes.h"

namespace Agent {
namespace {

constexpr std::string_view kPreface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n";

TEST(Opening, IsOfItsProtocol) {
  using namespace std::string_literals;
  using enum Opening;
  for (auto const& [bytes, plain, tls] : std::vector<std::tuple<std::string, Opening, Opening>>{
           {"", Begun, Begun},
           {"P", Begun, Wrong},
           {std::string(kPreface.substr(0, 23)), Begun, Wrong},
           {std::string(kPreface) + "\0\0\0\4"s, Whole, Wrong},
           {"GET / HTTP/1.1\r\n", Wrong, Wrong},
           {"\x16", Wrong, Begun},
           {"\x16\3\1\0"s, Wrong, Begun},
           {"\x16\3\1\0\2x"s, Wrong, Begun},
           {"\x16\3\1\0\2xy"s, Wrong, Whole},
           {"\x16\3\1\0\0"s, Wrong, Wrong},
           {"\x16\3\1\x40\1"s, Wrong, Wrong},
           {"\x16\2"s, Wrong, Wrong},
           {"\x15\3\1\0\2xy"s, Wrong, Wrong},
       }) {
    EXPECT_EQ(openingOf(bytes, false), plain) << bytes;
    EXPECT_EQ(openingOf(bytes, true), tls) << bytes;
  }
}

// Takes connections as gRPC does, and ends them when told to.
class Taker final : public Acceptor::Grpc {
public:
  void HandleNewConnection(NewConnectionParameters* given) override {
    std::lock_guard const guard(mutex_);
    fds_.push_back(given->fd);
    taken_.notify_all();
  }
  std::size_t count() {
    std::lock_guard const guard(mutex_);
    return fds_.size();
  }
  // Waits for so many.
  void await(std::size_t count) {
    std::unique_lock guard(mutex_);
    EXPECT_TRUE(taken_.wait_for(guard, std::chrono::seconds(20), [&] { return fds_.size() >= count; }));
  }
  ~Taker() override { endAll(); }
  void endAll() {
    std::lock_guard const guard(mutex_);
    for (int const fd : fds_) {
      ::shutdown(fd, SHUT_RDWR);
      ::close(fd);
    }
    fds_.clear();
  }

private:
  std::mutex mutex_;
  std::condition_variable taken_;
  std::vector<int> fds_;
};

class Client {
public:
  Client(ListenAddress const& to, std::string_view says, char const* from = "127.0.0.1")
      : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    timeval const patience{.tv_sec = 20, .tv_usec = 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    sockaddr_in name{};
    name.sin_family = AF_INET;
    ::inet_pton(AF_INET, from, &name.sin_addr);
    EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&name), sizeof(name)), 0);
    ::inet_pton(AF_INET, "127.0.0.1", &name.sin_addr);
    name.sin_port = htons(to.port);
    EXPECT_EQ(::connect(fd_, reinterpret_cast<sockaddr*>(&name), sizeof(name)), 0);
    say(says);
  }
  ~Client() { ::close(fd_); }
  Client(Client const&) = delete;
  void say(std::string_view what) { static_cast<void>(::send(fd_, what.data(), what.size(), MSG_NOSIGNAL)); }
  // Waits for it.
  bool isClosed() {
    char byte = 0;
    ssize_t const count = ::recv(fd_, &byte, 1, 0);
    return count == 0 || (count < 0 && errno == ECONNRESET);
  }
  bool isOpen() {
    char byte = 0;
    return ::recv(fd_, &byte, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
  }

private:
  int fd_;
};

class Accepting {
public:
  explicit Accepting(ConnectionLimits const& limits, bool isTls = false) {
    auto listeners = Listener::at({.host = "127.0.0.1"});
    EXPECT_TRUE(listeners.ok());
    address = listeners->front().address();
    acceptor =
        std::make_unique<Acceptor>(std::move(*listeners), limits, isTls, Tovak::SystemClock::instance());
    auto made = std::make_unique<Taker>();
    taker = made.get();
    acceptor->start(std::move(made));
  }
  std::unique_ptr<Client> client(std::string_view says = kPreface, char const* from = "127.0.0.1") {
    return std::make_unique<Client>(address, says, from);
  }
  // One that is in, once those that have ended are not counted any more.
  std::unique_ptr<Client> admitted(char const* from) {
    auto const giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::size_t const before = taker->count();
    auto made = client(kPreface, from);
    while (taker->count() == before && std::chrono::steady_clock::now() < giveUp)
      if (!made->isOpen()) made = client(kPreface, from);
    return made;
  }
  ListenAddress address;
  std::unique_ptr<Acceptor> acceptor;
  Taker* taker = nullptr; // the acceptor's
};

TEST(Acceptor, BoundsConnectionsAndCountsThemUntilTheyEnd) {
  Accepting accepting({.connections = 5, .connectionsPerPeer = 3});
  for (int round = 0; round < 3; ++round) { // each begins with all places free
    std::vector<std::unique_ptr<Client>> in;
    for (char const* const from : {"127.0.0.1", "127.0.0.1", "127.0.0.1", "127.0.0.2", "127.0.0.3"})
      in.push_back(accepting.admitted(from));
    EXPECT_TRUE(accepting.client(kPreface, "127.0.0.1")->isClosed()) << "too many of one peer";
    EXPECT_TRUE(accepting.client(kPreface, "127.0.0.4")->isClosed()) << "too many";
    for (auto const& each : in)
      EXPECT_TRUE(each->isOpen());
    accepting.taker->endAll(); // as gRPC does
    for (auto const& each : in)
      EXPECT_TRUE(each->isClosed());
  }
  auto last = accepting.client("PRI");
  accepting.acceptor->stop();
  EXPECT_TRUE(last->isClosed());
}

TEST(Acceptor, HandshakesMakeWayAndEndInTime) {
  std::string const hello("\x16\3\1\0\2xy", 7);
  { // the oldest of who has the most
    Accepting accepting({.handshakes = 4}, true);
    auto const quiet = accepting.client("", "127.0.0.2");
    auto const half = accepting.client(hello);
    auto const spoke = accepting.client(hello);
    auto const late = accepting.client("");
    accepting.taker->await(2);
    spoke->say("more");
    std::vector<std::unique_ptr<Client>> in;
    for (int i = 0; i < 4; ++i)
      in.push_back(accepting.client(hello));
    EXPECT_TRUE(half->isClosed());
    EXPECT_TRUE(late->isClosed());
    EXPECT_TRUE(in[0]->isClosed());
    EXPECT_TRUE(quiet->isOpen());
    EXPECT_TRUE(spoke->isOpen());
    EXPECT_TRUE(in[3]->isOpen());
  }
  for (bool const isTls : {false, true}) {
    Accepting accepting({.handshakeNs = 500'000'000}, isTls);
    auto const open = accepting.client(isTls ? hello : kPreface);
    accepting.taker->await(1);
    open->say("more");
    auto const silent = accepting.client("");
    auto const half = accepting.client(isTls ? hello.substr(0, 3) : kPreface.substr(0, 3));
    auto const unanswered = accepting.client(isTls ? hello : "");
    EXPECT_TRUE(silent->isClosed() && half->isClosed() && unanswered->isClosed());
    EXPECT_TRUE(open->isOpen());
  }
}

TEST(MemoryGuard, KnowsWhatIsTooMuchAndWhenItHasComeToStay) {
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  constexpr std::int64_t kSecond = 1'000'000'000;
  MemoryGuard guard(100 * kMiB, 200 * kMiB, 1'024 * kMiB);
  EXPECT_FALSE(guard.isShort(200 * kMiB, kSecond));
  EXPECT_FALSE(guard.isNear());
  EXPECT_FALSE(guard.isShort(300 * kMiB, kSecond));
  EXPECT_TRUE(guard.isNear()) << "it may be short at the next look";
  EXPECT_TRUE(guard.isShort(301 * kMiB, kSecond));
  guard.relieved();
  EXPECT_TRUE(guard.isShort(301 * kMiB, 9 * kSecond)) << "counted from there";
  EXPECT_TRUE(guard.isShort(301 * kMiB, 15 * kSecond));
  EXPECT_FALSE(guard.isShort(302 * kMiB, 16 * kSecond)) << "nobody was found: the model has grown";
  EXPECT_TRUE(MemoryGuard(100 * kMiB, 200 * kMiB, 256 * kMiB).isShort(230 * kMiB, kSecond))
      << "the process's limit";
  EXPECT_FALSE(MemoryGuard(100 * kMiB, 200 * kMiB, 64 * kMiB).isShort(130 * kMiB, kSecond))
      << "a model that fills it";

  int trims = 0;
  EXPECT_FALSE(guard.trimIsDue(130 * kMiB, 20 * kSecond));
  for (int second = 20; second < 80; ++second) {
    if (!guard.trimIsDue(200 * kMiB, second * kSecond)) continue;
    guard.trimmed(200 * kMiB, 200 * kMiB);
    ++trims;
  }
  EXPECT_EQ(trims, 4) << "ever more seldom, while it brings nothing";
}

TEST(Listener, TakesAUnixSocketFromNobodyWhoListens) {
  ListenAddress const address{.host = testing::TempDir() + "agent.sock", .isUnix = true};
  auto const why = [&address] {
    auto const again = Listener::at(address);
    return again.ok() ? "" : again.error();
  };
  std::filesystem::remove(address.host);
  {
    auto const first = Listener::at(address);
    ASSERT_TRUE(first.ok()) << first.error();
    EXPECT_EQ(why(), "Address already in use");
    EXPECT_TRUE(std::filesystem::exists(address.host));
  }
  EXPECT_FALSE(std::filesystem::exists(address.host));
  int const left = ::socket(AF_UNIX, SOCK_STREAM, 0); // of somebody who was killed
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  address.host.copy(name.sun_path, sizeof(name.sun_path) - 1);
  ASSERT_EQ(::bind(left, reinterpret_cast<sockaddr*>(&name), sizeof(name)), 0);
  ::close(left);
  EXPECT_EQ(why(), "");
  std::ofstream(address.host) << "no socket";
  EXPECT_EQ(why(), "Address already in use");
  EXPECT_TRUE(std::filesystem::remove(address.host));
  EXPECT_NE(Listener::at({.host = "no/such/folder/a", .isUnix = true}).error(), "");
}

} // namespace
} // namespace Agent
