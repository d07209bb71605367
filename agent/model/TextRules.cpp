// The patterns as they are published, run by RE2 over whole texts; lengths count characters, not bytes.
#include "agent/model/TextRules.h"

#include <algorithm>

#include <fmt/format.h>
#include <re2/re2.h>

namespace Agent {
namespace {

// Patterns of XML Schema, which mean the whole text and have no anchors of their own; what these use of its
// syntax means the same here.
constexpr std::string_view kDomainName =
    R"((([a-zA-Z0-9_]([a-zA-Z0-9\-_]){0,61})?[a-zA-Z0-9]\.)*([a-zA-Z0-9_]([a-zA-Z0-9\-_]){0,61})?[a-zA-Z0-9]\.?|\.)";
constexpr std::string_view kIpv4Address =
    R"(([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})";
constexpr std::string_view kIpv6Address = "([0-9a-fA-F]{1,4}:){7}[0-9a-fA-F]{1,4}|"
                                          "([0-9a-fA-F]{1,4}:){1,7}:|"
                                          "([0-9a-fA-F]{1,4}:){1,6}:[0-9a-fA-F]{1,4}|"
                                          "([0-9a-fA-F]{1,4}:){1,5}(:[0-9a-fA-F]{1,4}){1,2}|"
                                          "([0-9a-fA-F]{1,4}:){1,4}(:[0-9a-fA-F]{1,4}){1,3}|"
                                          "([0-9a-fA-F]{1,4}:){1,3}(:[0-9a-fA-F]{1,4}){1,4}|"
                                          "([0-9a-fA-F]{1,4}:){1,2}(:[0-9a-fA-F]{1,4}){1,5}|"
                                          "[0-9a-fA-F]{1,4}:(:[0-9a-fA-F]{1,4}){1,6}|"
                                          ":((:[0-9a-fA-F]{1,4}){1,7}|:)";
constexpr std::string_view kMacAddress = "[0-9a-fA-F]{2}(:[0-9a-fA-F]{2}){5}";
constexpr std::string_view kPhysAddress = "([0-9a-fA-F]{2}(:[0-9a-fA-F]{2})*)?";
constexpr std::string_view kDateAndTime =
    R"([0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])[Tt]([01][0-9]|2[0-3]):[0-5][0-9]:([0-5][0-9]|60)(\.[0-9]+)?)"
    R"(([Zz]|[+-]([01][0-9]|2[0-3]):[0-5][0-9]))";

re2::RE2 const* patternOf(std::string_view text) {
  return new re2::RE2(re2::StringPiece(text.data(), text.size()));
}

std::size_t charactersOf(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80U; }));
}

} // namespace

Kstd::Result<void, std::string> TextRules::check(std::string_view text) const {
  std::size_t const length = charactersOf(text);
  if (length < minLength || length > maxLength)
    return Kstd::Err(fmt::format("a {} has {}..{} characters; found {}", name, minLength, maxLength, length));
  if (pattern == nullptr || re2::RE2::FullMatch(re2::StringPiece(text.data(), text.size()), *pattern))
    return {};
  return Kstd::Err(fmt::format("'{}' is no {}", text.substr(0, 64), name));
}

TextRules const& domainName() {
  static TextRules const rules{"domain-name", 1, 253, patternOf(kDomainName)};
  return rules;
}
TextRules const& ipv4Address() {
  static TextRules const rules{.name = "ipv4-address", .pattern = patternOf(kIpv4Address)};
  return rules;
}
TextRules const& ipv6Address() {
  static TextRules const rules{.name = "ipv6-address", .pattern = patternOf(kIpv6Address)};
  return rules;
}
TextRules const& ipAddress() {
  static TextRules const rules{.name = "ip-address",
                               .pattern = patternOf(fmt::format("{}|{}", kIpv4Address, kIpv6Address))};
  return rules;
}
TextRules const& listenAddress() {
  static TextRules const rules{.name = "ip-address or ANY",
                               .pattern = patternOf(fmt::format("{}|{}|ANY", kIpv4Address, kIpv6Address))};
  return rules;
}
TextRules const& macAddress() {
  static TextRules const rules{.name = "mac-address", .pattern = patternOf(kMacAddress)};
  return rules;
}
TextRules const& physAddress() {
  static TextRules const rules{.name = "phys-address", .pattern = patternOf(kPhysAddress)};
  return rules;
}
TextRules const& dateAndTime() {
  static TextRules const rules{.name = "date-and-time", .pattern = patternOf(kDateAndTime)};
  return rules;
}

} // namespace Agent
