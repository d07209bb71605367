// Links, addresses and neighbours from the kernel, by rtnetlink.
//
// Invariants
// 1. One socket carries both the events and the answers to the dumps, so that what comes later in its queue
//    is never older. docs/decisions.md: "One netlink socket for events and dumps."
// 2. After opening, all links, then all addresses, then all neighbours are dumped; events in between are
//    taken as they come. Only a complete and consistent pass ends the resync, which drops what was not told
//    again.
// 3. An overrun (ENOBUFS) means that anything may have been lost, the end of a dump too: the socket is
//    closed, opened again a little later, and everything is dumped anew. The model keeps what it has
//    meanwhile.
// 4. A turn takes a bounded number of datagrams; the rest waits for the next pass of the loop.
#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "Tovak/TaskScheduler.h"
#include "agent/collect/LinkFacts.h"

struct nl_sock;

namespace Agent {

struct NetlinkSocketDeleter {
  void operator()(nl_sock* socket) const;
};
using NetlinkSocket = std::unique_ptr<nl_sock, NetlinkSocketDeleter>;

// Watches the kernel's links on the scheduler thread; nothing it does blocks. Owned by the collectors; the
// sink must outlive it.
class NetlinkMonitor {
public:
  struct Options {
    int receiveBytes = 1 << 20; // of the socket's queue
    std::int64_t reopenNs = 100'000'000;
  };

  NetlinkMonitor(std::shared_ptr<Tovak::TaskScheduler> scheduler, FactSink& sink, Options options);
  NetlinkMonitor(std::shared_ptr<Tovak::TaskScheduler> scheduler, FactSink& sink)
      : NetlinkMonitor(std::move(scheduler), sink, Options()) {}
  ~NetlinkMonitor();
  NetlinkMonitor(NetlinkMonitor const&) = delete;
  NetlinkMonitor& operator=(NetlinkMonitor const&) = delete;

  // Opens the socket and begins the first resync. When the system refuses, it is tried again for as long as
  // this lives.
  void start();
  // The last resync is complete and nothing has been lost since.
  [[nodiscard]] bool isInSync() const { return phase_ == kPhases; }
  [[nodiscard]] std::uint64_t overruns() const { return overruns_; }

private:
  static constexpr std::size_t kPhases = 4; // dumps of a resync
  bool open();
  void close();
  void reopenLater();
  void readable();
  void dumpIs(std::size_t phase); // asks for the dump of a phase; beyond the last one the resync has ended
  bool datagram(std::size_t size);
  bool answer(nlmsghdr const& header); // to our own dump; false: the socket has been given up
  void fact(nlmsghdr& header);

  std::shared_ptr<Tovak::TaskScheduler> scheduler_;
  FactSink& sink_;
  Options const options_;
  NetlinkSocket socket_;
  Tovak::FdWatchId watch_;
  Tovak::TimerId reopen_;
  std::size_t phase_ = 0;
  std::uint32_t sequence_ = 0; // of the present dump
  bool isInterrupted_ = false; // the present pass is not consistent
  std::uint64_t overruns_ = 0;
  std::vector<char> buffer_;
};

} // namespace Agent
