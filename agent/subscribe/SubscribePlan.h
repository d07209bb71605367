// Agent::CallPlan: what a Subscribe call asks for, checked as far as that needs no model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "agent/paths/RequestPath.h"

namespace gnmi {
class SubscriptionList;
} // namespace gnmi

namespace Agent {

struct Limits;
class RuleTree;

inline constexpr std::size_t kLeavesPerMessage = 1000; // from which on no more are bundled
// The same where leaves become bytes at once: several blocks of them, so that most blocks are sent full and
// few turns are taken between threads.
inline constexpr std::size_t kLeavesPerBundle = 4000;

enum class CallMode : std::uint8_t { Stream, Once, Poll };
enum class LeafMode : std::uint8_t { OnChange, Sample, TargetDefined };

// How answers are to look. Calls that ask for the same share what is encoded for them.
struct Frame {
  std::string origin = {};
  std::string target = {};
  int encoding = 0; // gnmi::Encoding
  std::size_t prefixDepth =
      0; // how many elements, the data root aside, all that a walk tells at a time shares
  friend bool operator==(Frame const&, Frame const&) = default;
};

struct SubscriptionPlan {
  RequestPath path;
  LeafMode mode = LeafMode::TargetDefined;
  std::int64_t sampleNs = 0;    // of samples; never 0 for Sample and TargetDefined
  std::int64_t heartbeatNs = 0; // 0: none
  bool suppressRedundant = false;
};

// A plain value, made on any thread.
struct CallPlan {
  using OrError = Kstd::Result<CallPlan, grpc::Status>;

  // INVALID_ARGUMENT for unknown modes, bad paths and intervals that cannot be kept; UNIMPLEMENTED for
  // encodings and models; RESOURCE_EXHAUSTED for too many subscriptions.
  [[nodiscard]] static OrError of(gnmi::SubscriptionList const& list, Limits const& limits);

  CallMode mode = CallMode::Stream;
  bool updatesOnly = false;
  int encoding = 0;
  std::vector<std::string> modules;                 // the leaves of these alone; empty: all
  std::uint32_t depth = 0;                          // of leaves below what a path means, at most; 0: any
  std::shared_ptr<RuleTree const> access = nullptr; // what may be read; null: everything
  std::vector<SubscriptionPlan> subscriptions;
};

} // namespace Agent
