// The types below /ondra-agent, innermost first, and what each entry gets with its place.
#include "agent/model/Figures.h"
#include "agent/model/Shape.h"
#include "agent/model/Tree.h"

namespace Agent {
namespace {

constexpr std::string_view kModule = "ondra-agent";

// One line a node.
// clang-format off
void declareCalls() {
  sampledShape<AgentCallState>("AgentCallState", kModule)
      .keyCopy("method", &AgentCallState::method)
      .leaf("begun", &AgentCallState::begun)
      .done();
  eventShape<AgentCall>("AgentCall", kModule).key("method", &AgentCall::method).container("state", &AgentCall::state).done();
  eventShape<AgentCalls>("AgentCalls", kModule).list("call", &AgentCalls::call, "method").done();
  sampledShape<AgentRefusalState>("AgentRefusalState", kModule)
      .keyCopy("reason", &AgentRefusalState::reason)
      .leaf("count", &AgentRefusalState::count)
      .done();
  eventShape<AgentRefusal>("AgentRefusal", kModule)
      .key("reason", &AgentRefusal::reason)
      .container("state", &AgentRefusal::state)
      .done();
  eventShape<AgentRefusals>("AgentRefusals", kModule).list("refusal", &AgentRefusals::refusal, "reason").done();
}

void declareStreams() {
  eventShape<AgentStreamState>("AgentStreamState", kModule)
      .keyCopy("id", &AgentStreamState::id)
      .leaf("peer", &AgentStreamState::peer)
      .leaf("user", &AgentStreamState::user)
      .leaf("mode", &AgentStreamState::mode)
      .leaf("start-time", &AgentStreamState::startTime)
      .leaf("time", &AgentStreamState::time).sampled()
      .leaf("sent-messages", &AgentStreamState::sentMessages).sampled()
      .leaf("sent-leaves", &AgentStreamState::sentLeaves).sampled()
      .leaf("sent-bytes", &AgentStreamState::sentBytes).sampled()
      .leaf("queued-messages", &AgentStreamState::queuedMessages).sampled()
      .leaf("queued-bytes", &AgentStreamState::queuedBytes).sampled()
      .leaf("waiting-leaves", &AgentStreamState::waitingLeaves).sampled()
      .leaf("coalesced-changes", &AgentStreamState::coalescedChanges).sampled()
      .leaf("restarts", &AgentStreamState::restarts).sampled()
      .done();
  eventShape<AgentStream>("AgentStream", kModule).key("id", &AgentStream::id).container("state", &AgentStream::state).done();
  eventShape<AgentStreams>("AgentStreams", kModule).list("stream", &AgentStreams::stream, "id").done();
}

void declareResources() {
  sampledShape<AgentBudgetState>("AgentBudgetState", kModule)
      .keyCopy("name", &AgentBudgetState::name)
      .leaf("limit", &AgentBudgetState::limit)
      .leaf("used", &AgentBudgetState::used)
      .done();
  eventShape<AgentBudget>("AgentBudget", kModule).key("name", &AgentBudget::name).container("state", &AgentBudget::state).done();
  eventShape<AgentMemory>("AgentMemory", kModule).list("budget", &AgentMemory::budget, "name").done();
  sampledShape<AgentTimesState>("AgentTimesState", kModule)
      .leaf("count", &AgentTimesState::count)
      .leaf("p50", &AgentTimesState::p50)
      .leaf("p99", &AgentTimesState::p99)
      .leaf("p999", &AgentTimesState::p999)
      .leaf("longest", &AgentTimesState::longest)
      .done();
  eventShape<AgentTimes>("AgentTimes", kModule).container("state", &AgentTimes::state).done();
}

void declareAll() {
  declareTypes();
  Kel::kelModuleIs(kModule);
  declareCalls();
  declareStreams();
  declareResources();
  sampledShape<AgentState>("AgentState", kModule)
      .leaf("start-time", &AgentState::startTime)
      .leaf("time", &AgentState::time)
      .done();
  eventShape<OndraAgent>("OndraAgent", kModule)
      .container("state", &OndraAgent::state)
      .container("calls", &OndraAgent::calls)
      .container("refusals", &OndraAgent::refusals)
      .container("streams", &OndraAgent::streams)
      .container("memory", &OndraAgent::memory)
      .container("slices", &OndraAgent::slices)
      .presence("store", &OndraAgent::store)
      .done();
  topLevelIs({.name = kFiguresName, .type = Kel::typeOf<OndraAgent>(), .module = kModule});
  publishedModelIs({.name = kModule, .organization = "Ondra", .version = "1.0.0"});
}
// clang-format on

} // namespace

void AgentCall::handleParent() {
  if (parent() != nullptr) containerIs(&AgentCall::state)->leafIs(&AgentCallState::method, method);
}
void AgentRefusal::handleParent() {
  if (parent() != nullptr) containerIs(&AgentRefusal::state)->leafIs(&AgentRefusalState::reason, reason);
}
void AgentStream::handleParent() {
  if (parent() != nullptr) containerIs(&AgentStream::state)->leafIs(&AgentStreamState::id, id);
}
void AgentBudget::handleParent() {
  if (parent() != nullptr) containerIs(&AgentBudget::state)->leafIs(&AgentBudgetState::name, name);
}
void AgentTimes::handleParent() {
  if (parent() != nullptr) containerIs(&AgentTimes::state);
}
void OndraAgent::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&OndraAgent::state);
  containerIs(&OndraAgent::calls);
  containerIs(&OndraAgent::refusals);
  containerIs(&OndraAgent::streams);
  containerIs(&OndraAgent::memory);
  containerIs(&OndraAgent::slices);
}

void declareFigures() {
  static bool const once = [] {
    declareAll();
    return true;
  }();
  static_cast<void>(once);
}

Kel::Ptr<OndraAgent> figuresIn(Kel::Dir& root) {
  declareFigures();
  return Kel::staticPtrCast<OndraAgent>(topIn(root, kFiguresName));
}

} // namespace Agent
