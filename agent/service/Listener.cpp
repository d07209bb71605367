// TCP for every address that a name has, on one port; Unix sockets, whose left-over files are taken over when
// nobody listens.
#include "agent/service/Listener.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

namespace Agent {
namespace {

constexpr int kBacklog = 1'024;
constexpr unsigned kUnread = 128U << 10; // bytes that wait in a socket: they come even after its end
constexpr unsigned kUnheardMs = 20'000;  // what is sent and not acknowledged for so long ends a connection
constexpr int kKinds = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;

class Descriptor {
public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }

private:
  int fd_;
};

Kstd::Err<std::string> fault(int error) { return Kstd::Err(std::string(std::strerror(error))); }

void optionIs(int fd, int level, int name, unsigned value) {
  ::setsockopt(fd, level, name, &value, sizeof(value));
}

// Options of a listening socket are those of the connections that it accepts.
void optionsAre(int fd, bool isIpv6) {
  optionIs(fd, SOL_SOCKET, SO_REUSEADDR, 1);
  optionIs(fd, IPPROTO_TCP, TCP_NODELAY, 1);
  optionIs(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, kUnheardMs);
  optionIs(fd, SOL_SOCKET, SO_RCVBUF, kUnread);
  if (isIpv6) optionIs(fd, IPPROTO_IPV6, IPV6_V6ONLY, 0); // [::] is every address
}

std::uint16_t portOf(int fd) {
  sockaddr_storage name{};
  socklen_t size = sizeof(name);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size);
  return ntohs(name.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(name).sin6_port
                                          : reinterpret_cast<sockaddr_in&>(name).sin_port);
}

bool somebodyListens(sockaddr_un const& name) {
  Descriptor const probe(::socket(AF_UNIX, kKinds, 0));
  return ::connect(probe.get(), reinterpret_cast<sockaddr const*>(&name), sizeof(name)) == 0 ||
         errno != ECONNREFUSED;
}

} // namespace

Listener::Listener(Listener&& other) noexcept
    : fd_(std::exchange(other.fd_, -1))
    , address_(std::move(other.address_))
    , device_(other.device_)
    , inode_(other.inode_) {}

Listener::~Listener() {
  if (fd_ < 0) return;
  ::close(fd_);
  struct stat file {};
  bool const isOurs = address_.isUnix && ::stat(address_.host.c_str(), &file) == 0 &&
                      file.st_dev == device_ && file.st_ino == inode_;
  if (isOurs) ::unlink(address_.host.c_str());
}

Kstd::Result<std::vector<Listener>, std::string> Listener::at(ListenAddress const& address) {
  std::vector<Listener> made;
  if (address.isUnix) {
    auto listener = atFile(address);
    if (!listener) return Kstd::Err(listener.error());
    made.push_back(std::move(*listener));
    return made;
  }
  addrinfo hints{};
  hints.ai_flags = AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (int const code =
          ::getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found);
      code != 0)
    return Kstd::Err(std::string(::gai_strerror(code)));
  std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> const guard(found, &::freeaddrinfo);
  ListenAddress chosen = address;
  int missing = 0; // an address that the name has, and this machine not
  for (addrinfo const* one = found; one != nullptr; one = one->ai_next) {
    Descriptor socket(::socket(one->ai_family, kKinds, one->ai_protocol));
    if (socket.get() >= 0) optionsAre(socket.get(), one->ai_family == AF_INET6);
    (one->ai_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(one->ai_addr)->sin6_port
                                : reinterpret_cast<sockaddr_in*>(one->ai_addr)->sin_port) =
        htons(chosen.port);
    bool const listens = socket.get() >= 0 && ::bind(socket.get(), one->ai_addr, one->ai_addrlen) == 0 &&
                         ::listen(socket.get(), kBacklog) == 0;
    if (listens) {
      chosen.port = portOf(socket.get());
      made.push_back(Listener(socket.release(), chosen));
    } else if (errno == EADDRNOTAVAIL || errno == EAFNOSUPPORT) {
      missing = errno;
    } else {
      return fault(errno);
    }
  }
  if (made.empty()) return fault(missing);
  return made;
}

// Whoever starts at the same time waits for the folder, or both would find nobody listening, and the second
// take the first's file away.
Kstd::Result<Listener, std::string> Listener::atFile(ListenAddress const& address) {
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  if (address.host.size() >= sizeof(name.sun_path)) return fault(ENAMETOOLONG);
  std::memcpy(name.sun_path, address.host.data(), address.host.size());
  std::string const parent = std::filesystem::path(address.host).parent_path();
  Descriptor const folder(::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.get() < 0 || ::flock(folder.get(), LOCK_EX) != 0) return fault(errno);

  Descriptor socket(::socket(AF_UNIX, kKinds, 0));
  auto const bind = [&] {
    return ::bind(socket.get(), reinterpret_cast<sockaddr const*>(&name), sizeof(name)) == 0;
  };
  if (socket.get() < 0) return fault(errno);
  struct stat file {};
  if (!bind()) {
    if (errno != EADDRINUSE) return fault(errno);
    bool const isLeft =
        ::lstat(name.sun_path, &file) == 0 && S_ISSOCK(file.st_mode) && !somebodyListens(name);
    if (!isLeft) return fault(EADDRINUSE);
    if (::unlink(name.sun_path) != 0 || !bind()) return fault(errno);
  }
  if (::listen(socket.get(), kBacklog) != 0 || ::stat(name.sun_path, &file) != 0) return fault(errno);
  Listener listener(socket.release(), address);
  listener.device_ = file.st_dev;
  listener.inode_ = file.st_ino;
  return listener;
}

} // namespace Agent
