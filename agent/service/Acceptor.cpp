// The thread and its epoll set: accepting, openings, handshakes that make way, the look at memory, ends.
#include "agent/service/Acceptor.h"

#include <fcntl.h>
#include <grpcpp/server_builder.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "Tovak/Clock.h"
#include "agent/context/Memory.h"
#include "agent/service/FirstBytes.h"
#include "agent/service/Place.h"

namespace Agent {
namespace {

constexpr int kAtOnce = 64; // connections accepted before others get their turn
constexpr std::int64_t kPauseNs = 100'000'000;
constexpr std::int64_t kMillisecondNs = 1'000'000;
constexpr std::int64_t kRefusedNs = 1'000'000'000;
constexpr std::int64_t kRecentNs = 500'000'000;
constexpr std::uint64_t kMuch = 16U << 10; // bytes between two looks: more than who asks politely sends
constexpr std::size_t kOtherDescriptors =
    256; // than those of connections: files that are read, epoll sets, sockets of the kernel's
constexpr std::uint64_t kWake =
    0; // the ids below the first of a connection: this one, and listeners counted from 1

int openReserve() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

// What the peer has sent in all; 0 where that cannot be told.
std::uint64_t bytesHeard(int fd) {
  tcp_info info{};
  socklen_t size = sizeof(info);
  return ::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 ? info.tcpi_bytes_received : 0;
}

} // namespace

std::size_t connectionsThatFit(std::size_t connections) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return connections;
  limit.rlim_cur =
      std::max<rlim_t>(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, 2 * connections + kOtherDescriptors));
  ::setrlimit(RLIMIT_NOFILE, &limit);
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return connections;
  std::size_t const fit = limit.rlim_cur > kOtherDescriptors ? (limit.rlim_cur - kOtherDescriptors) / 2 : 0;
  return std::clamp<std::size_t>(connections, 1, std::max<std::size_t>(fit, 16));
}

Acceptor::Acceptor(std::vector<Listener> listeners, ConnectionLimits const& limits, bool isTls,
                   Tovak::Clock& clock)
    : listeners_(std::move(listeners))
    , limits_(limits)
    , isTls_(isTls)
    , clock_(clock)
    , epoll_(::epoll_create1(EPOLL_CLOEXEC))
    , wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    , reserve_(openReserve())
    , nextId_(1 + listeners_.size())
    , guard_(residentBytes(), limits.memoryRoom, memoryLimit()) {}

Acceptor::~Acceptor() {
  stop();
  for (int const fd : {epoll_, wake_, reserve_})
    if (fd >= 0) ::close(fd);
}

void Acceptor::start(std::unique_ptr<Grpc> grpc, std::unique_ptr<LocalUsers> users) {
  grpc_ = std::move(grpc);
  users_ = std::move(users);
  watch(wake_, kWake, EPOLLIN);
  for (std::size_t i = 0; i < listeners_.size(); ++i)
    watch(listeners_[i].descriptor(), 1 + i, EPOLLIN);
  thread_ = std::thread([this] { run(); });
}

void Acceptor::stop() {
  if (thread_.joinable()) {
    std::uint64_t const one = 1;
    static_cast<void>(::write(wake_, &one, sizeof(one)));
    thread_.join();
  }
  listeners_.clear();
  for (Connections* const list : {&handshakes_, &settled_})
    while (!list->empty())
      closeNow(list->begin());
  grpc_.reset();
  users_.reset();
}

void Acceptor::run() {
  std::array<epoll_event, 256> events{};
  while (!ends_) {
    int const count = ::epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), timeoutMs());
    for (int i = 0; i < count; ++i)
      handle(events[static_cast<std::size_t>(i)].data.u64, events[static_cast<std::size_t>(i)].events);
    overdueEnd();
    memoryLook();
    if (pausedUntilNs_ != 0 && clock_.monotonicNs() >= pausedUntilNs_) pausedIs(false);
  }
}

