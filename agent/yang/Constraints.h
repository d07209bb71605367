// Agent::Constraints: what the modules of a run ask of the configuration as a whole.
#pragma once

#include "agent/context/Worker.h"
#include "agent/store/ConfigRules.h"
#include "agent/yang/ConfigTree.h"

namespace Agent {

// Holds the configuration a second time, on a thread of its own. The model outlives it.
class Constraints final : public ConfigRules {
public:
  Constraints(YangModel const& model, ConfigTree::Nodes configuration)
      : tree_(model, std::move(configuration)) {}

  void changeIs(ConfigChange change, How how, Told told) override;
  void keep() override;
  void takeBack() override;

private:
  ConfigTree tree_;
  Worker worker_; // ends first
};

} // namespace Agent
