// Agent::PatternWalk: the walks of everything that a pattern covers, one object after the other.
//
// Invariants
// 1. One walk at a time. An object is looked up, and held, in the turn before its walk's first slice, which
//    looks at it again; no object is held across any other turn.
// 2. Once it is gone, nothing of it runs: its walk is called off, and pushes that name it are nobody's.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Ondra/WalkReach.h"
#include "Ondra/WalkTypes.h"
#include "agent/paths/ObjectCursor.h"
#include "agent/paths/Pattern.h"
#include "agent/router/Turns.h"

namespace Ondra {
class ArenaRespMsg;
class BaseRouter;
struct WalkInfo;
struct WireResponse;
} // namespace Ondra
namespace Tovak {
class Task;
class TaskScheduler;
} // namespace Tovak

namespace Agent {

// Scheduler thread. Whoever made it owns it and may drop it at any time except within `take`.
class PatternWalk {
public:
  class Receiver {
  public:
    virtual ~Receiver() = default;
    // A response as it is walked: more than the pattern may cover. False: no more until `resume`.
    virtual bool take(std::shared_ptr<Ondra::ArenaRespMsg>& response) = 0;
    // Takes wire bytes instead, by `takeBytes`. Asked once, when the walk is made.
    [[nodiscard]] virtual bool wantsBytes() const { return false; }
    virtual bool takeBytes(Ondra::WireResponse const&) { return true; }
    // A slice is about to begin. False: not yet, the task's turn has been used up otherwise.
    [[nodiscard]] virtual bool sliceBegins(Tovak::Task const&) { return true; }
    // A slice is over: other work, and changes of the model, may follow.
    virtual void sliceEnded() {}
    // Whether it would answer false.
    [[nodiscard]] virtual bool isFull() const { return false; }
    // All has been told. May drop the walk.
    virtual void walkEnded() = 0;
  };

  // `turn`: its own, for all its work. `id`, not 0, names it to the router. Starts by itself, when it is its
  // turn.
  PatternWalk(Ondra::BaseRouter& router, std::shared_ptr<Tovak::TaskScheduler> scheduler,
              std::shared_ptr<Turns::Turn> turn, std::uint64_t id, std::shared_ptr<Pattern const> pattern,
              Ondra::WalkerFlags flags, Receiver& receiver);
  ~PatternWalk();
  PatternWalk(PatternWalk const&) = delete;
  PatternWalk& operator=(PatternWalk const&) = delete;

  [[nodiscard]] std::uint64_t id() const noexcept { return id_; }
  bool take(std::shared_ptr<Ondra::ArenaRespMsg>& response) { return receiver_.take(response); }
  bool takeBytes(Ondra::WireResponse const& response) { return receiver_.takeBytes(response); }
  // The receiver takes more.
  void resume();
  // Whether it has still to read what lies at an internal path.
  [[nodiscard]] Ondra::WalkReach reach(PathView const& path) const;

private:
  class Finder;
  class Run;

  void find(Finder const& finder);
  void startRun();
  void runEnded();

  Ondra::BaseRouter& router_;
  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  std::shared_ptr<Turns::Turn> const turn_;
  std::uint64_t const id_;
  std::shared_ptr<Pattern const> const pattern_;
  Ondra::WalkerFlags const flags_;
  Receiver& receiver_;
  ObjectCursor cursor_;
  std::shared_ptr<Finder> finder_;
  std::shared_ptr<Run> run_; // of the object that is walked
  std::shared_ptr<Ondra::WalkInfo> info_;
};

} // namespace Agent
