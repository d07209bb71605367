// The thread's queue of orders, and what it keeps: how links were before they were changed, so that a setting
// taken away is undone.
#include "agent/collect/ConfigApplier.h"

#include <absl/functional/function_ref.h>
#include <fmt/format.h>
#include <net/if.h>
#include <netlink/errno.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/socket.h>

#include <map>
#include <utility>

#include "agent/collect/Netlink.h"

namespace Agent {
namespace {

struct LinkDeleter {
  void operator()(rtnl_link* link) const { rtnl_link_put(link); }
};
using Link = std::unique_ptr<rtnl_link, LinkDeleter>;

// Asks for what `edit` writes into an empty link. An error of netlink below zero.
int request(nl_sock* socket, rtnl_link* now, absl::FunctionRef<void(rtnl_link*)> edit) {
  Link const wanted(rtnl_link_alloc());
  if (!wanted) return -NLE_NOMEM;
  edit(wanted.get());
  return rtnl_link_change(socket, now, wanted.get(), 0);
}

// What a link had, as far as it has been changed here.
struct Before {
  int ifindex = 0;
  std::optional<std::uint32_t> mtu;
  std::optional<bool> enabled;
};
using Befores = std::map<std::string, Before>; // by name

// What is to become of a setting: what is wanted, else what was there before anything was.
template <class T>
std::optional<T> settled(std::optional<T> const& wanted, std::optional<T>& before, T now) {
  if (!wanted) return std::exchange(before, std::nullopt);
  if (!before && now != *wanted) before = now;
  return wanted;
}

// Each in a request of its own: what the kernel refuses does not keep the others back. The first error.
int applyTo(nl_sock* socket, LinkChange const& change, Befores& befores) {
  rtnl_link* found = nullptr;
  if (int const error = rtnl_link_get_kernel(socket, 0, change.name.c_str(), &found); error < 0) return error;
  Link const now(found);
  Before& before = befores[change.name];
  if (before.ifindex != rtnl_link_get_ifindex(now.get()))
    before = {.ifindex = rtnl_link_get_ifindex(now.get()), .mtu = {}, .enabled = {}}; // another link
  int first = 0;
  auto const apply = [&](absl::FunctionRef<void(rtnl_link*)> edit) {
    int const error = request(socket, now.get(), edit);
    if (first >= 0) first = error;
  };
  char const* const description = rtnl_link_get_ifalias(now.get());
  if (change.description != (description == nullptr ? "" : description))
    apply([&](rtnl_link* link) { rtnl_link_set_ifalias(link, change.description.c_str()); });
  std::uint32_t const mtu = rtnl_link_get_mtu(now.get());
  if (auto const wanted = settled(change.mtu, before.mtu, mtu); wanted && *wanted != mtu)
    apply([&](rtnl_link* link) { rtnl_link_set_mtu(link, *wanted); });
  bool const isEnabled = (rtnl_link_get_flags(now.get()) & IFF_UP) != 0;
  auto const wanted = settled(change.enabled, before.enabled, isEnabled);
  if (wanted && *wanted != isEnabled) {
    auto* const flags = *wanted ? &rtnl_link_set_flags : &rtnl_link_unset_flags;
    apply([flags](rtnl_link* link) { flags(link, IFF_UP); });
  }
  return first;
}

ConfigApplier::Outcome outcomeOf(LinkChange const& change, Befores& befores) {
  NetlinkSocket const socket(nl_socket_alloc());
  int error = socket ? nl_connect(socket.get(), NETLINK_ROUTE) : -NLE_NOMEM;
  if (error >= 0) error = applyTo(socket.get(), change, befores);
  std::erase_if(befores, [](auto const& one) {
    return (!one.second.mtu && !one.second.enabled) ||
           static_cast<int>(if_nametoindex(one.first.c_str())) != one.second.ifindex;
  });
  if (error >= 0) return {};
  return Kstd::Err(
      fmt::format("interface '{}' was not changed as asked: {}", change.name, nl_geterror(error)));
}

} // namespace

LinkChange linkChangeOf(Interface const& interface) {
  if (!interface.config) return {.name = interface.name.str(), .description = "", .mtu = {}, .enabled = {}};
  InterfaceConfig const& config = *interface.config;
  return {.name = interface.name.str(),
          .description = config.description.value_or("").str(),
          .mtu = config.mtu,
          .enabled = config.enabled};
}

struct ConfigApplier::Shared {
  struct Order {
    LinkChange change;
    Done done;
  };
  std::shared_ptr<Tovak::TaskScheduler> scheduler;
  std::weak_ptr<Shared> self; // for the answers
  bool isAlive = true;        // scheduler thread only: the applier is still there
  std::mutex mutex;           // guards what follows
  std::condition_variable changed;
  std::deque<Order> orders;
  bool stopping = false;
};

ConfigApplier::ConfigApplier(std::shared_ptr<Tovak::TaskScheduler> scheduler)
    : shared_(std::make_shared<Shared>()) {
  shared_->scheduler = std::move(scheduler);
  shared_->self = shared_;
  thread_ = std::thread([shared = shared_] { work(*shared); });
}

ConfigApplier::~ConfigApplier() {
  shared_->isAlive = false;
  {
    std::lock_guard const lock(shared_->mutex);
    shared_->stopping = true;
    shared_->orders.clear();
  }
  shared_->changed.notify_all();
  thread_.join();
}

void ConfigApplier::apply(LinkChange change, Done done) {
  {
    std::lock_guard const lock(shared_->mutex);
    shared_->orders.push_back({std::move(change), std::move(done)});
  }
  shared_->changed.notify_all();
}

void ConfigApplier::work(Shared& shared) {
  Befores befores;
  std::unique_lock lock(shared.mutex);
  for (;;) {
    shared.changed.wait(lock, [&] { return shared.stopping || !shared.orders.empty(); });
    if (shared.stopping) return;
    Shared::Order order = std::move(shared.orders.front());
    shared.orders.pop_front();
    lock.unlock();
    shared.scheduler->post(
        [weak = shared.self, done = std::move(order.done), outcome = outcomeOf(order.change, befores)] {
          if (auto const self = weak.lock(); self && self->isAlive) done(outcome);
        });
    lock.lock();
  }
}

} // namespace Agent
