#include "agent/data/SetRun.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "Kel/ActivityClock.h"
#include "Kel/Error.h"
#include "Ondra/KelGnmiSetter.h"
#include "agent/data/ClientEntries.h"
#include "agent/data/SetDiff.h"
#include "agent/service/Runtime.h"
#include "agent/subscribe/Engine.h"

namespace Agent {
namespace {

grpc::Status execute(gnmi::SetRequest& request) {
  if (request.delete__size() == 0 && request.update_size() == 0) return grpc::Status::OK;
  static auto* const dataRoot =
      new Kel::Ptr<Ondra::Path const>(Ondra::Path::strToPathIs(fmt::format("/{}", kOrigin)));
  Ondra::KelGnmiSet::Set set(*dataRoot, std::move(request));
  grpc::Status status = set.execute().second;
  if (status.ok()) return status;
  return {status.error_code(), statusText(status.error_message(), 1024)};
}

bool isAsBefore(Undo const& undo) {
  bool const isThere = undo.attr.genericIfExist(undo.object, undo.key);
  if (!isThere || !undo.old) return isThere == static_cast<bool>(undo.old);
  return undo.attr.genericIfGet(undo.object, undo.key)->equals(*undo.old);
}

void putBack(Undo const& undo) {
  try {
    if (isAsBefore(undo)) return;
    if (undo.old) {
      undo.attr.genericIfSet(undo.object, undo.key, undo.old);
    } else {
      undo.attr.genericIfDel(undo.object, undo.key);
    }
  } catch (Kel::Error const&) {
    // The model refuses what it held a moment ago; there is nothing better to do than to put back the rest.
  }
}

} // namespace

SetOutcome setRun(SetPlan& plan, ClientEntries& entries, absl::FunctionRef<void()> removalsBegin) {
  SetDiff diff(plan);
  SetOutcome outcome;
  if (!diff.made.empty() && !entries.mayMake(diff.made.size())) {
    outcome.status = {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory for more entries"};
    return outcome;
  }
  bool const removes = diff.removals.delete__size() != 0;
  for (gnmi::SetRequest* const request : {&diff.resets, &diff.writes, &diff.removals}) {
    if (request == &diff.removals) removalsBegin();
    outcome.status = execute(*request);
    if (outcome.status.ok()) continue;
    std::for_each(diff.undo.rbegin(), diff.undo.rend(), putBack);
    return outcome;
  }
  outcome.hasChanged = removes || !std::all_of(diff.undo.begin(), diff.undo.end(), isAsBefore);
  outcome.interfaces = std::move(diff.interfaces);
  for (std::string const& path : diff.gone)
    entries.gone(path);
  for (std::string& path : diff.made)
    entries.made(std::move(path));
  return outcome;
}

grpc::Status setExecuted(SetPlan& plan, Runtime& runtime, gnmi::SetResponse& response) {
  Engine& engine = runtime.engine();
  engine.outputHeldIs(Engine::Output::Hold);
  SetOutcome const outcome =
      setRun(plan, runtime.clientEntries(), [&engine] { engine.outputHeldIs(Engine::Output::HoldBefore); });
  if (!outcome.status.ok()) {
    engine.outputHeldIs(Engine::Output::Drop);
    return outcome.status;
  }
  engine.outputHeldIs(Engine::Output::HoldBehind);
  std::int64_t const now = Kel::activityManagerStatus()->activityLoopExecNsTime();
  if (outcome.hasChanged)
    runtime.tree().system->state->leafIs(&SystemState::lastConfigurationTimestamp,
                                         static_cast<std::uint64_t>(now));
  engine.outputHeldIs(Engine::Output::Release);
  response.set_timestamp(now);
  if (!outcome.interfaces.empty() && runtime.configChanged()) runtime.configChanged()(outcome.interfaces);
  return grpc::Status::OK;
}

} // namespace Agent