// Until the oldest handshake is overdue, or the pause over, or memory to be looked at.
int Acceptor::timeoutMs() const {
  std::int64_t due = pausedUntilNs_;
  if (!settled_.empty() || guard_.isMore())
    due = due == 0 ? lookedNs_ + guard_.lookNs() : std::min(due, lookedNs_ + guard_.lookNs());
  if (!handshakes_.empty()) {
    std::int64_t const overdue = handshakes_.front().sinceNs + limits_.handshakeNs;
    due = due == 0 ? overdue : std::min(due, overdue);
  }
  if (due == 0) return -1;
  return static_cast<int>(
      std::clamp<std::int64_t>((due - clock_.monotonicNs()) / kMillisecondNs + 1, 0, 60'000));
}

void Acceptor::handle(Id id, std::uint32_t events) {
  if (id == kWake) {
    ends_ = true;
  } else if (id <= listeners_.size()) {
    acceptFrom(listeners_[id - 1]);
  } else if (auto const found = byId_.find(id); found != byId_.end()) { // else it made way meanwhile
    Connections::iterator const connection = found->second;
    if (!connection->isGrpcs)
      read(connection);
    else if ((events & (EPOLLHUP | EPOLLERR)) != 0)
      closeNow(connection);
  }
}

// --- accepting --------------------------------------------------------------------------------------------

void Acceptor::acceptFrom(Listener const& listener) {
  for (int i = 0; i < kAtOnce && pausedUntilNs_ == 0 && acceptOne(listener); ++i) {
  }
}

bool Acceptor::acceptOne(Listener const& listener) {
  sockaddr_storage peer{};
  socklen_t size = sizeof(peer);
  int const fd = ::accept4(listener.descriptor(), reinterpret_cast<sockaddr*>(&peer), &size,
                           SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd >= 0) {
    accepted(fd, placeOf(peer), !listener.address().isUnix, listener);
    return true;
  }
  switch (errno) {
  case EAGAIN: return false;
  case EMFILE:
  case ENFILE: return outOfDescriptors(listener);
  case ENOBUFS:
  case ENOMEM: pausedIs(true); return false;
  default: return true; // an error of that connection, which has gone
  }
}

bool Acceptor::outOfDescriptors(Listener const& listener) {
  ::close(std::exchange(reserve_, -1));
  int const fd = ::accept4(listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
  if (fd >= 0) ::close(fd);
  reserve_ = openReserve();
  if (fd < 0 || reserve_ < 0) pausedIs(true);
  return pausedUntilNs_ == 0;
}

void Acceptor::accepted(int fd, std::string const& place, bool hasPeer, Listener const& listener) {
  auto const at = places_.try_emplace(place).first;
  bool const isTooMuch = byId_.size() >= limits_.connections || (hasPeer && isRefused(place)) ||
                         (hasPeer && at->second.connections >= limits_.connectionsPerPeer);
  if (isTooMuch) {
    if (at->second.connections == 0) places_.erase(at);
    ::close(fd);
    return;
  }
  if (handshakes_.size() >= limits_.handshakes) makeWay();
  ++at->second.connections;
  ++at->second.handshakes;
  handshakes_.push_back({.id = nextId_++,
                         .fd = fd,
                         .listener = listener.descriptor(),
                         .place = at,
                         .hasPeer = hasPeer,
                         .sinceNs = clock_.monotonicNs(),
                         .said = {}});
  Connections::iterator const made = std::prev(handshakes_.end());
  byId_.emplace(made->id, made);
  // What has come already saves a turn; and who has hung up already, a descriptor.
  if (read(made)) watch(fd, made->id, EPOLLIN);
}

void Acceptor::pausedIs(bool isPaused) {
  pausedUntilNs_ = isPaused ? clock_.monotonicNs() + kPauseNs : 0;
  if (!isPaused && reserve_ < 0) reserve_ = openReserve();
  for (std::size_t i = 0; i < listeners_.size(); ++i) {
    epoll_event event{.events = isPaused ? 0U : EPOLLIN, .data = {.u64 = 1 + i}};
    ::epoll_ctl(epoll_, EPOLL_CTL_MOD, listeners_[i].descriptor(), &event);
  }
}

// --- openings ---------------------------------------------------------------------------------------------

bool Acceptor::read(Connections::iterator connection) {
  std::array<char, kLongestOpening> bytes; // NOLINT: filled by `recv`
  ssize_t const count = ::recv(connection->fd, bytes.data(), bytes.size(), 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  if (count > 0) connection->said.append(bytes.data(), static_cast<std::size_t>(count));
  switch (count > 0 ? openingOf(connection->said, isTls_) : Opening::Wrong) {
  case Opening::Begun: return true;
  case Opening::Whole: handOver(connection); return false;
  case Opening::Wrong: closeNow(connection); return false;
  }
  return false;
}

void Acceptor::handOver(Connections::iterator connection) {
  int const second = ::fcntl(connection->fd, F_DUPFD_CLOEXEC, 0);
  if (second < 0) {
    closeNow(connection);
    return;
  }
  ::epoll_ctl(epoll_, EPOLL_CTL_DEL, connection->fd, nullptr);
  grpc::Slice const said(connection->said);
  Grpc::NewConnectionParameters given;
  given.listener_fd = connection->listener;
  given.fd = std::exchange(connection->fd, second);
  given.read_buffer = grpc::ByteBuffer(&said, 1);
  connection->isGrpcs = true;
  connection->looked = connection->heard = bytesHeard(second);
  std::string().swap(connection->said);
  watch(second, connection->id, 0); // its end is always told
  Grpc& grpc = connection->hasPeer || !users_ ? *grpc_ : users_->acceptorOf(second);
  if (!isTls_ || !connection->hasPeer) handshakeEnds(connection);
  grpc.HandleNewConnection(&given);
}

// --- handshakes -------------------------------------------------------------------------------------------

// With TLS a client's second word comes after the server's first, or it is not a handshake that goes on.
bool Acceptor::hasGotFurther(Connection const& connection) const {
  return connection.isGrpcs && bytesHeard(connection.fd) > connection.heard;
}

void Acceptor::handshakeEnds(Connections::iterator connection) {
  connection->isSettled = true;
  --connection->place->second.handshakes;
  settled_.splice(settled_.end(), handshakes_, connection);
}

void Acceptor::makeWay() {
  while (handshakes_.size() >= limits_.handshakes) {
    auto const has = [](Connection const& one) { return one.place->second.handshakes; };
    auto const most = std::max_element(
        handshakes_.begin(), handshakes_.end(), // the first of equals
        [&has](Connection const& one, Connection const& other) { return has(one) < has(other); });
    if (hasGotFurther(*most))
      handshakeEnds(most);
    else
      closeNow(most);
  }
}

void Acceptor::overdueEnd() {
  std::int64_t const latest = clock_.monotonicNs() - limits_.handshakeNs;
  while (!handshakes_.empty() && handshakes_.front().sinceNs <= latest) {
    Connections::iterator const oldest = handshakes_.begin();
    if (hasGotFurther(*oldest)) // gRPC itself knows for how long it may take
      handshakeEnds(oldest);
    else
      closeNow(oldest);
  }
}

// --- memory -----------------------------------------------------------------------------------------------

void Acceptor::memoryLook() {
  std::int64_t const now = clock_.monotonicNs();
  if (now - lookedNs_ < guard_.lookNs()) return;
  std::size_t const resident = residentBytes();
  lookedNs_ = now;
  bool const isShort = guard_.isShort(resident, now);
  if (guard_.isNear() && greediestEnd(isShort)) guard_.relieved();
  if (!guard_.isNear()) refused_.clear();
  if (guard_.trimIsDue(resident, now)) {
    HeapTrimmer::trim();
    guard_.trimmed(resident, residentBytes());
  }
}

// All that have sent at least half as much as the greediest since the last time, if that is much and it is
// meant. Says whether there were any.
bool Acceptor::greediestEnd(bool isMeant) {
  bool const isRecent = std::exchange(rankedNs_, lookedNs_) > lookedNs_ - kRecentNs;
  std::vector<std::pair<std::uint64_t, Id>> sent;
  for (Connection& each : settled_) {
    std::uint64_t const heard = bytesHeard(each.fd);
    if (isRecent) sent.emplace_back(heard - each.looked, each.id);
    each.looked = heard;
  }
  if (!isMeant || sent.empty()) return false;
  std::uint64_t const most = std::ranges::max(sent).first;
  if (most < kMuch) return false;
  for (auto const& [bytes, id] : sent) {
    if (bytes < most / 2) continue;
    Connections::iterator const greedy = byId_.at(id);
    refused_[greedy->place->first] = lookedNs_ + kRefusedNs;
    closeNow(greedy);
  }
  return true;
}

bool Acceptor::isRefused(std::string const& place) {
  auto const found = refused_.find(place);
  if (found == refused_.end()) return false;
  if (found->second > clock_.monotonicNs()) return true;
  refused_.erase(found);
  return false;
}

// --- ends -------------------------------------------------------------------------------------------------

// One that gRPC has, and has not ended itself, it ends when it reads that it is shut down.
void Acceptor::closeNow(Connections::iterator connection) {
  if (thread_.joinable() || !connection->isGrpcs) ::shutdown(connection->fd, SHUT_RDWR);
  ::close(connection->fd);
  byId_.erase(connection->id);
  if (!connection->isSettled) --connection->place->second.handshakes;
  if (--connection->place->second.connections == 0) places_.erase(connection->place);
  (connection->isSettled ? settled_ : handshakes_).erase(connection);
}

void Acceptor::watch(int fd, Id id, std::uint32_t events) {
  epoll_event event{.events = events, .data = {.u64 = id}};
  ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
}

} // namespace Agent
