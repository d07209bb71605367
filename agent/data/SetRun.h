// Carries out a checked Set on the model, or leaves it as it was. Scheduler thread.
#pragma once

#include <set>
#include <string>

#include <absl/functional/function_ref.h>
#include <grpcpp/support/status.h>

#include "agent/data/SetPlan.h"

namespace Agent {

class ClientEntries;
class Runtime;

struct SetOutcome {
  grpc::Status status;
  bool hasChanged = false;          // the model is another one than before
  std::set<std::string> interfaces; // the names of those whose configuration was written
};

// Compares the plan with the model and writes what differs, in one turn. When the model refuses a write half-way, everything written before
// is put back.
//
// Nothing is written that stays as it is; entries that a request deletes and makes again stay, with their state. Entries are removed
// last; `removalsBegin` is called before.
// RESOURCE_EXHAUSTED when there is no memory for the entries it would make.
[[nodiscard]] SetOutcome setRun(SetPlan& plan, ClientEntries& entries,
                                absl::FunctionRef<void()> removalsBegin);

// The same as clients see it: while it runs, what subscribers would be told waits aside; it is forgotten after a refusal, else told in
// the published order, deletes first. After a success the response gets its timestamp and whoever applies configuration learns of it.
[[nodiscard]] grpc::Status setExecuted(SetPlan& plan, Runtime& runtime, gnmi::SetResponse& response);

} // namespace Agent
