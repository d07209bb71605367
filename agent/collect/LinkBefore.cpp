// A line for each fact, its name first; the description comes last and takes all that follows.
#include "agent/collect/LinkBefore.h"

#include <fmt/format.h>

#include <fstream>
#include <sstream>
#include <utility>

namespace Agent {
namespace {

constexpr std::string_view kDescription = "description ";

void appendAddresses(std::string& text, char const* what, std::set<LinkAddress> const& addresses) {
  for (LinkAddress const& address : addresses)
    text += fmt::format("{} {} {} {}\n", what, address.isV6 ? 6 : 4, address.ip, address.prefixLength);
}

bool takeAddress(std::istringstream& line, std::set<LinkAddress>& into) {
  int version = 0;
  unsigned length = 0;
  LinkAddress address;
  if (!(line >> version >> address.ip >> length)) return false;
  address.isV6 = version == 6;
  address.prefixLength = static_cast<std::uint8_t>(length);
  into.insert(std::move(address));
  return true;
}

// False: it is no such line, or of another start.
bool takeLine(std::string const& text, std::string_view boot, LinkBefore& before) {
  std::istringstream line(text);
  std::string what;
  line >> what;
  if (what == "added") return takeAddress(line, before.added);
  if (what == "displaced") return takeAddress(line, before.displaced);
  if (what == "mtu") return static_cast<bool>(line >> before.mtu.emplace());
  if (what == "enabled") return static_cast<bool>(line >> before.enabled.emplace());
  if (what == "ifindex") return static_cast<bool>(line >> before.ifindex);
  std::string name;
  return what == "boot" && line >> name && name == boot;
}

} // namespace

void LinkBefore::otherwise(LinkBefore const& other) {
  if (other.ifindex != ifindex) return;
  if (!description) description = other.description;
  if (!mtu) mtu = other.mtu;
  if (!enabled) enabled = other.enabled;
  added.insert(other.added.begin(), other.added.end());
  displaced.insert(other.displaced.begin(), other.displaced.end());
}

std::string LinkBefore::text(std::string_view boot) const {
  if (isEmpty()) return {};
  std::string text = fmt::format("boot {}\nifindex {}\n", boot, ifindex);
  if (mtu) text += fmt::format("mtu {}\n", *mtu);
  if (enabled) text += fmt::format("enabled {}\n", *enabled ? 1 : 0);
  appendAddresses(text, "added", added);
  appendAddresses(text, "displaced", displaced);
  if (description) text.append(kDescription).append(*description);
  return text;
}

std::optional<LinkBefore> LinkBefore::of(std::string_view text, std::string_view boot) {
  LinkBefore before;
  if (!text.starts_with("boot ")) return std::nullopt;
  while (!text.empty()) {
    if (text.starts_with(kDescription)) {
      before.description = text.substr(kDescription.size());
      return before;
    }
    std::size_t const end = text.find('\n');
    if (end == text.npos || !takeLine(std::string(text.substr(0, end)), boot, before)) return std::nullopt;
    text.remove_prefix(end + 1);
  }
  return before;
}

std::string bootName() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string name;
  return file >> name ? name : "unknown";
}

std::string mergedBefore(std::string_view first, std::string_view second) {
  std::string const boot = bootName();
  auto before = LinkBefore::of(first, boot);
  auto const other = LinkBefore::of(second, boot);
  if (before && other) before->otherwise(*other);
  if (!before) before = other;
  return before ? before->text(boot) : std::string();
}

} // namespace Agent
