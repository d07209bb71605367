// Modes, intervals and encoding of a list; what is asked for twice is dropped here. Whether paths exist is
// asked later.
#include "agent/subscribe/SubscribePlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "agent/context/Limits.h"
#include "agent/encoding/LeafEncoding.h"
#include "agent/paths/RequestParts.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

grpc::Status invalid(std::string const& what) { return {grpc::StatusCode::INVALID_ARGUMENT, what}; }

// An interval of a request, 0 for none.
grpc::Status takeInterval(char const* what, std::uint64_t asked, Limits const& limits, std::int64_t& into) {
  if (asked == 0) return grpc::Status::OK;
  if (asked < static_cast<std::uint64_t>(limits.sampleFloorNs) ||
      asked > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() / 2)) {
    return invalid(fmt::format("the {} of {} ns cannot be kept: the shortest is {} ns", what, asked,
                               limits.sampleFloorNs));
  }
  into = static_cast<std::int64_t>(asked);
  return grpc::Status::OK;
}

grpc::Status takeMode(gnmi::Subscription const& from, Limits const& limits, SubscriptionPlan& into) {
  switch (from.mode()) {
  case gnmi::TARGET_DEFINED:
    into.mode = LeafMode::TargetDefined;
    into.sampleNs = limits.targetDefinedNs;
    break;
  case gnmi::ON_CHANGE: into.mode = LeafMode::OnChange; break;
  case gnmi::SAMPLE:
    into.mode = LeafMode::Sample;
    into.sampleNs = limits.sampleFloorNs;
    break;
  default: return invalid(fmt::format("unknown subscription mode {}", static_cast<int>(from.mode())));
  }
  into.suppressRedundant = from.suppress_redundant() && into.mode != LeafMode::OnChange;
  if (into.mode != LeafMode::OnChange) {
    if (grpc::Status status = takeInterval("sample_interval", from.sample_interval(), limits, into.sampleNs);
        !status.ok())
      return status;
  }
  return takeInterval("heartbeat_interval", from.heartbeat_interval(), limits, into.heartbeatNs);
}

grpc::Status takeListMode(gnmi::SubscriptionList const& list, CallPlan& into) {
  switch (list.mode()) {
  case gnmi::SubscriptionList::STREAM: into.mode = CallMode::Stream; return grpc::Status::OK;
  case gnmi::SubscriptionList::ONCE: into.mode = CallMode::Once; return grpc::Status::OK;
  case gnmi::SubscriptionList::POLL: into.mode = CallMode::Poll; return grpc::Status::OK;
  default: return invalid(fmt::format("unknown mode {} of the list", static_cast<int>(list.mode())));
  }
}

} // namespace

CallPlan::OrError CallPlan::of(gnmi::SubscriptionList const& list, Limits const& limits) {
  CallPlan plan;
  if (grpc::Status status = takeListMode(list, plan); !status.ok()) return status;
  if (!gnmi::Encoding_IsValid(list.encoding()) || !isEncodingSupported(list.encoding())) {
    return grpc::Status(grpc::StatusCode::UNIMPLEMENTED,
                        fmt::format("the encoding {} is not supported: JSON, JSON_IETF and PROTO are",
                                    gnmi::Encoding_IsValid(list.encoding())
                                        ? gnmi::Encoding_Name(list.encoding())
                                        : fmt::format("{}", static_cast<int>(list.encoding()))));
  }
  if (static_cast<std::size_t>(list.subscription_size()) > limits.subscriptionsPerCall) {
    return grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED,
                        fmt::format("{} subscriptions in one list: at most {} are taken",
                                    list.subscription_size(), limits.subscriptionsPerCall));
  }
  auto modules = modulesOf(list.use_models());
  if (!modules) return modules.error();
  plan.modules = std::move(*modules);
  plan.updatesOnly = list.updates_only();
  plan.encoding = list.encoding();
  for (gnmi::Subscription const& from : list.subscription()) {
    RequestPath::OrError path = RequestPath::of(list.prefix(), from.path());
    if (!path.ok()) return path.error();
    SubscriptionPlan made{.path = std::move(path).value()};
    if (plan.mode == CallMode::Stream) {
      if (grpc::Status status = takeMode(from, limits, made); !status.ok()) return status;
    }
    // What is asked for twice belongs to the first.
    bool const isTwice = std::ranges::any_of(plan.subscriptions, [&](SubscriptionPlan const& other) {
      return other.path.elems == made.path.elems;
    });
    if (!isTwice) plan.subscriptions.push_back(std::move(made));
  }
  return plan;
}

} // namespace Agent
