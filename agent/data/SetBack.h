// What leads the configuration back to what it was before a Set. Scheduler thread, in slices.
#pragma once

#include <string>
#include <vector>

#include "agent/data/ModelPlace.h"
#include "agent/data/Steps.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Tovak {
class Task;
} // namespace Tovak

namespace Agent {

class SetDiff;

// Deletes what the Set touches, and gives it the values that it has now. Made and run before the Set is
// carried out.
class SetBack {
public:
  SetBack(SetDiff const& diff, Tovak::Task const& task);
  // Once.
  Steps run();

  gnmi::SetRequest request;

private:
  Steps place(std::string const& bytes);
  Steps below(TypeNode type, Handle object);
  void leaf(TypeNode const& type, Handle const& object);

  std::vector<std::string> places_; // none below another
  Tovak::Task const& task_;
  gnmi::Path path_;
};

} // namespace Agent
