// Agent::LinkWriter: brings links to what is wanted of them, all of it or nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/collect/Netlink.h"
#include "agent/model/LinkChange.h"

struct rtnl_link;

namespace Agent {

// Asks the kernel and waits for its answers; one thread.
class LinkWriter {
public:
  // The error names the link, and has the kernel's words; then all is as it was.
  [[nodiscard]] Kstd::Result<void, std::string> apply(std::vector<LinkChange> const& links);

private:
  // What a link had, as far as it has been changed here.
  struct Before {
    int ifindex = 0;
    std::optional<std::string> description = {};
    std::optional<std::uint32_t> mtu = {};
    std::optional<bool> enabled = {};
    std::set<LinkAddress> added = {};     // have been added,
    std::set<LinkAddress> displaced = {}; // and these taken away for one of the same IP
    [[nodiscard]] bool isEmpty() const {
      return !description && !mtu && !enabled && added.empty() && displaced.empty();
    }
  };

  // Errors of netlink below zero.
  int applyTo(LinkChange const& change);
  int settings(LinkChange const& change, rtnl_link* now, Before& before);
  int addresses(LinkChange const& change, Before& before);
  // Does something, and remembers how it is undone.
  int step(std::function<int()> const& forth, std::function<int()> back);
  int addressIs(int ifindex, LinkAddress const& address, bool isThere);
  [[nodiscard]] int addressesOf(int ifindex, std::set<LinkAddress>& there);

  NetlinkSocket socket_;
  std::map<std::string, Before> befores_; // by name
  std::vector<std::function<int()>> undo_;
};

} // namespace Agent
