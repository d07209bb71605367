// Agent::LinkWriter: brings links to what is wanted of them, all of it or nothing.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/collect/LinkBefore.h"
#include "agent/collect/Netlink.h"
#include "agent/model/LinkChange.h"

struct rtnl_link;

namespace Agent {

// Asks the kernel and waits for its answers; one thread.
class LinkWriter {
public:
  LinkWriter() : boot_(bootName()) {}

  // The error names the link, and has the kernel's words; then all is as it was.
  [[nodiscard]] Kstd::Result<void, std::string> apply(std::vector<LinkChange> const& links);
  // What is to be remembered of these links once that has been applied; changes nothing.
  [[nodiscard]] Kstd::Result<LinkBefores, std::string> look(std::vector<LinkChange> const& links);
  // What an earlier process remembered. Before the first change.
  void beforesAre(LinkBefores const& befores);

private:
  // Errors of netlink below zero.
  [[nodiscard]] int applyAll(std::vector<LinkChange> const& links, std::string& refused);
  int applyTo(LinkChange const& change);
  int settings(LinkChange const& change, rtnl_link* now, LinkBefore& before);
  int addresses(LinkChange const& change, LinkBefore& before);
  // Does something, and remembers how it is undone.
  int step(std::function<int()> const& forth, std::function<int()> back);
  int addressIs(int ifindex, LinkAddress const& address, bool isThere);
  [[nodiscard]] int addressesOf(int ifindex, std::set<LinkAddress>& there);

  std::string const boot_;
  NetlinkSocket socket_;
  std::map<std::string, LinkBefore> befores_; // by name
  std::vector<std::function<int()>> undo_;
  bool onlyLooks_ = false;
};

} // namespace Agent
