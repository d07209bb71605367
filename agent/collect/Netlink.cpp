// The socket alone: opening, the dumps one after the other, datagrams, overruns. What messages say is read in
// NetlinkFacts.cpp.
#include "agent/collect/Netlink.h"

#include <linux/rtnetlink.h>
#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "Tovak/Trace.h"
#include "agent/collect/NetlinkFacts.h"

namespace Agent {
namespace {

constexpr int kDatagramsPerTurn = 8;
constexpr std::size_t kDatagramBytes = 65536; // the kernel sends at most half of it

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentNetlink", false);
  return handler;
}

struct Dump {
  int type;
  int family;
};
constexpr std::array<Dump, 4> kDumps = {
    {{RTM_GETLINK, AF_UNSPEC}, {RTM_GETADDR, AF_UNSPEC}, {RTM_GETNEIGH, AF_INET}, {RTM_GETNEIGH, AF_INET6}}};

struct MessageDeleter {
  void operator()(nl_msg* message) const { nlmsg_free(message); }
};

// Links are also told of by other families: the bridge's when a port leaves it, which is no end of the link.
// The message is asked, because libnl calls a bridge itself one of that family.
bool isOtherFamilysLink(nlmsghdr& header) {
  if (header.nlmsg_type != RTM_NEWLINK && header.nlmsg_type != RTM_DELLINK) return false;
  if (nlmsg_datalen(&header) < static_cast<int>(sizeof(ifinfomsg))) return true;
  return static_cast<ifinfomsg const*>(nlmsg_data(&header))->ifi_family != AF_UNSPEC;
}

bool isRemoval(int type) { return type == RTM_DELLINK || type == RTM_DELADDR || type == RTM_DELNEIGH; }

} // namespace

void NetlinkSocketDeleter::operator()(nl_sock* socket) const { nl_socket_free(socket); }

NetlinkMonitor::NetlinkMonitor(std::shared_ptr<Tovak::TaskScheduler> scheduler, FactSink& sink,
                               Options options)
    : scheduler_(std::move(scheduler))
    , sink_(sink)
    , options_(options)
    , buffer_(kDatagramBytes) {
  static_assert(kDumps.size() == kPhases);
}

NetlinkMonitor::~NetlinkMonitor() { close(); }

void NetlinkMonitor::start() {
  close();
  if (!open()) return reopenLater();
  sink_.resyncBegin();
  isInterrupted_ = false;
  dumpIs(0);
}

bool NetlinkMonitor::open() {
  socket_.reset(nl_socket_alloc());
  if (!socket_) return false;
  nl_sock* const socket = socket_.get();
  if (int const error = nl_connect(socket, NETLINK_ROUTE); error < 0) {
    TOVAK_TRACE(trace(), Tovak::traceLevelError, "", "no rtnetlink socket: {}", nl_geterror(error));
    return false;
  }
  // Beyond the system's limit for those who may (best effort for the others).
  int const bytes = options_.receiveBytes;
  if (::setsockopt(nl_socket_get_fd(socket), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
    nl_socket_set_buffer_size(socket, bytes, 0);
  nl_socket_set_nonblocking(socket);
  int const error = nl_socket_add_memberships(socket, RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                                              RTNLGRP_NEIGH, RTNLGRP_NONE);
  if (error < 0) {
    TOVAK_TRACE(trace(), Tovak::traceLevelError, "", "no rtnetlink events: {}", nl_geterror(error));
    return false;
  }
  auto watch = scheduler_->fdWatchIs(nl_socket_get_fd(socket), Tovak::FdEvents::readable,
                                     [this](std::uint32_t) { readable(); });
  if (!watch) return false;
  watch_ = watch.value();
  return true;
}

void NetlinkMonitor::close() {
  scheduler_->fdWatchDel(watch_);
  scheduler_->timerDel(reopen_);
  watch_ = {};
  reopen_ = {};
  socket_.reset();
  phase_ = 0;
}

void NetlinkMonitor::reopenLater() {
  close();
  reopen_ = scheduler_->timerAfter(options_.reopenNs, [this] { start(); });
}

void NetlinkMonitor::dumpIs(std::size_t phase) {
  if (phase == kPhases && isInterrupted_) { // something changed under a dump: once more
    isInterrupted_ = false;
    sink_.resyncBegin();
    phase = 0;
  }
  phase_ = phase;
  if (phase == kPhases) return sink_.resyncEnd();
  struct {
    nlmsghdr header;
    rtgenmsg body;
  } request{};
  sequence_ = nl_socket_use_seq(socket_.get());
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtgenmsg));
  request.header.nlmsg_type = static_cast<std::uint16_t>(kDumps[phase].type);
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = sequence_;
  request.body.rtgen_family = static_cast<unsigned char>(kDumps[phase].family);
  if (nl_sendto(socket_.get(), &request, sizeof request) < 0) reopenLater();
}

void NetlinkMonitor::readable() {
  for (int i = 0; i < kDatagramsPerTurn && socket_; ++i) {
    ssize_t const got =
        ::recv(nl_socket_get_fd(socket_.get()), buffer_.data(), buffer_.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return;
    if (got <= 0 || static_cast<std::size_t>(got) > buffer_.size()) {
      ++overruns_;
      TOVAK_TRACE(trace(), 1, "", "events were lost; reading everything anew");
      return reopenLater();
    }
    if (!datagram(static_cast<std::size_t>(got))) return;
  }
}

bool NetlinkMonitor::datagram(std::size_t size) {
  int rest = static_cast<int>(size);
  std::uint32_t const port = nl_socket_get_local_port(socket_.get());
  for (auto* header = reinterpret_cast<nlmsghdr*>(buffer_.data()); nlmsg_ok(header, rest);
       header = nlmsg_next(header, &rest)) {
    bool const isOurs = header->nlmsg_pid == port && header->nlmsg_seq == sequence_;
    if (isOurs && (header->nlmsg_flags & NLM_F_DUMP_INTR) != 0) isInterrupted_ = true;
    if (header->nlmsg_type >= RTM_BASE)
      fact(*header);
    else if (isOurs && !answer(*header))
      return false;
  }
  return true;
}

bool NetlinkMonitor::answer(nlmsghdr const& header) {
  if (header.nlmsg_type == NLMSG_DONE) {
    dumpIs(phase_ + 1);
  } else if (header.nlmsg_type == NLMSG_ERROR) {
    auto const& error = *static_cast<nlmsgerr const*>(nlmsg_data(&header));
    if (error.error == -EOPNOTSUPP || error.error == -EAFNOSUPPORT)
      dumpIs(phase_ + 1); // a kernel without that family
    else if (error.error != 0)
      reopenLater();
  }
  return socket_ != nullptr;
}

void NetlinkMonitor::fact(nlmsghdr& header) {
  if (isOtherFamilysLink(header)) return;
  std::unique_ptr<nl_msg, MessageDeleter> const message(nlmsg_convert(&header));
  if (!message) return;
  nlmsg_set_proto(message.get(), NETLINK_ROUTE);
  struct Told {
    FactSink& sink;
    bool isDel;
  } told{sink_, isRemoval(header.nlmsg_type)};
  // What libnl cannot read is left out.
  nl_msg_parse(
      message.get(),
      [](nl_object* object, void* to) {
        auto& [sink, isDel] = *static_cast<Told*>(to);
        tellFact(sink, object, isDel);
      },
      &told);
}

} // namespace Agent
