// Where each figure comes from.
#include "agent/service/SelfReport.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Dir.h"
#include "Tovak/Clock.h"
#include "agent/service/Runtime.h"
#include "agent/service/SubscribeStream.h"

namespace Agent {
namespace {

Kel::String modeText(std::optional<CallMode> mode) {
  return mode == CallMode::Once ? "ONCE" : mode == CallMode::Poll ? "POLL" : "STREAM";
}

void timesAre(AgentTimesState& state, TimeHistogram const& times) {
  state.leafIs(&AgentTimesState::count, times.count());
  state.leafIs(&AgentTimesState::p50, times.most(500));
  state.leafIs(&AgentTimesState::p99, times.most(990));
  state.leafIs(&AgentTimesState::p999, times.most(999));
  state.leafIs(&AgentTimesState::longest, times.longest());
}

} // namespace

SelfReport::SelfReport(Runtime& runtime) : runtime_(runtime), root_(figuresIn(*Kel::globalDir())) {
  Context& context = runtime_.context();
  root_->state->leafIs(&AgentState::startTime, static_cast<std::uint64_t>(context.clock().wallNs()));
  timer_ = context.scheduler()->timerEvery(everyNs, [this] { tell(); });
  tell();
}

SelfReport::~SelfReport() { runtime_.context().scheduler()->timerDel(timer_); }

void SelfReport::tell() {
  root_->state->leafIs(&AgentState::time, static_cast<std::uint64_t>(runtime_.context().clock().wallNs()));
  tellCalls();
  tellMemory();
  tellTimes();
  tellStreams();
}

void SelfReport::tellCalls() {
  Tally const& tally = runtime_.context().tally();
  for (std::size_t method = 0; method < Tally::methodNames.size(); ++method)
    root_->calls->entryIs(&AgentCalls::call, Tally::methodNames[method])
        ->state->leafIs(&AgentCallState::begun, tally.begun(method));
  for (std::size_t code = 0; code < Tally::codeNames.size(); ++code) {
    if (std::uint64_t const count = tally.refused(code); count > 0)
      root_->refusals->entryIs(&AgentRefusals::refusal, Tally::codeNames[code])
          ->state->leafIs(&AgentRefusalState::count, count);
  }
}

void SelfReport::tellMemory() {
  MemoryBudgets const& memory = runtime_.context().memory();
  std::array const budgets = {std::pair("all", memory.whole.get()),
                              std::pair("queues", memory.queues.get()),
                              std::pair("answers", memory.answers.get()),
                              std::pair("sent", memory.sent.get()),
                              std::pair("plans", memory.plans.get()),
                              std::pair("entries", memory.entries.get()),
                              std::pair("gets", runtime_.context().getBudget().get())};
  for (auto const& [name, budget] : budgets) {
    AgentBudgetState& state = *root_->memory->entryIs(&AgentMemory::budget, name)->state;
    state.leafIs(&AgentBudgetState::limit, std::uint64_t{budget->limit()});
    state.leafIs(&AgentBudgetState::used, std::uint64_t{budget->used()});
  }
}

void SelfReport::tellTimes() {
  timesAre(*root_->slices->state, runtime_.context().slices());
  if (TimeHistogram const* const times = runtime_.sets().storeTimes())
    timesAre(*root_->containerIs(&OndraAgent::store)->state, *times);
}

void SelfReport::tellStreams() {
  Streams open;
  runtime_.calls().forEach([&open](SubscribeStream const& stream, Call const& call) {
    open[stream.id()] = {&stream, &call};
  });
  AgentStreams& streams = *root_->streams;
  std::vector<std::uint64_t> gone;
  for (auto const& [id, stream] : streams.stream)
    if (!open.contains(id) && gone.size() < streamsAtATime) gone.push_back(id);
  for (std::uint64_t const id : gone)
    streams.entryDel(&AgentStreams::stream, id);
  auto next = open.upper_bound(lastTold_);
  for (std::size_t i = 0; i < std::min(open.size(), streamsAtATime); ++i, ++next) {
    if (next == open.end()) next = open.begin();
    tell(next->second, *streams.entryIs(&AgentStreams::stream, next->first)->state);
    lastTold_ = next->first;
  }
}

void SelfReport::tell(Open const& open, AgentStreamState& state) {
  auto const figures = open.stream->figures();
  auto const slowness = open.call->slowness();
  auto const& caller = open.stream->caller();
  std::string const& user = caller.user.empty() ? caller.certificate : caller.user;
  state.leafIs(&AgentStreamState::peer, Kel::String(caller.peer));
  state.leafIs(&AgentStreamState::user, user.empty() ? std::nullopt : std::optional(Kel::String(user)));
  state.leafIs(&AgentStreamState::mode, modeText(figures.mode));
  state.leafIs(&AgentStreamState::startTime, static_cast<std::uint64_t>(open.stream->startNs()));
  state.leafIs(&AgentStreamState::time, static_cast<std::uint64_t>(runtime_.context().clock().wallNs()));
  state.leafIs(&AgentStreamState::sentMessages, figures.sentMessages);
  state.leafIs(&AgentStreamState::sentLeaves, figures.sentLeaves);
  state.leafIs(&AgentStreamState::sentBytes, figures.sentBytes);
  state.leafIs(&AgentStreamState::queuedMessages, std::uint64_t{figures.queuedMessages});
  state.leafIs(&AgentStreamState::queuedBytes, std::uint64_t{figures.queuedBytes});
  state.leafIs(&AgentStreamState::waitingLeaves, std::uint64_t{slowness.waitingLeaves});
  state.leafIs(&AgentStreamState::coalescedChanges, slowness.coalescedChanges);
  state.leafIs(&AgentStreamState::restarts, slowness.restarts);
}

} // namespace Agent
