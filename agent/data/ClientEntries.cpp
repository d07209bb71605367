// An entry costs what its containers take, as measured; removing a place gives back all entries at and below
// it.
#include "agent/data/ClientEntries.h"

#include <utility>

#include "agent/paths/OutPath.h"
#include "agent/paths/TypeTree.h"

namespace Agent {
namespace {

constexpr std::size_t kContainerBytes = 768; // an entity, what watches it, their places; measured
constexpr std::size_t kPlaceBytes = 256;     // of an entry, here

std::size_t containersIn(TypeNode const& node) {
  std::size_t count = 1;
  for (TypeNode const& child : node.children())
    if (child.leaf() == nullptr && !child.isList()) count += containersIn(child);
  return count;
}

} // namespace

std::size_t ClientEntries::bytesOf(TypeNode const& list) {
  return containersIn(list) * kContainerBytes + kPlaceBytes;
}

std::size_t ClientEntries::bytesOf(std::span<MadeEntry const> entries) {
  std::size_t bytes = 0;
  for (MadeEntry const& entry : entries)
    bytes += entry.bytes;
  return bytes;
}

void ClientEntries::made(MadeEntry entry) {
  if (entries_.emplace(std::move(entry.path), entry.bytes).second) bytes_ += entry.bytes;
  share_.bytesAre(bytes_);
}

void ClientEntries::gone(std::string_view path) {
  std::string_view const stem = path.substr(0, path.empty() ? 0 : path.size() - 1);
  for (auto at = entries_.lower_bound(stem); at != entries_.end() && at->first.starts_with(stem);) {
    if (!bytesAtOrBelow(path, at->first)) {
      ++at;
      continue;
    }
    bytes_ -= at->second;
    at = entries_.erase(at);
  }
  share_.bytesAre(bytes_);
}

} // namespace Agent
