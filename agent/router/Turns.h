// Agent::Turns: whose call does its work next: a walk's slice, or the delivery of changes that are of that
// call alone.
//
// Invariants
// 1. One turn at a time. The task that has it is scheduled, or runs; no other one of these is.
// 2. Peers have the turn one after the other, for a slice each, however many calls they have; a peer's calls
//    likewise among themselves. What needs less than the slice leaves the rest to its own next step, then to
//    the peer's other calls.
// 3. While reading is held no walk has a turn, nor keeps one that it has not begun; all go on from where they
//    were.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Tovak {
class Task;
class TaskScheduler;
} // namespace Tovak

namespace Agent {

// Scheduler thread.
class Turns {
public:
  enum class Kind : std::uint8_t { Walk, Delivery };
  class Turn;

  explicit Turns(std::shared_ptr<Tovak::TaskScheduler> scheduler) : scheduler_(std::move(scheduler)) {}
  Turns(Turns const&) = delete;
  Turns& operator=(Turns const&) = delete;

  // For one walk or delivery of a peer; the agent's own has none.
  [[nodiscard]] std::shared_ptr<Turn> turnIs(std::string const& peer, Kind kind);

  void readingHeldIs(bool isHeld);

private:
  struct Peer {
    std::deque<std::shared_ptr<Turn>> waiting;
    bool isInRing = false; // unless one of its own is the current one
  };

  void enqueue(std::shared_ptr<Turn> turn);
  void takeBack();
  void next();
  void ended(Turn& turn);

  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  absl::flat_hash_map<std::string, std::weak_ptr<Peer>> peers_;
  std::deque<std::shared_ptr<Peer>> ring_; // those of whom some turn waits
  std::shared_ptr<Turn> current_;
  std::int64_t usedNs_ = 0; // by the current one's peer
  bool isHeld_ = false;
  std::vector<std::shared_ptr<Turn>> held_;
};

// Made by `turnIs`, which it outlives only idle. Shared by whoever asks for it and the tasks that have it.
class Turns::Turn : public std::enable_shared_from_this<Turn> {
public:
  // Has the task scheduled when it is its turn; once, however often it is asked for before. `ran` must be
  // told around each run of it.
  void askFor(std::shared_ptr<Tovak::Task> task);
  // Nothing is asked for any more.
  void cancel();

  // Around a run.
  class Run {
  public:
    explicit Run(std::shared_ptr<Turn> turn);
    ~Run();
    Run(Run const&) = delete;
    Run& operator=(Run const&) = delete;

  private:
    std::shared_ptr<Turn> const turn_;
  };

private:
  friend class Turns;
  enum class State : std::uint8_t { Idle, Waiting, Granted, Running };

  Turn(Turns& turns, std::shared_ptr<Peer> peer, Kind kind)
      : turns_(turns)
      , peer_(std::move(peer))
      , kind_(kind) {}

  Turns& turns_;
  std::shared_ptr<Peer> const peer_;
  Kind const kind_;
  State state_ = State::Idle;
  std::shared_ptr<Tovak::Task> task_; // asked for
  std::int64_t beganNs_ = 0;
};

} // namespace Agent
