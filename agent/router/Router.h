// Agent::Router: where the library's walks and the changes of the model go. It knows walks by their ids; who
// wants changes, it is told.
//
// Invariants
// 1. What a walk tells goes to that walk's receiver, as long as the router knows it; what it tells afterwards
//    is nobody's.
// 2. Changes go to the one listener in their order. Those of a Set wait until it is told as a whole (see
//    StagedSet).
// 3. What happens anywhere in the model is told from the end of the first walk on that watches all of it, for
//    good.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include <absl/container/flat_hash_map.h>
#include <absl/functional/any_invocable.h>

#include "agent/router/PatternWalk.h"
#include "agent/router/Turns.h"

namespace Ondra {
class ArenaRespMsg;
} // namespace Ondra

namespace Agent {

class ChangeListener;
class Context;
class StagedSet;

// Outlives every walk and every watch of the model. Scheduler thread.
class Router {
public:
  explicit Router(Context& context);
  ~Router(); // takes all watching off the model
  Router(Router const&) = delete;
  Router& operator=(Router const&) = delete;

  [[nodiscard]] Context& context() const noexcept { return context_; }
  [[nodiscard]] Turns& turns() noexcept { return turns_; }

  // A walk for `receiver`, in turns of a peer of that address (empty: the agent's own), known until
  // `walkDel`; its maker owns it.
  [[nodiscard]] std::unique_ptr<PatternWalk> walkIs(std::shared_ptr<Pattern const> pattern,
                                                    Ondra::WalkerFlags flags, PatternWalk::Receiver& receiver,
                                                    std::string const& address);
  void walkDel(PatternWalk const& walk);

  // Null: nobody wants changes.
  void listenerIs(ChangeListener* listener) noexcept { listener_ = listener; }

  // Calls `begin` once all that happens is told: the whole model is watched, and no Set holds anything back.
  // At once or in a later turn, unless `waitDel` comes before.
  using Begin = absl::AnyInvocable<void()>;
  void whenWatched(void const* who, Begin begin);
  void waitDel(void const* who);

private:
  friend class StagedSet;
  class Messages;
  class Bytes;
  class Watch;
  struct Waiting {
    void const* who;
    Begin begin;
  };

  void change(std::shared_ptr<Ondra::ArenaRespMsg>& response);
  [[nodiscard]] bool isWatched() const noexcept;
  void waitingBegin();
  void stagedSetIs(StagedSet* set);

  Context& context_;
  std::unique_ptr<Messages> const messages_; // what the library pushes to: responses,
  std::unique_ptr<Bytes> const bytes_;       // or wire bytes
  std::uint64_t lastWalk_ = 0;
  absl::flat_hash_map<std::uint64_t, PatternWalk*> walks_;
  Turns turns_;
  ChangeListener* listener_ = nullptr;
  StagedSet* staged_ = nullptr; // that is being carried out
  std::deque<Waiting> waiting_;
  std::unique_ptr<Watch> watch_;
};

} // namespace Agent
