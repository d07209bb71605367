// What clients have configured of links, for whoever carries it to the kernel. What the machine gives is not
// in it: nobody asked for that. Scheduler thread.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/model/LinkChange.h"
#include "agent/store/ConfigRecord.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

class LinkWishes {
public:
  // What a store held: all of it is wanted. Before the first change.
  void mapIs(ConfigMap map) { map_ = std::move(map); }
  // Lays a change of configuration over it; the answer takes it back.
  ConfigChange changeIs(ConfigChange change) { return std::move(change).applyTo(map_); }
  [[nodiscard]] std::vector<LinkChange> of(std::set<std::string> const& links) const;
  // Those of which anything is wanted.
  [[nodiscard]] std::set<std::string> links() const;
  // What has been configured of a link, as a request.
  [[nodiscard]] gnmi::SetRequest requestFor(std::string const& link) const;

private:
  ConfigMap map_; // as a store has it
};

} // namespace Agent
