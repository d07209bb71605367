// Made by inet_pton and inet_ntop, without the zone; IPv6 addresses with a dotted tail get it in hexadecimal.
#include "agent/collect/IpText.h"

#include <arpa/inet.h>

#include <array>

#include <fmt/format.h>

namespace Agent {

std::optional<std::string> ipText(std::string_view text) {
  std::string const address(text.substr(0, text.find('%')));
  std::array<unsigned char, 16> bytes{};
  std::array<char, INET6_ADDRSTRLEN> canonical{};
  bool const isV6 = address.find(':') != address.npos;
  int const family = isV6 ? AF_INET6 : AF_INET;
  if (::inet_pton(family, address.c_str(), bytes.data()) != 1 ||
      ::inet_ntop(family, bytes.data(), canonical.data(), canonical.size()) == nullptr)
    return std::nullopt;
  std::string made(canonical.data());
  if (isV6 && made.find('.') != made.npos) {
    made.resize(made.rfind(':') + 1);
    made += fmt::format("{:x}:{:x}", bytes[12] << 8 | bytes[13], bytes[14] << 8 | bytes[15]);
  }
  return made;
}

} // namespace Agent
