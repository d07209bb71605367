// The text taken apart, with what is wrong with it, and what counts as loopback. Names are resolved where a
// socket is made.
#include "agent/service/ListenAddress.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <charconv>

namespace Agent {

Kstd::Result<ListenAddress, std::string> ListenAddress::parse(std::string_view text) {
  if (text.starts_with("unix:")) {
    std::string_view const path = text.substr(5);
    if (path.empty()) return Kstd::Err(std::string("'unix:' needs the path of a socket"));
    return ListenAddress{.host = std::string(path), .port = 0, .isUnix = true};
  }
  std::size_t const colon = text.rfind(':');
  if (colon == std::string_view::npos || colon == 0)
    return Kstd::Err(fmt::format("'{}' is not of the form HOST:PORT", text));
  std::string_view host = text.substr(0, colon);
  std::string_view const digits = text.substr(colon + 1);
  if (host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  else if (host.find(':') != std::string_view::npos)
    return Kstd::Err(fmt::format("'{}': an IPv6 address stands in brackets, as in [::1]:9339", text));
  ListenAddress address{.host = std::string(host)};
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), address.port);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size())
    return Kstd::Err(fmt::format("'{}': '{}' is not a port", text, digits));
  if (host.empty()) return Kstd::Err(fmt::format("'{}' has no host", text));
  return address;
}

bool ListenAddress::isLoopback() const {
  if (isUnix || host == "localhost") return true;
  in_addr four{};
  if (::inet_pton(AF_INET, host.c_str(), &four) == 1) return (ntohl(four.s_addr) >> 24) == IN_LOOPBACKNET;
  in6_addr six{};
  return ::inet_pton(AF_INET6, host.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

std::string ListenAddress::text() const {
  if (isUnix) return fmt::format("unix:{}", host);
  return host.find(':') == std::string::npos ? fmt::format("{}:{}", host, port)
                                             : fmt::format("[{}]:{}", host, port);
}

} // namespace Agent
