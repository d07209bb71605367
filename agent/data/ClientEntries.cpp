#include "agent/data/ClientEntries.h"

#include <iterator>
#include <utility>

#include "agent/paths/OutPath.h"

namespace Agent {

bool ClientEntries::mayMake(std::size_t count) {
  bool const isThere = share_.growTo((paths_.size() + count) * kEntryBytes);
  share_.bytesAre(paths_.size() * kEntryBytes);
  return isThere;
}

void ClientEntries::made(std::string path) {
  paths_.insert(std::move(path));
  share_.bytesAre(paths_.size() * kEntryBytes);
}

void ClientEntries::gone(std::string_view path) {
  std::string_view const stem = path.substr(0, path.empty() ? 0 : path.size() - 1);
  for (auto at = paths_.lower_bound(stem); at != paths_.end() && at->starts_with(stem);)
    at = bytesAtOrBelow(path, *at) ? paths_.erase(at) : std::next(at);
  share_.bytesAre(paths_.size() * kEntryBytes);
}

} // namespace Agent
