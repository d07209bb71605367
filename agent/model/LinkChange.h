// What clients want of a link of the machine: between the configuration and whoever carries it to the kernel.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Kstd/Result.h"

namespace Agent {

struct LinkAddress {
  bool isV6 = false;
  std::string ip;
  std::uint8_t prefixLength = 0;
  auto operator<=>(LinkAddress const&) const = default;
};

// What is left without value, or out, goes back to what it was before it was first wanted otherwise; it stays
// where it never was.
struct LinkChange {
  std::string name;
  std::optional<std::string> description = {};
  std::optional<std::uint32_t> mtu = {};
  std::optional<bool> enabled = {};
  std::vector<LinkAddress> addresses = {};
  bool operator==(LinkChange const&) const = default;
};

// What links had before it was first wanted otherwise, by their names, as texts for a store; an empty one:
// there is nothing to remember.
using LinkBefores = std::map<std::string, std::string>;

// Who carries it. Scheduler thread; answers come later, on the same thread. A link that is not there wants
// nothing.
class LinkCarrier {
public:
  using Looked = std::function<void(Kstd::Result<LinkBefores, std::string> const&)>;
  // What the kernel said; the text names the interface and the reason.
  using Carried = std::function<void(Kstd::Result<void, std::string> const&)>;

  virtual ~LinkCarrier() = default;
  // Tells what is to be remembered once these are carried, and changes nothing.
  virtual void look(std::vector<LinkChange> links, Looked done) = 0;
  // All that is wanted of all of them, or nothing.
  virtual void carry(std::vector<LinkChange> links, Carried done) = 0;
};

} // namespace Agent
