// Agent::Runtime: a running agent but for its listeners: its parts, each made of those before it.
#pragma once

#include "agent/context/Context.h"
#include "agent/data/SetRun.h"
#include "agent/router/Router.h"
#include "agent/service/Calls.h"

namespace Agent {

// One a process, as its context is. Whose thread a part belongs to is said there.
class Runtime {
public:
  explicit Runtime(Context::Options const& options = {});
  // Stops the loop, ends all calls and takes all watching off the model.
  ~Runtime();
  Runtime(Runtime const&) = delete;
  Runtime& operator=(Runtime const&) = delete;

  [[nodiscard]] Context& context() noexcept { return context_; }
  [[nodiscard]] Router& router() noexcept { return router_; }
  [[nodiscard]] Calls& calls() noexcept { return calls_; }
  [[nodiscard]] SetRuns& sets() noexcept { return sets_; }

private:
  Context context_;
  Router router_;
  Calls calls_;
  SetRuns sets_;
};

} // namespace Agent
