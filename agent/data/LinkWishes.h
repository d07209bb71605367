// What clients have configured of links, for whoever carries it to the kernel. What the machine gives is not
// in it: nobody asked for that. Scheduler thread.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "agent/model/LinkChange.h"
#include "agent/store/ConfigRecord.h"

namespace Agent {

class LinkWishes {
public:
  // Lays a change of configuration over it; the answer takes it back.
  ConfigChange changeIs(ConfigChange change) { return std::move(change).applyTo(map_); }
  [[nodiscard]] std::vector<LinkChange> of(std::set<std::string> const& links) const;

private:
  ConfigMap map_; // as a store has it
};

} // namespace Agent
