// Where peers call from: what limits for each peer count by.
#pragma once

#include <sys/socket.h>

#include <string>
#include <string_view>

namespace Agent {

// An IPv4 address, or the /64 network of an IPv6 one, of which a single machine has all the addresses. Empty
// for sockets of this machine's file system, whose peers have no address.
[[nodiscard]] std::string placeOf(sockaddr_storage const& peer);
// The same by what gRPC calls the peer: "ipv4:10.0.0.1:5000", "ipv6:%5B::1%5D:5000", "unix:".
[[nodiscard]] std::string placeOf(std::string_view peer);

} // namespace Agent
