// Two tasks take turns: one finds the next object, the other walks it; both wait while the receiver is full.
#include "agent/router/PatternWalk.h"

#include <absl/container/inlined_vector.h>

#include <utility>

#include "Ondra/KelTypeWalker.h"
#include "Ondra/WalkTask.h"
#include "Tovak/Task.h"
#include "Tovak/TaskScheduler.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

// Of all walks of the process: what is parked is known by it.
std::uint64_t& lastWalkId() {
  static std::uint64_t id = 0;
  return id;
}

} // namespace

// Looks for the next object.
class PatternWalk::Finder final : public Tovak::Task {
public:
  Finder(std::shared_ptr<Tovak::TaskScheduler> scheduler, PatternWalk* owner)
      : Tovak::Task(std::move(scheduler), "FindObjects", Tovak::TaskPriority::normal)
      , owner_(owner) {}

  void taskExecute() override {
    if (owner_ == nullptr) return;
    Turns::Turn::Run const run(owner_->turn_);
    owner_->find(*this);
  }
  void ownerDel() { owner_ = nullptr; }

private:
  PatternWalk* owner_;
};

// Walks one object.
class PatternWalk::Run final : public Ondra::WalkTask {
public:
  Run(std::shared_ptr<Tovak::TaskScheduler> scheduler, std::shared_ptr<Ondra::WalkInfo>& info,
      Kel::Ptr<Kel::Entity> object, PatternWalk* owner)
      : Ondra::WalkTask(std::move(scheduler), info, Tovak::TaskPriority::normal)
      , object_(std::move(object))
      , owner_(owner) {}

  void taskExecute() override {
    if (owner_ == nullptr) return;
    std::shared_ptr<Turns::Turn> const turn = owner_->turn_;
    Turns::Turn::Run const run(turn);
    if (object_ && object_->isOrphan()) { // it went between the turn that found it and this one
      owner_->runEnded();
      return;
    }
    std::shared_ptr<Tovak::Task> const self = shared_from_this();
    if (!owner_->receiver_.sliceBegins(*this)) {
      turn->askFor(self);
      return;
    }
    Ondra::WalkTask::taskExecute();
    if (isScheduled()) { // it would go on at once
      descheduleTask();
      turn->askFor(self);
    }
    object_.reset();
    if (owner_ != nullptr) owner_->receiver_.sliceEnded();
  }
  bool providerPaused() const override { return owner_ == nullptr; }
  void walkDone(Ondra::SyncWalkId const&, bool) override {
    if (owner_ != nullptr) owner_->runEnded();
  }
  void ownerDel() { owner_ = nullptr; }
  // The object that is to be walked, until that has begun.
  [[nodiscard]] Kel::Ptr<Kel::Entity> const& object() const { return object_; }

private:
  Kel::Ptr<Kel::Entity> object_; // until the first slice is over
  PatternWalk* owner_;
};

PatternWalk::PatternWalk(Ondra::BaseRouter& router, std::shared_ptr<Tovak::TaskScheduler> scheduler,
                         std::shared_ptr<Turns::Turn> turn, std::uint64_t id,
                         std::shared_ptr<Pattern const> pattern, Ondra::WalkerFlags flags, Receiver& receiver)
    : router_(router)
    , scheduler_(std::move(scheduler))
    , turn_(std::move(turn))
    , id_(id)
    , pattern_(std::move(pattern))
    , flags_(flags)
    , receiver_(receiver)
    , cursor_(*pattern_)
    , finder_(std::make_shared<Finder>(scheduler_, this)) {
  turn_->askFor(finder_);
}

PatternWalk::~PatternWalk() {
  turn_->cancel();
  finder_->ownerDel();
  if (!run_) return;
  run_->ownerDel();
  if (info_->task) Ondra::FullKelTypeWalker::cancelPendingWalk(info_);
  info_->task.reset();
}

void PatternWalk::find(Finder const& finder) {
  if (receiver_.isFull()) return; // `resume` goes on
  if (!receiver_.sliceBegins(finder)) {
    turn_->askFor(finder_);
    return;
  }
  for (;;) {
    switch (cursor_.next()) {
    case ObjectCursor::Result::Found: startRun(); return;
    case ObjectCursor::Result::End: receiver_.walkEnded(); return; // which may have dropped this
    case ObjectCursor::Result::Paused:
      if (!finder.taskShouldYield()) break;
      turn_->askFor(finder_);
      return;
    }
  }
}

void PatternWalk::startRun() {
  Kel::Ptr<Kel::Entity> const object = cursor_.takeObject();
  info_ = Ondra::WalkInfo::WalkInfoIs(router_, {Ondra::SyncId(id_), Ondra::WalkId(++lastWalkId())},
                                      cursor_.path(), object.get(), flags_);
  run_ = std::make_shared<Run>(scheduler_, info_, object, this);
  info_->task = run_;
  turn_->askFor(run_);
}

void PatternWalk::runEnded() {
  receiver_.sliceEnded();
  run_->ownerDel();
  run_.reset();
  info_->task.reset();
  info_.reset();
  turn_->askFor(finder_);
}

Ondra::WalkReach PatternWalk::reach(PathView const& path) const {
  absl::InlinedVector<gnmi::PathElem const*, 16> elems;
  for (std::size_t i = 0; i < path.size(); ++i)
    elems.push_back(&path[i]);
  auto const reach = run_ ? Ondra::walkReach(*info_, elems) : std::nullopt;
  if (!reach) return cursor_.reach(path.from(1)); // the first is the data root's
  if (Kel::Ptr<Kel::Entity> const& object =
          run_->object()) // what has gone since will not be looked for again
    return object->isOrphan() ? Ondra::WalkReach::Passed : Ondra::WalkReach::Ahead;
  return *reach;
}

void PatternWalk::resume() { // a walk that told its last with a full pipe waits too, though nothing is parked
  if (run_)
    turn_->askFor(run_);
  else
    turn_->askFor(finder_);
}

} // namespace Agent
