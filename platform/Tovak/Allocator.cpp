// The records by type, which live for the process, and the dump of those that have objects.
#include "Tovak/Allocator.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include <cxxabi.h>
#include <fmt/format.h>

#include "Tovak/Lock.h"

namespace Tovak {

namespace {

struct Registry {
  Locking::Lock lock;
  std::unordered_map<std::type_index, std::unique_ptr<AllocationRecord>> records; // guarded by lock
};

// Never freed: objects of static storage duration may be freed after any static of ours.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

String typeNameOf(std::type_info const& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> const name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  return name ? name.get() : type.name();
}

} // namespace

AllocationRecord& Impl::allocationRecord(std::type_info const& type) {
  Registry& all = registry();
  std::lock_guard const guard(all.lock);
  std::unique_ptr<AllocationRecord>& record = all.records[type];
  if (!record) record = std::make_unique<AllocationRecord>(typeNameOf(type));
  return *record;
}

String allocatorDump() {
  std::vector<AllocationRecord const*> live;
  {
    Registry& all = registry();
    std::lock_guard const guard(all.lock);
    for (auto const& [type, record] : all.records)
      if (record->liveObjects() != 0) live.push_back(record.get());
  }
  std::sort(live.begin(), live.end(), [](auto* a, auto* b) { return a->typeName() < b->typeName(); });
  fmt::memory_buffer out;
  for (AllocationRecord const* record : live) {
    fmt::format_to(fmt::appender(out), "{}: {} bytes, {} objects\n", record->typeName(), record->liveBytes(),
                   record->liveObjects());
  }
  return fmt::to_string(out);
}

} // namespace Tovak
