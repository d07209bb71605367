// A coroutine for each Set: compare, check, write, tell or take back, tidy up. The queue runs them one after
// the other.
#include "agent/data/SetRun.h"

#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Kel/ActivityClock.h"
#include "Kel/Error.h"
#include "Ondra/KelGnmiSetter.h"
#include "Tovak/Task.h"
#include "agent/context/Context.h"
#include "agent/data/ClientEntries.h"
#include "agent/data/SetDiff.h"
#include "agent/router/Router.h"
#include "agent/router/StagedSet.h"

namespace Agent {
namespace {

using Part = gnmi::SetRequest;

grpc::Status ended(grpc::Status const& status) {
  return status.ok() ? status : grpc::Status(status.error_code(), statusText(status.error_message(), 1024));
}

Ondra::KelGnmiSet::Set librarySet(Part part) {
  static auto* const dataRoot =
      new Kel::Ptr<Ondra::Path const>(Ondra::Path::strToPathIs(fmt::format("/{}", kOrigin)));
  return {*dataRoot, std::move(part)};
}

bool isGone(Undo const& undo) {
  return undo.object->type().isEntity() && static_cast<Kel::Entity const*>(undo.object->object())->isOrphan();
}

bool isAsBefore(Undo const& undo) {
  if (isGone(undo)) return true; // it is the machine that took it away
  bool const isThere = undo.attr.genericIfExist(undo.object, undo.key);
  if (!isThere || !undo.old) return isThere == static_cast<bool>(undo.old);
  return undo.attr.genericIfGet(undo.object, undo.key)->equals(*undo.old);
}

// The machine has filled the entry since it was made: it stays.
bool hasComeToLife(Undo const& undo) {
  TypeNode list;
  list.attr = undo.attr;
  list.type = undo.attr.memberType();
  return !isGone(undo) && isOfMachine(list, entryOf(list, undo.object, undo.key));
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

class SetRuns::Run {
public:
  Run(SetRuns& runs, SetOrder order, Tovak::Task const& task)
      : runs_(runs)
      , context_(runs.context())
      , order_(std::move(order))
      , task_(task)
      , diff_(*order_.plan, task)
      , steps_(run()) {}
  Run(Run const&) = delete;
  Run& operator=(Run const&) = delete;

  // False once nothing of it is left.
  [[nodiscard]] bool resume() {
    if (staged_) staged_->whoseIs(whose_);
    bool const goesOn = steps_.resume();
    if (staged_) staged_->whoseIs(Staging::Whose::Other);
    return goesOn;
  }

private:
  [[nodiscard]] Steps::Pause pause() const { return Steps::pauseIf(task_.taskShouldYield()); }

  Steps run() {
    co_await diff_.run();
    co_await check();
    if (status_.ok()) co_await carryOut();
    std::exchange(order_.done, nullptr)(ended(status_), timestamp_);
    co_await tidy();
  }

  Steps check() {
    if (!diff_.made.empty() && !runs_.entries_.mayMake(diff_.made)) {
      status_ = {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory for more entries"};
      co_return;
    }
    if (diff_.resets.parts.size() + diff_.writes.parts.size() + diff_.removals.parts.size() > 1) {
      for (SetParts const* const parts : {&diff_.resets, &diff_.writes, &diff_.removals}) {
        for (Part const& part : parts->parts) {
          status_ = librarySet(part).check();
          if (!status_.ok()) co_return;
          co_await pause();
        }
      }
    }
    if (order_.isCancelled != nullptr && order_.isCancelled->load(std::memory_order_relaxed))
      status_ = {grpc::StatusCode::CANCELLED, "the client has left"};
  }

  // The model changes from here on.
  Steps carryOut() {
    staged_.emplace(runs_.router_);
    co_await write(diff_.resets);
    co_await write(diff_.writes);
    staged_->whoseIs(whose_ = Staging::Whose::OwnRemoval);
    co_await write(diff_.removals);
    staged_->whoseIs(whose_ = Staging::Whose::Own);
    timestamp_ = Kel::activityManagerStatus()->activityLoopExecNsTime();
    if (status_.ok()) {
      co_await note();
    } else {
      co_await takeBack();
    }
    while (!staged_->tellSome(task_))
      co_await Steps::pauseIf(true);
    staged_.reset();
    if (status_.ok() && !diff_.interfaces.empty() && runs_.configChanged_)
      runs_.configChanged_(diff_.interfaces);
  }

  Steps takeBack() {
    std::vector<std::string> kept;
    for (auto undo = diff_.undo.rbegin(); undo != diff_.undo.rend(); ++undo) {
      if (undo->made && hasComeToLife(*undo)) {
        kept.push_back(diff_.made[*undo->made].path);
      } else {
        putBack(*undo);
      }
      co_await pause();
    }
    staged_->forget(kept);
  }

  Steps write(SetParts& parts) {
    for (Part& part : parts.parts) {
      if (!status_.ok()) co_return;
      status_ = librarySet(std::move(part)).execute().second;
      if (status_.ok() && !staged_->hasRoom())
        status_ = {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory for what it would tell"};
      co_await pause();
    }
  }

  // What follows from a success.
  Steps note() {
    bool hasChanged = diff_.removals.size() != 0 || !diff_.made.empty();
    for (auto undo = diff_.undo.begin(); undo != diff_.undo.end() && !hasChanged; ++undo) {
      hasChanged = !isAsBefore(*undo);
      co_await pause();
    }
    for (std::string const& path : diff_.gone) {
      runs_.entries_.gone(path);
      co_await pause();
    }
    for (auto& made : diff_.made) {
      runs_.entries_.made(std::move(made));
      co_await pause();
    }
    if (hasChanged)
      context_.tree().system->state->leafIs(&SystemState::lastConfigurationTimestamp,
                                            static_cast<std::uint64_t>(timestamp_));
  }

  // To let go of much takes its time, too.
  Steps tidy() {
    context_.worker().post([plan = std::move(order_.plan), resets = std::move(diff_.resets),
                            writes = std::move(diff_.writes), removals = std::move(diff_.removals),
                            made = std::move(diff_.made), gone = std::move(diff_.gone)] {});
    while (!diff_.undo.empty()) {
      diff_.undo.pop_back();
      co_await pause();
    }
  }

  SetRuns& runs_;
  Context& context_;
  SetOrder order_;
  Tovak::Task const& task_;
  SetDiff diff_;
  grpc::Status status_;
  std::int64_t timestamp_ = 0;
  std::optional<StagedSet> staged_;            // from the first write on
  Staging::Whose whose_ = Staging::Whose::Own; // then: whose the changes of our slices are
  Steps steps_;                                // goes first
};

// One after the other, in slices.
class SetRuns::Queue final : public Tovak::Task {
public:
  explicit Queue(SetRuns& runs)
      : Tovak::Task(runs.context().scheduler(), "Sets", Tovak::TaskPriority::normal)
      , runs_(runs) {}

  void setIs(SetOrder order) {
    waiting_.push_back(std::move(order));
    scheduleTask();
  }
  void taskExecute() override {
    while (run_ || !waiting_.empty()) {
      if (!run_) {
        run_.emplace(runs_, std::move(waiting_.front()), *this);
        waiting_.pop_front();
      }
      if (!run_->resume()) run_.reset();
      if (taskShouldYield()) break;
    }
    if (run_ || !waiting_.empty()) scheduleTask();
  }
  void allDel() {
    descheduleTask();
    run_.reset();
    waiting_.clear();
  }

private:
  SetRuns& runs_;
  std::deque<SetOrder> waiting_;
  std::optional<Run> run_;
};

SetRuns::SetRuns(Router& router)
    : router_(router)
    , entries_(router.context().memory().entries)
    , queue_(std::make_shared<Queue>(*this)) {}
SetRuns::~SetRuns() { queue_->allDel(); }

Context& SetRuns::context() const noexcept { return router_.context(); }

void SetRuns::setIs(SetOrder order) { queue_->setIs(std::move(order)); }

} // namespace Agent
