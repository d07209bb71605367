// What every plan is held to, from whatever form of request it is made; refusals name the path. Pure: any
// thread.
#pragma once

#include <cstddef>
#include <string_view>

#include <grpcpp/support/status.h>
#include <nlohmann/json_fwd.hpp>

#include "agent/data/PlanNode.h"

namespace Agent {

struct SetPlan;

[[nodiscard]] grpc::Status refusal(grpc::StatusCode code, std::string_view path, std::string_view what);
[[nodiscard]] grpc::Status invalid(std::string_view path, std::string_view what);
[[nodiscard]] grpc::Status exhausted(char const* what, std::size_t most);

inline constexpr std::string_view kIsState = "is state and cannot be set";

// Whether a leaf repeats a key of the entry around it: such a one is compared, and never written.
[[nodiscard]] bool repeatsKey(PlanNode const& leaf);
// Gives a leaf its value. REQUIRES a leaf, and a typed value that is no JSON.
[[nodiscard]] grpc::Status writeLeaf(PlanNode& leaf, gnmi::TypedValue const& value);
[[nodiscard]] grpc::Status writeLeaf(PlanNode& leaf, nlohmann::json const& value);

// What holds of a plan as a whole, when all operations are in it: it has a bound; whoever writes into one
// case of a choice clears the others, and does not write into two at once.
[[nodiscard]] grpc::Status settle(SetPlan& plan);

} // namespace Agent
