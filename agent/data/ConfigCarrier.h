// Carries what clients configure to the machine: for an agent that was told to apply configuration.
#pragma once

#include <set>
#include <string>

#include "agent/collect/ConfigApplier.h"

namespace Agent {

class Runtime;

// While it lives, each Set that writes the configuration of interfaces is followed by a request to the kernel for these. What is deleted
// from the configuration goes back to what the link had before a client changed it. What the kernel refuses is traced; the configuration
// stays, the state tells the truth. Made and dropped on the thread that owns the runtime, which outlives it.
class ConfigCarrier {
public:
  explicit ConfigCarrier(Runtime& runtime);
  ~ConfigCarrier();
  ConfigCarrier(ConfigCarrier const&) = delete;
  ConfigCarrier& operator=(ConfigCarrier const&) = delete;

private:
  void carry(std::set<std::string> const& interfaces);

  Runtime& runtime_;
  ConfigApplier applier_;
};

} // namespace Agent
