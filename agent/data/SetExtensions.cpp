// Reading with refusals; the ids of masters.
#include "agent/data/SetExtensions.h"

#include <utility>

#include <fmt/format.h>

#include "agent/paths/RequestParts.h"

namespace Agent {
namespace {

constexpr std::int64_t kSecondNs = 1'000'000'000;
constexpr std::int64_t kDefaultDurationNs = 600 * kSecondNs;
constexpr std::int64_t kMostSeconds = 365 * 86'400;
constexpr std::size_t kMostText = 1024;
constexpr std::size_t kMostRoles = 1024;

grpc::Status invalid(char const* what) { return {grpc::StatusCode::INVALID_ARGUMENT, what}; }

Kstd::Result<std::int64_t, grpc::Status> durationOf(google::protobuf::Duration const& asked) {
  if (asked.seconds() < 0 || asked.nanos() < 0 || asked.seconds() > kMostSeconds ||
      asked.nanos() >= kSecondNs || (asked.seconds() == 0 && asked.nanos() == 0))
    return Kstd::Err(invalid("the duration before a commit is rolled back: more than 0, a year at most"));
  return asked.seconds() * kSecondNs + asked.nanos();
}

Kstd::Result<CommitOrder, grpc::Status> commitOf(gnmi_ext::Commit const& asked) {
  using Action = CommitOrder::Action;
  if (asked.id().empty() || asked.id().size() > kMostText)
    return Kstd::Err(invalid("a commit needs an id, of 1024 bytes at most"));
  CommitOrder order{.id = asked.id()};
  google::protobuf::Duration const* duration = nullptr;
  switch (asked.action_case()) {
  case gnmi_ext::Commit::kCommit:
    order.durationNs = kDefaultDurationNs;
    if (asked.commit().has_rollback_duration()) duration = &asked.commit().rollback_duration();
    break;
  case gnmi_ext::Commit::kConfirm: order.action = Action::Confirm; break;
  case gnmi_ext::Commit::kCancel: order.action = Action::Cancel; break;
  case gnmi_ext::Commit::kSetRollbackDuration:
    order.action = Action::Duration;
    duration = &asked.set_rollback_duration().rollback_duration();
    break;
  case gnmi_ext::Commit::ACTION_NOT_SET: return Kstd::Err(invalid("a commit without an action"));
  }
  if (duration != nullptr) {
    auto const given = durationOf(*duration);
    if (!given) return Kstd::Err(given.error());
    order.durationNs = *given;
  }
  return order;
}

bool isEmpty(gnmi::SetRequest const& request) {
  return request.delete__size() + request.replace_size() + request.update_size() +
             request.union_replace_size() ==
         0;
}

} // namespace

SetExtensions::OrError SetExtensions::of(gnmi::SetRequest const& request) {
  if (grpc::Status status = checkExtensions(request.extension(), CallKind::Set); !status.ok())
    return Kstd::Err(status);
  SetExtensions all;
  for (gnmi_ext::Extension const& each : request.extension()) {
    if ((each.has_commit() && all.commit) || (each.has_master_arbitration() && all.election))
      return Kstd::Err(invalid("an extension is there twice"));
    if (each.has_commit()) {
      auto commit = commitOf(each.commit());
      if (!commit) return Kstd::Err(commit.error());
      all.commit = std::move(*commit);
    } else if (each.has_master_arbitration()) {
      gnmi_ext::MasterArbitration const& asked = each.master_arbitration();
      if (!asked.has_election_id()) return Kstd::Err(invalid("master arbitration without an election id"));
      if (asked.role().id().size() > kMostText)
        return Kstd::Err(invalid("the id of a role: 1024 bytes at most"));
      all.election = {.role = asked.role().id(),
                      .id = {asked.election_id().high(), asked.election_id().low()}};
    }
  }
  if (all.commit && all.commit->action != CommitOrder::Action::Commit && !isEmpty(request))
    return Kstd::Err(invalid("operations go with a commit, not with what becomes of it"));
  return all;
}

grpc::Status Mastership::check(Election const& election) {
  auto const found = masters_.find(election.role);
  if (found == masters_.end()) {
    if (masters_.size() == kMostRoles)
      return {grpc::StatusCode::RESOURCE_EXHAUSTED, fmt::format("more than {} roles", kMostRoles)};
    masters_.emplace(election.role, election.id);
    return grpc::Status::OK;
  }
  if (election.id < found->second)
    return {grpc::StatusCode::PERMISSION_DENIED,
            fmt::format("the master's election id is high {} low {}", found->second.high, found->second.low)};
  found->second = election.id;
  return grpc::Status::OK;
}

} // namespace Agent
