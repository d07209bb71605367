// What the sources share: where the machine's files are, and what several of them need to know of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/collect/TextFiles.h"

namespace Agent {

// Owned by the collectors; outlives their sources. Scheduler thread.
struct Host {
  TextRoot proc{"/proc"};
  TextRoot sys{"/sys"};
  TextRoot etc{"/etc"};
  std::uint64_t ticksPerSecond = 100; // of the times in /proc
  std::uint64_t pageBytes = 4096;

  // Found out by the first sources of a round; nothing while unknown.
  std::optional<std::uint64_t> bootNs; // ns since the Unix epoch
  std::optional<std::uint64_t> physicalBytes;
};

} // namespace Agent
