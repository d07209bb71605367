// What clients want of a link of the machine: between the configuration and whoever carries it to the kernel.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

} // namespace Agent
