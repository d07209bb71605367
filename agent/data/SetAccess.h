// Whether a caller may write all that a Set would touch.
#pragma once

#include <grpcpp/support/status.h>

#include "agent/access/RuleTree.h"
#include "agent/data/SetPlan.h"

namespace Agent {

// PERMISSION_DENIED with the first path that may not be written, or not all of it. What is cleared, deleted
// or replaced must be permitted as a whole, as far as it can be written, whatever the model holds of it: the
// answer tells nothing of what is there. Pure: any thread.
[[nodiscard]] grpc::Status mayWrite(RuleTree const& rules, SetPlan const& plan);

} // namespace Agent
