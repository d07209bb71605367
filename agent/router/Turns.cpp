// A ring of peers with a line of turns each: the turn goes to the next peer when a slice is used up. Held
// walks are put aside.
#include "agent/router/Turns.h"

#include <algorithm>
#include <utility>

#include "Tovak/Clock.h"
#include "Tovak/Task.h"
#include "Tovak/TaskScheduler.h"

namespace Agent {

// --- one turn ---------------------------------------------------------------------------------------------

void Turns::Turn::askFor(std::shared_ptr<Tovak::Task> task) {
  task_ = std::move(task);
  if (state_ == State::Idle) turns_.enqueue(shared_from_this());
}

void Turns::Turn::cancel() {
  std::shared_ptr<Tovak::Task> const task = std::exchange(task_, nullptr);
  switch (state_) {
  case State::Idle:
  case State::Running: break;                       // it ends by itself
  case State::Waiting: state_ = State::Idle; break; // and is passed over
  case State::Granted:
    if (task) task->descheduleTask();
    turns_.ended(*this);
  }
}

Turns::Turn::Run::Run(std::shared_ptr<Turn> turn) : turn_(std::move(turn)) {
  turn_->state_ = State::Running;
  turn_->task_.reset();
  turn_->beganNs_ = turn_->turns_.scheduler_->clock().monotonicNs();
}

Turns::Turn::Run::~Run() {
  Turns& turns = turn_->turns_;
  turns.usedNs_ += turns.scheduler_->clock().monotonicNs() - turn_->beganNs_;
  turns.ended(*turn_);
}

// --- all of them ------------------------------------------------------------------------------------------

std::shared_ptr<Turns::Turn> Turns::turnIs(std::string const& peer, Kind kind) {
  std::weak_ptr<Peer>& known = peers_[peer];
  std::shared_ptr<Peer> made = known.lock();
  if (!made) {
    made = std::make_shared<Peer>();
    known = made;
    absl::erase_if(peers_, [](auto const& one) { return one.second.expired(); });
  }
  return std::shared_ptr<Turn>(new Turn(*this, std::move(made), kind));
}

void Turns::readingHeldIs(bool isHeld) {
  isHeld_ = isHeld;
  if (isHeld) { // walks are put aside when it would be their turn
    bool const isGiven = current_ && current_->state_ == Turn::State::Granted;
    if (isGiven && current_->kind_ == Kind::Walk) takeBack();
    return;
  }
  for (std::shared_ptr<Turn>& turn : std::exchange(held_, {}))
    if (turn->state_ == Turn::State::Waiting) enqueue(std::move(turn));
}

// The walk that would run next waits with the others.
void Turns::takeBack() {
  std::shared_ptr<Turn> turn = std::exchange(current_, nullptr);
  turn->task_->descheduleTask();
  turn->state_ = Turn::State::Waiting;
  std::shared_ptr<Peer> const peer = turn->peer_;
  held_.push_back(std::move(turn));
  if (!peer->waiting.empty() && !std::exchange(peer->isInRing, true)) ring_.push_front(peer);
  usedNs_ = 0;
  next();
}

void Turns::enqueue(std::shared_ptr<Turn> turn) {
  turn->state_ = Turn::State::Waiting;
  std::shared_ptr<Peer> const peer = turn->peer_;
  peer->waiting.push_back(std::move(turn));
  bool const hasTurn = current_ && current_->peer_ == peer; // and comes into the ring when it ends
  if (!hasTurn && !std::exchange(peer->isInRing, true)) ring_.push_back(peer);
  next();
}

// Gives the turn on when nobody has it.
void Turns::next() {
  while (!current_ && !ring_.empty()) {
    std::shared_ptr<Peer> const peer = ring_.front();
    if (peer->waiting.empty()) {
      peer->isInRing = false;
      ring_.pop_front();
      continue;
    }
    std::shared_ptr<Turn> turn = std::move(peer->waiting.front());
    peer->waiting.pop_front();
    if (turn->state_ != Turn::State::Waiting) continue; // called off meanwhile
    if (isHeld_ && turn->kind_ == Kind::Walk) {
      held_.push_back(std::move(turn));
      continue;
    }
    peer->isInRing = false;
    ring_.pop_front();
    current_ = std::move(turn);
    current_->state_ = Turn::State::Granted;
    current_->task_->scheduleTask();
  }
}

void Turns::ended(Turn& turn) {
  std::shared_ptr<Turn> const ended = std::exchange(current_, nullptr);
  std::shared_ptr<Peer> const peer = turn.peer_;
  bool const isOver = usedNs_ >= scheduler_->sliceNs();
  turn.state_ = Turn::State::Idle;
  if (turn.task_) { // it has been asked for again
    turn.state_ = Turn::State::Waiting;
    peer->waiting.insert(isOver ? peer->waiting.end() : peer->waiting.begin(), ended);
  }
  if (!peer->waiting.empty()) {
    peer->isInRing = true;
    ring_.insert(isOver ? ring_.end() : ring_.begin(), peer);
  }
  if (isOver || peer->waiting.empty()) usedNs_ = 0;
  next();
}

} // namespace Agent
