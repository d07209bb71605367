// Where the agent listens: "host:port" as text, and what follows from it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Kstd/Result.h"

namespace Agent {

// A plain value.
struct ListenAddress {
  std::string host; // a name or an address, IPv6 without brackets; of a Unix socket its path
  std::uint16_t port = 0;
  bool isUnix = false;

  // "127.0.0.1:9339", "[::1]:9339", "localhost:0", "unix:/run/agent.sock". The error is a text that names
  // what is wrong.
  [[nodiscard]] static Kstd::Result<ListenAddress, std::string> parse(std::string_view text);

  // Only this machine can reach it.
  [[nodiscard]] bool isLoopback() const;
  [[nodiscard]] std::string text() const;
};

} // namespace Agent
