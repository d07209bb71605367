// The plan of a request straight from its bytes: a shorter way for what the device's own processes send, many
// single leaves again and again. Pure: any thread.
//
// Invariants
// 1. It gives what the whole way does (the message parsed, `setPlanOf`, an answer that repeats its paths), or
//    nothing. Whatever it does not know, and whatever is wrong, goes the whole way, which says what.
// 2. Of a path it resolves the elements alone whose bytes are others than those of the path before.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include <grpcpp/support/slice.h>

#include "agent/data/SetPlan.h"

namespace Agent {

struct StatePlan {
  std::unique_ptr<SetPlan> plan;
  grpc::Slice answer; // the bytes of the SetResponse, but for its timestamp
};

// Of a request that updates leaves by typed values, and does nothing else: there are no deletes, no replaces,
// no extensions and no JSON.
[[nodiscard]] std::optional<StatePlan> statePlanOf(std::string_view request,
                                                   Writer writer = Writer::Provider);

} // namespace Agent
