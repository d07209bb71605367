// Made from a socket's address or from gRPC's text of one; of IPv6 the /64 network alone.
#include "agent/service/Place.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace Agent {
namespace {

std::string textOf(int family, void const* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  return ::inet_ntop(family, address, text.data(), text.size()) == nullptr ? std::string() : text.data();
}

std::string placeOf(in6_addr six) {
  if (IN6_IS_ADDR_V4MAPPED(&six)) return textOf(AF_INET, six.s6_addr + 12);
  std::fill(six.s6_addr + 8, six.s6_addr + 16, std::uint8_t{0});
  return textOf(AF_INET6, &six);
}

} // namespace

std::string placeOf(sockaddr_storage const& peer) {
  if (peer.ss_family == AF_INET) return textOf(AF_INET, &reinterpret_cast<sockaddr_in const&>(peer).sin_addr);
  if (peer.ss_family == AF_INET6) return placeOf(reinterpret_cast<sockaddr_in6 const&>(peer).sin6_addr);
  return {};
}

std::string placeOf(std::string_view peer) {
  if (!peer.starts_with("ipv")) return {};
  std::string_view const address = peer.substr(5, std::max<std::size_t>(peer.rfind(':'), 5) - 5);
  if (peer.starts_with("ipv4:")) return std::string(address);
  std::size_t const begin = address.find("%5B");
  std::string_view const inside = begin == address.npos ? address : address.substr(begin + 3);
  std::string const text(inside.substr(0, inside.find('%'))); // a bracket, or a zone before it
  in6_addr six{};
  return ::inet_pton(AF_INET6, text.c_str(), &six) == 1 ? placeOf(six) : std::string(address);
}

} // namespace Agent
