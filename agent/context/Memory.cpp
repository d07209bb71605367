// The limit of the machine and its control groups (both versions), the budgets as shares of it, and when the
// heap is trimmed.
#include "agent/context/Memory.h"

#include <malloc.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <limits>
#include <string_view>

namespace Agent {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kDefaultMost = std::size_t{1} << 30;
// What has been let go is given back soon when it is much, and some time when it is little: to trim takes a
// walk through the heap.
constexpr std::size_t kMuch = std::size_t{16} << 20;
constexpr std::int64_t kMuchEveryNs = 5'000'000'000;
constexpr std::size_t kLittle = std::size_t{1} << 20;
constexpr std::int64_t kLittleEveryNs = 60'000'000'000;
constexpr std::size_t kKeptFree = std::size_t{1} << 20; // at the end of the heap

// The number that a file begins with; `kNone` for "max", and when there is none.
std::size_t numberIn(std::string const& file) {
  std::ifstream in(file);
  std::string text;
  std::size_t value = kNone;
  if (in >> text) std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

std::size_t machineLimit(std::string const& root) {
  std::ifstream in(root + "/proc/meminfo");
  std::string name;
  std::size_t kibibytes = 0;
  return in >> name >> kibibytes && name == "MemTotal:" ? kibibytes << 10 : kNone;
}

// Of a group and those above it.
std::size_t groupLimit(std::string const& mount, std::string group, char const* file) {
  std::size_t limit = numberIn(mount + '/' + file);
  for (; group.starts_with('/') && group.size() > 1; group.erase(group.rfind('/')))
    limit = std::min(limit, numberIn(mount + group + '/' + file));
  return limit;
}

} // namespace

std::size_t memoryLimit(std::string const& root) {
  std::size_t limit = machineLimit(root);
  std::ifstream groups(root + "/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) { // "0::/system.slice/x", "7:memory:/x"
    std::size_t const names = line.find(':');
    std::size_t const path = line.find(':', names + 1);
    if (names == line.npos || path == line.npos) continue;
    std::string_view const controllers = std::string_view(line).substr(names + 1, path - names - 1);
    if (controllers.empty())
      limit = std::min(limit, groupLimit(root + "/sys/fs/cgroup", line.substr(path + 1), "memory.max"));
    if (controllers == "memory")
      limit = std::min(
          limit, groupLimit(root + "/sys/fs/cgroup/memory", line.substr(path + 1), "memory.limit_in_bytes"));
  }
  return limit;
}

MemoryBudgets::MemoryBudgets(std::size_t bytes)
    : whole(std::make_shared<ByteBudget>(bytes != 0 ? bytes : std::min(memoryLimit() / 2, kDefaultMost)))
    , queues(std::make_shared<ByteBudget>(whole->limit() / 2, whole))
    , answers(std::make_shared<ByteBudget>(whole->limit() / 4, whole))
    , sent(std::make_shared<ByteBudget>(whole->limit() / 4, whole))
    , plans(std::make_shared<ByteBudget>(whole->limit() / 4, whole))
    , entries(std::make_shared<ByteBudget>(whole->limit() / 4, whole)) {}

bool HeapTrimmer::isDue(std::int64_t nowNs) {
  std::size_t const used = budget_.used();
  peak_ = std::max(peak_, used);
  std::size_t const letGo = peak_ - used;
  std::int64_t const sinceNs = nowNs - trimmedNs_;
  bool const isMuch = letGo >= kMuch && sinceNs >= kMuchEveryNs;
  if (!isMuch && (letGo < kLittle || sinceNs < kLittleEveryNs)) return false;
  peak_ = used;
  trimmedNs_ = nowNs;
  return true;
}

void HeapTrimmer::trim() { malloc_trim(kKeptFree); }

// A heap that keeps no such pieces refuses it.
void HeapTrimmer::heapIsEven() { static_cast<void>(mallopt(M_MXFAST, 0)); }

} // namespace Agent
