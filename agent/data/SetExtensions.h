// What the extensions of a SetRequest ask for: confirmed commits and master arbitration. Pure: any thread.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <grpcpp/support/status.h>

#include "Kstd/Result.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

struct CommitOrder {
  enum class Action : std::uint8_t { Commit, Confirm, Cancel, Duration };
  Action action = Action::Commit;
  std::string id;
  std::int64_t durationNs = 0; // of Commit and Duration
};

struct Election {
  struct Id {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    auto operator<=>(Id const&) const = default;
  };
  std::string role; // empty: the default one
  Id id;
};

struct SetExtensions {
  using OrError = Kstd::Result<SetExtensions, grpc::Status>;
  // INVALID_ARGUMENT for what is missing, there twice, or without sense.
  [[nodiscard]] static OrError of(gnmi::SetRequest const& request);

  std::optional<CommitOrder> commit;
  std::optional<Election> election;
};

// Who may set: of each role the one with the largest id so far. One thread.
class Mastership {
public:
  // PERMISSION_DENIED with the id that is kept; RESOURCE_EXHAUSTED for too many roles.
  [[nodiscard]] grpc::Status check(Election const& election);

private:
  std::map<std::string, Election::Id> masters_; // by role
};

} // namespace Agent
