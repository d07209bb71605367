// What a SetRequest asks for, put together: checked whole against the types, JSON taken apart into leaves,
// the operations laid over each other in their order. Pure: any thread.
//
// Invariants
// 1. A plan is the outcome of the operations, not their list: what a later operation overwrites or removes is
//    not in it. Carrying it out in any order gives what the operations would have given one after the other.
// 2. Deletes come before everything else in a request. So a delete need not look at what is written: it only
//    marks places as cleared, and what is written below such a place stays.
// 3. What is to be there afterwards is marked `isNamed`, and so is everything above it.
// docs/decisions.md: "What is a Set?"
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "agent/data/PlanNode.h"
#include "agent/paths/RequestPath.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

struct SetPlan {
  using OrError = Kstd::Result<std::unique_ptr<SetPlan>, grpc::Status>;

  PlanNode root{TypeNode::root()};
  std::vector<RequestPath> deletes; // may hold wildcards: what they match depends on the model

  // Has a place go that the plan does not write.
  void clear(gnmi::Path const& place);
};

inline constexpr int kMaxSetOperations = 50'000;
inline constexpr std::size_t kMaxWildcardDeletes = 64; // each may have the whole model looked at
inline constexpr std::size_t kMaxPlanNodes = 50'000;   // what JSON holds counts by its members

// INVALID_ARGUMENT and NOT_FOUND with the path and what is wrong with it; UNIMPLEMENTED for what this agent
// does not offer; RESOURCE_EXHAUSTED beyond the limits above. CANCELLED soon after `isCancelled`, which may
// be null, has become true.
[[nodiscard]] SetPlan::OrError setPlanOf(gnmi::SetRequest const& request,
                                         std::atomic<bool> const* isCancelled = nullptr,
                                         Writer writer = Writer::Client);

} // namespace Agent
