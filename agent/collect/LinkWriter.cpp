// Each setting in a request of its own, with the request that takes it back; then the addresses.
#include "agent/collect/LinkWriter.h"

#include <absl/functional/function_ref.h>
#include <fmt/format.h>
#include <net/if.h>
#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "agent/collect/IpText.h"

namespace Agent {
namespace {

template <auto Drop>
struct Dropped {
  template <class T>
  void operator()(T* object) const {
    Drop(object);
  }
};
using Link = std::unique_ptr<rtnl_link, Dropped<rtnl_link_put>>;
using Address = std::unique_ptr<rtnl_addr, Dropped<rtnl_addr_put>>;
using IpAddress = std::unique_ptr<nl_addr, Dropped<nl_addr_put>>;
using Cache = std::unique_ptr<nl_cache, Dropped<nl_cache_free>>;

// Asks for what `edit` writes into an empty link.
int request(nl_sock* socket, int ifindex, absl::FunctionRef<void(rtnl_link*)> edit) {
  Link const now(rtnl_link_alloc());
  Link const wanted(rtnl_link_alloc());
  if (!now || !wanted) return -NLE_NOMEM;
  rtnl_link_set_ifindex(now.get(), ifindex);
  edit(wanted.get());
  return rtnl_link_change(socket, now.get(), wanted.get(), 0);
}

// What is to become of a setting: what is wanted, else what was there before anything was. None: it stays.
template <class T>
std::optional<T> settled(std::optional<T> const& wanted, std::optional<T>& before, T const& now) {
  if (!wanted) return std::exchange(before, std::nullopt);
  if (!before && now != *wanted) before = now;
  return wanted;
}

void descriptionIs(rtnl_link* link, std::string const& text) { rtnl_link_set_ifalias(link, text.c_str()); }
void mtuIs(rtnl_link* link, std::uint32_t mtu) { rtnl_link_set_mtu(link, mtu); }
void enabledIs(rtnl_link* link, bool isEnabled) {
  isEnabled ? rtnl_link_set_flags(link, IFF_UP) : rtnl_link_unset_flags(link, IFF_UP);
}

std::string refusal(std::string const& link, int error) {
  return fmt::format("interface '{}' was not changed as asked: {}", link, nl_geterror(error));
}

} // namespace

Kstd::Result<void, std::string> LinkWriter::apply(std::vector<LinkChange> const& links) {
  auto const before = befores_;
  undo_.clear();
  std::string refused;
  int const error = applyAll(links, refused);
  if (error < 0) {
    for (auto back = undo_.rbegin(); back != undo_.rend(); ++back)
      (*back)();
    befores_ = before;
  }
  std::erase_if(befores_, [](auto const& one) { return one.second.isEmpty(); });
  socket_.reset();
  if (error >= 0) return {};
  return Kstd::Err(refusal(refused, error));
}

Kstd::Result<LinkBefores, std::string> LinkWriter::look(std::vector<LinkChange> const& links) {
  auto before = befores_;
  std::string refused;
  onlyLooks_ = true;
  int const error = applyAll(links, refused);
  onlyLooks_ = false;
  socket_.reset();
  befores_.swap(before); // what would be
  if (error < 0) return Kstd::Err(refusal(refused, error));
  LinkBefores texts;
  for (LinkChange const& link : links)
    texts[link.name] = before[link.name].text(boot_);
  return texts;
}

void LinkWriter::beforesAre(LinkBefores const& befores) {
  for (auto const& [name, text] : befores)
    if (auto const before = LinkBefore::of(text, boot_)) befores_[name] = *before;
}

// `refused`: the link that was being looked at.
int LinkWriter::applyAll(std::vector<LinkChange> const& links, std::string& refused) {
  socket_.reset(nl_socket_alloc());
  int error = socket_ ? nl_connect(socket_.get(), NETLINK_ROUTE) : -NLE_NOMEM;
  if (!links.empty()) refused = links.front().name;
  for (auto link = links.begin(); link != links.end() && error >= 0; ++link) {
    refused = link->name;
    error = applyTo(*link);
  }
  return error;
}

int LinkWriter::applyTo(LinkChange const& change) {
  rtnl_link* found = nullptr;
  int const error = rtnl_link_get_kernel(socket_.get(), 0, change.name.c_str(), &found);
  if (error == -NLE_NODEV || error == -NLE_OBJ_NOTFOUND) return 0;
  if (error < 0) return error;
  Link const now(found);
  LinkBefore& before = befores_[change.name];
  int const ifindex = rtnl_link_get_ifindex(now.get());
  if (before.ifindex != ifindex) before = {.ifindex = ifindex}; // another link
  int const set = settings(change, now.get(), before);
  return set < 0 ? set : addresses(change, before);
}

int LinkWriter::settings(LinkChange const& change, rtnl_link* now, LinkBefore& before) {
  int const ifindex = before.ifindex;
  auto const bring = [&](auto const& wanted, auto const& present, auto setter) {
    if (!wanted || *wanted == present) return 0;
    auto const ask = [this, ifindex, setter](auto const& value) {
      return request(socket_.get(), ifindex, [&](rtnl_link* link) { setter(link, value); });
    };
    return step([&] { return ask(*wanted); }, [ask, present] { return ask(present); });
  };
  char const* const alias = rtnl_link_get_ifalias(now);
  std::string const description = alias == nullptr ? "" : alias;
  std::uint32_t const mtu = rtnl_link_get_mtu(now);
  bool const isEnabled = (rtnl_link_get_flags(now) & IFF_UP) != 0;
  int error = bring(settled(change.description, before.description, description), description, descriptionIs);
  if (error >= 0) error = bring(settled(change.mtu, before.mtu, mtu), mtu, mtuIs);
  if (error >= 0) error = bring(settled(change.enabled, before.enabled, isEnabled), isEnabled, enabledIs);
  return error;
}

int LinkWriter::addresses(LinkChange const& change, LinkBefore& before) {
  if (change.addresses.empty() && before.added.empty()) return 0;
  std::set<LinkAddress> there;
  if (int const error = addressesOf(before.ifindex, there); error < 0) return error;
  int error = 0;
  auto const bring = [&](LinkAddress const& address, bool isThere) {
    if (error < 0 || there.contains(address) == isThere) return;
    int const ifindex = before.ifindex;
    error = step([&] { return addressIs(ifindex, address, isThere); },
                 [=, this] { return addressIs(ifindex, address, !isThere); });
    if (error >= 0)
      isThere ? static_cast<void>(there.insert(address)) : static_cast<void>(there.erase(address));
  };
  auto const isWanted = [&](LinkAddress const& address) {
    return std::ranges::find(change.addresses, address) != change.addresses.end();
  };
  auto const isSameIp = [](LinkAddress const& a, LinkAddress const& b) {
    return a.isV6 == b.isV6 && a.ip == b.ip;
  };
  for (LinkAddress const& address : std::set<LinkAddress>(before.added)) {
    if (isWanted(address)) continue;
    bring(address, false);
    before.added.erase(address);
  }
  for (LinkAddress const& address : change.addresses) {
    if (there.contains(address)) continue;
    for (LinkAddress const& other : std::set<LinkAddress>(there)) {
      if (!isSameIp(other, address)) continue;
      bring(other, false);
      before.displaced.insert(other);
    }
    bring(address, true);
    before.added.insert(address);
  }
  for (LinkAddress const& address :
       std::set<LinkAddress>(before.displaced)) { // nobody wants its IP otherwise
    if (std::ranges::any_of(change.addresses, [&](auto const& wanted) { return isSameIp(wanted, address); }))
      continue;
    bring(address, true);
    before.displaced.erase(address);
  }
  return error;
}

int LinkWriter::step(std::function<int()> const& forth, std::function<int()> back) {
  if (onlyLooks_) return 0;
  int const error = forth();
  if (error >= 0) undo_.push_back(std::move(back));
  return error;
}

int LinkWriter::addressIs(int ifindex, LinkAddress const& address, bool isThere) {
  nl_addr* parsed = nullptr;
  std::string const text = fmt::format("{}/{}", address.ip, address.prefixLength);
  if (int const error = nl_addr_parse(text.c_str(), address.isV6 ? AF_INET6 : AF_INET, &parsed); error < 0)
    return error;
  IpAddress const ip(parsed);
  Address const made(rtnl_addr_alloc());
  if (!made) return -NLE_NOMEM;
  rtnl_addr_set_ifindex(made.get(), ifindex);
  if (int const error = rtnl_addr_set_local(made.get(), ip.get()); error < 0) return error;
  return isThere ? rtnl_addr_add(socket_.get(), made.get(), NLM_F_CREATE | NLM_F_EXCL)
                 : rtnl_addr_delete(socket_.get(), made.get(), 0);
}

int LinkWriter::addressesOf(int ifindex, std::set<LinkAddress>& there) {
  nl_cache* all = nullptr;
  if (int const error = rtnl_addr_alloc_cache(socket_.get(), &all); error < 0) return error;
  Cache const cache(all);
  for (nl_object* at = nl_cache_get_first(all); at != nullptr; at = nl_cache_get_next(at)) {
    auto* const address = reinterpret_cast<rtnl_addr*>(at);
    nl_addr* const local = rtnl_addr_get_local(address);
    if (rtnl_addr_get_ifindex(address) != ifindex || local == nullptr) continue;
    std::array<char, 80> text{};
    nl_addr2str(local, text.data(), text.size());
    std::string_view const whole = text.data();
    auto const ip = ipText(whole.substr(0, whole.find('/')));
    if (!ip) continue;
    there.insert({.isV6 = rtnl_addr_get_family(address) == AF_INET6,
                  .ip = *ip,
                  .prefixLength = static_cast<std::uint8_t>(rtnl_addr_get_prefixlen(address))});
  }
  return 0;
}

} // namespace Agent
