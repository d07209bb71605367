// Writes in the published order, entries removed last; then what follows from a success, or the way back.
#include "agent/data/SetWriting.h"

#include <string>
#include <utility>
#include <vector>

#include "Kel/ActivityClock.h"
#include "Kel/Error.h"
#include "Tovak/Task.h"
#include "agent/context/Context.h"
#include "agent/data/SetUndo.h"
#include "agent/paths/OutPath.h"
#include "agent/router/Router.h"

namespace Agent {
namespace {

grpc::Status hasGone() { return {grpc::StatusCode::ABORTED, "what the request names has gone meanwhile"}; }

} // namespace

Steps::Pause SetWriting::pause() const { return Steps::pauseIf(task_.taskShouldYield()); }

Steps SetWriting::run(ByteBudget::Share& coming) {
  co_await parts(diff_.resets);
  co_await parts(diff_.writes);
  co_await plain();
  presences();
  whoseIs(whose_ = Staging::Whose::OwnRemoval);
  co_await parts(diff_.removals);
  whoseIs(whose_ = Staging::Whose::Own);
  timestamp_ = Kel::activityManagerStatus()->activityLoopExecNsTime();
  if (status_.ok())
    co_await note(coming);
  else
    co_await takeBack();
  while (!staged_->tellSome(task_))
    co_await Steps::pauseIf(true);
  staged_.reset();
}

void SetWriting::checkRoom() {
  if (!staged_->hasRoom())
    status_ = {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory for what it would tell"};
}

Steps SetWriting::parts(SetParts const& set) {
  for (auto const& part : set.parts) {
    if (!status_.ok()) co_return;
    status_ = part.execute();
    if (status_.ok()) checkRoom();
    co_await pause();
  }
}

Steps SetWriting::plain() {
  constexpr std::size_t kAtATime = 16;
  std::size_t count = 0;
  for (PlainWrite const& write : diff_.plain) {
    if (!status_.ok()) co_return;
    if (static_cast<Kel::Entity const*>(write.object->object())->isOrphan()) {
      status_ = hasGone();
      co_return;
    }
    try {
      write.attr.genericIfSet(write.object, nullptr, write.value);
    } catch (Kel::Error const& error) {
      status_ = {grpc::StatusCode::INVALID_ARGUMENT, error.what()};
    }
    if (++count % kAtATime != 0) continue;
    checkRoom();
    co_await pause();
  }
}

void SetWriting::presences() {
  for (std::string const& path : diff_.presences) {
    if (!status_.ok()) return;
    if (!containerIsAt(pathOfBytes(path))) status_ = hasGone();
  }
}

// What follows from a success.
Steps SetWriting::note(ByteBudget::Share& coming) {
  bool hasChanged = diff_.removals.size() != 0 || !diff_.made.empty() || !diff_.presences.empty();
  for (auto undo = diff_.undo.begin(); undo != diff_.undo.end() && !hasChanged; ++undo) {
    hasChanged = !isAsBefore(*undo);
    co_await pause();
  }
  for (std::string const& path : diff_.gone) {
    entries_.gone(path);
    co_await pause();
  }
  coming.bytesAre(0);
  for (auto& made : diff_.made) {
    entries_.made(std::move(made));
    co_await pause();
  }
  if (hasChanged)
    router_.context().tree().system->state->leafIs(&SystemState::lastConfigurationTimestamp,
                                                   static_cast<std::uint64_t>(timestamp_));
}

Steps SetWriting::takeBack() {
  std::vector<std::string> kept;
  for (auto undo = diff_.undo.rbegin(); undo != diff_.undo.rend(); ++undo) {
    if (undo->made && hasComeToLife(*undo))
      kept.push_back(diff_.made[*undo->made].path);
    else
      putBack(*undo);
    co_await pause();
  }
  staged_->forget(kept);
}

} // namespace Agent
