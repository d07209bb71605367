// Descriptors in one epoll set, known by ids that are never given again; an eventfd wakes the loop, at most
// once a pass.
#include "Tovak/FdPoller.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "Tovak/CallbackCall.h"
#include "Tovak/Trace.h"

namespace Tovak::Impl {

namespace {

DebugHandler const& debugHandler() {
  static DebugHandler const& handler = Platform::getDebugHandler("TovakTask", false);
  return handler;
}

epoll_event toEpoll(FdWatchId id, std::uint32_t events) {
  epoll_event event{};
  event.events = ((events & FdEvents::readable) ? std::uint32_t{EPOLLIN} : 0u) |
                 ((events & FdEvents::writable) ? std::uint32_t{EPOLLOUT} : 0u);
  event.data.u64 = id.value();
  return event;
}

std::uint32_t fromEpoll(std::uint32_t events) {
  return ((events & EPOLLIN) ? FdEvents::readable : 0u) | ((events & EPOLLOUT) ? FdEvents::writable : 0u) |
         ((events & (EPOLLERR | EPOLLHUP)) ? FdEvents::broken : 0u);
}

} // namespace

FdPoller::FdPoller()
    : epollFd_(epoll_create1(EPOLL_CLOEXEC))
    , wakeFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  epoll_event wakeEvent = toEpoll(FdWatchId(0), FdEvents::readable);
  int const added = epoll_ctl(epollFd_, EPOLL_CTL_ADD, wakeFd_, &wakeEvent);
  TOVAK_ASSERT(added == 0, debugHandler(), "cannot set up the event loop: {}", std::strerror(errno));
}

FdPoller::~FdPoller() {
  close(epollFd_);
  close(wakeFd_);
}

Kstd::Result<FdWatchId, String> FdPoller::add(int fd, std::uint32_t events,
                                              TaskScheduler::FdCallback callback) {
  FdWatchId const id(++lastId_);
  epoll_event event = toEpoll(id, events);
  if (epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &event) != 0)
    return Kstd::Err(fmt::format("cannot watch file descriptor {}: {}", fd, std::strerror(errno)));
  watches_.emplace(id, Watch{fd, std::move(callback)});
  return id;
}

void FdPoller::eventsIs(FdWatchId id, std::uint32_t events) {
  if (auto const watch = watches_.find(id); watch != watches_.end()) {
    epoll_event event = toEpoll(id, events);
    if (epoll_ctl(epollFd_, EPOLL_CTL_MOD, watch->second.fd, &event) != 0) {
      TOVAK_TRACE(debugHandler(), traceLevelError, "fd", "file descriptor {}: {}", watch->second.fd,
                  std::strerror(errno));
    }
  }
}

void FdPoller::del(FdWatchId id) {
  // Out of the map before it dies: what the callback holds may come back here from its destructor.
  if (auto const watch = watches_.extract(id)) {
    epoll_ctl(epollFd_, EPOLL_CTL_DEL, watch.mapped().fd,
              nullptr); // fails when it was closed already: as well
  }
}

void FdPoller::clear() {
  while (!watches_.empty())
    del(watches_.begin()->first);
}

// The exchanges on both sides pair up: either wake sees the flag cleared by wait and writes, or wait's
// exchange comes after wake's and so sees what was done before it.
void FdPoller::wake() {
  if (!woken_.exchange(true, std::memory_order_acq_rel)) {
    std::uint64_t const one = 1;
    [[maybe_unused]] ssize_t const written = ::write(wakeFd_, &one, sizeof one);
  }
}

bool FdPoller::wait(int blockMs) {
  std::array<epoll_event, 64> events;
  int const count = epoll_wait(epollFd_, events.data(), static_cast<int>(events.size()), blockMs);
  for (int i = 0; i < count; ++i) {
    epoll_event const& event = events[static_cast<size_t>(i)];
    if (event.data.u64 == 0) {
      std::uint64_t wakes;
      [[maybe_unused]] ssize_t const got = ::read(wakeFd_, &wakes, sizeof wakes);
      woken_.exchange(false, std::memory_order_acq_rel);
    } else {
      ready_.push_back({FdWatchId(event.data.u64), fromEpoll(event.events)});
    }
  }
  return count > 0;
}

bool FdPoller::run() {
  bool called = false;
  // A callback may throw: what is left then waits for the next pass, or is found ready again.
  std::vector<Ready> ready;
  ready.swap(ready_);
  for (Ready const& one : ready)
    called |= callEntry(watches_, one.id, one.events);
  ready.clear();
  ready_.swap(ready);
  return called;
}

} // namespace Tovak::Impl
