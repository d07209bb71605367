// Carries what clients configure to the machine: for an agent that was told to apply configuration.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "agent/collect/ConfigApplier.h"

namespace Agent {

struct Tree;

// What is deleted from the configuration goes back to what the link had before a client changed it. What the
// kernel refuses is traced; the configuration stays, the state tells the truth. Made and dropped while the
// scheduler does not run; the tree outlives it.
class ConfigCarrier {
public:
  ConfigCarrier(std::shared_ptr<Tovak::TaskScheduler> scheduler, Tree const& tree);
  ConfigCarrier(ConfigCarrier const&) = delete;
  ConfigCarrier& operator=(ConfigCarrier const&) = delete;

  // Asks the kernel for what is configured of these now. Scheduler thread.
  void carry(std::set<std::string> const& interfaces);

private:
  Tree const& tree_;
  ConfigApplier applier_;
};

} // namespace Agent
