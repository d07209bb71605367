// Paths back from their bytes, and the five leaves among them that the kernel takes.
#include "agent/data/LinkWishes.h"

#include "agent/data/SetRecord.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/Pattern.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

std::string keyOf(gnmi::PathElem const& elem) {
  return elem.key().empty() ? std::string() : elem.key().begin()->second;
}

// Of "interfaces/interface/config/LEAF" the leaf.
void settingIs(LinkChange& link, std::string const& leaf, gnmi::TypedValue const& value) {
  if (leaf == "description") link.description = value.string_val();
  if (leaf == "mtu") link.mtu = static_cast<std::uint32_t>(value.uint_val());
  if (leaf == "enabled") link.enabled = value.bool_val();
}

// ".../subinterfaces/subinterface[index=0]/ipv4/addresses/address[ip]/config/prefix-length".
void addressIs(LinkChange& link, gnmi::Path const& path, gnmi::TypedValue const& value) {
  if (path.elem_size() != 9 || path.elem(2).name() != "subinterfaces" || keyOf(path.elem(3)) != "0" ||
      path.elem(6).name() != "address" || path.elem(8).name() != "prefix-length")
    return;
  link.addresses.push_back({.isV6 = path.elem(4).name() == "ipv6",
                            .ip = keyOf(path.elem(6)),
                            .prefixLength = static_cast<std::uint8_t>(value.uint_val())});
}

// The bytes of a link's entry.
std::string entryBytes(std::string const& name) {
  gnmi::Path entry;
  entry.add_elem()->set_name("interfaces");
  entry.add_elem()->set_name("interface");
  (*entry.mutable_elem(1)->mutable_key())["name"] = name;
  return pathBytes(PathView(entry, 0));
}

} // namespace

std::vector<LinkChange> LinkWishes::of(std::set<std::string> const& links) const {
  std::vector<LinkChange> wanted;
  for (std::string const& name : links) {
    std::string const above = entryBytes(name);
    LinkChange& link = wanted.emplace_back(LinkChange{.name = name});
    for (auto at = map_.lower_bound(above); at != map_.end() && at->first.starts_with(above); ++at) {
      if (at->second.empty()) continue;
      gnmi::Path const path = pathOfBytes(at->first);
      gnmi::TypedValue value;
      value.ParseFromString(at->second);
      if (path.elem_size() == 4 && path.elem(2).name() == "config")
        settingIs(link, path.elem(3).name(), value);
      addressIs(link, path, value);
    }
  }
  return wanted;
}

std::set<std::string> LinkWishes::links() const {
  std::set<std::string> links;
  for (auto const& [bytes, value] : map_) {
    if (value.empty() || isBefore(bytes)) continue;
    gnmi::Path const path = pathOfBytes(bytes);
    if (path.elem_size() > 2 && path.elem(0).name() == "interfaces") links.insert(keyOf(path.elem(1)));
  }
  return links;
}

gnmi::SetRequest LinkWishes::requestFor(std::string const& link) const {
  std::string const above = entryBytes(link);
  ConfigMap here;
  for (auto at = map_.lower_bound(above); at != map_.end() && at->first.starts_with(above); ++at)
    here.insert(*at);
  return requestOf(inOrder(here));
}

} // namespace Agent
