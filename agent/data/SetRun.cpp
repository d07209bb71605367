#include "agent/data/SetRun.h"

#include <set>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "Kel/ActivityClock.h"
#include "Kel/Error.h"
#include "Ondra/KelGnmiSetter.h"
#include "agent/data/ClientEntries.h"
#include "agent/data/SetDiff.h"
#include "agent/service/Runtime.h"
#include "agent/service/Worker.h"
#include "agent/subscribe/Engine.h"

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
  Run(Runtime& runtime, SetOrder order, Tovak::Task const& task)
      : runtime_(runtime)
      , engine_(runtime.engine())
      , order_(std::move(order))
      , task_(task)
      , diff_(*order_.plan, task)
      , steps_(run()) {}
  ~Run() {
    if (isStaging_) engine_.stagingEnds();
  }
  Run(Run const&) = delete;
  Run& operator=(Run const&) = delete;

  // False once nothing of it is left.
  [[nodiscard]] bool resume() {
    if (isStaging_) engine_.stagedIs(whose_);
    bool const goesOn = steps_.resume();
    if (isStaging_) engine_.stagedIs(Staging::Whose::Other);
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
    ClientEntries& entries = runtime_.clientEntries();
    if (!diff_.made.empty() && !entries.mayMake(diff_.made)) {
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
    isStaging_ = true;
    engine_.stagingBegins();
    co_await write(diff_.resets);
    co_await write(diff_.writes);
    engine_.stagedIs(whose_ = Staging::Whose::OwnRemoval);
    co_await write(diff_.removals);
    engine_.stagedIs(whose_ = Staging::Whose::Own);
    timestamp_ = Kel::activityManagerStatus()->activityLoopExecNsTime();
    if (status_.ok()) {
      co_await note();
    } else {
      co_await takeBack();
    }
    while (!engine_.stagedTold(task_))
      co_await Steps::pauseIf(true);
    engine_.stagingEnds();
    isStaging_ = false;
    if (status_.ok() && !diff_.interfaces.empty() && runtime_.configChanged())
      runtime_.configChanged()(diff_.interfaces);
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
    engine_.stagedDel(kept);
  }

  Steps write(SetParts& parts) {
    for (Part& part : parts.parts) {
      if (!status_.ok()) co_return;
      status_ = librarySet(std::move(part)).execute().second;
      if (status_.ok() && !engine_.hasRoomForStaged())
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
    ClientEntries& entries = runtime_.clientEntries();
    for (std::string const& path : diff_.gone) {
      entries.gone(path);
      co_await pause();
    }
    for (auto& made : diff_.made) {
      entries.made(std::move(made));
      co_await pause();
    }
    if (hasChanged)
      runtime_.tree().system->state->leafIs(&SystemState::lastConfigurationTimestamp,
                                            static_cast<std::uint64_t>(timestamp_));
  }

  // To let go of much takes its time, too.
  Steps tidy() {
    runtime_.worker().post([plan = std::move(order_.plan), resets = std::move(diff_.resets),
                            writes = std::move(diff_.writes), removals = std::move(diff_.removals),
                            made = std::move(diff_.made), gone = std::move(diff_.gone)] {});
    while (!diff_.undo.empty()) {
      diff_.undo.pop_back();
      co_await pause();
    }
  }

  Runtime& runtime_;
  Engine& engine_;
  SetOrder order_;
  Tovak::Task const& task_;
  SetDiff diff_;
  grpc::Status status_;
  std::int64_t timestamp_ = 0;
  bool isStaging_ = false;
  Staging::Whose whose_ = Staging::Whose::Own; // then: whose the changes of our slices are
  Steps steps_;                                // goes first
};

class SetRuns::Turns final : public Tovak::Task {
public:
  explicit Turns(Runtime& runtime)
      : Tovak::Task(runtime.scheduler(), "Sets", Tovak::TaskPriority::normal)
      , runtime_(runtime) {}

  void setIs(SetOrder order) {
    waiting_.push_back(std::move(order));
    scheduleTask();
  }
  void taskExecute() override {
    while (run_ || !waiting_.empty()) {
      if (!run_) {
        run_.emplace(runtime_, std::move(waiting_.front()), *this);
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
  Runtime& runtime_;
  std::deque<SetOrder> waiting_;
  std::optional<Run> run_;
};

SetRuns::SetRuns(Runtime& runtime) : runtime_(runtime), turns_(std::make_shared<Turns>(runtime)) {}
SetRuns::~SetRuns() { turns_->allDel(); }

void SetRuns::setIs(SetOrder order) { turns_->setIs(std::move(order)); }

} // namespace Agent
