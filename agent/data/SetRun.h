// Carries out checked Sets on the model, or leaves it as it was. Scheduler thread.
//
// Invariants
// 1. One Set after the other, in their order.
// 2. A Set is compared with the model, and what it comes to is checked by the library, in slices, while
//    everybody reads. What is refused by then has written nothing.
// 3. From its first write until all of it has been told, or taken back, walks wait and changes of its own
//    wait aside (`StagedSet`): whoever reads finds none of it or all. The machine's own work goes on
//    meanwhile.
// 4. When the model refuses a write half-way, which it does only where the machine has taken something away
//    meanwhile, everything written before is put back.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include <absl/functional/any_invocable.h>
#include <grpcpp/support/status.h>

#include "agent/data/ClientEntries.h"
#include "agent/data/SetPlan.h"

namespace Agent {

class Context;
class Router;

struct SetOrder {
  // Told once: how it ended, and the time of the end. RESOURCE_EXHAUSTED when there is no memory for what it
  // would make or tell, CANCELLED when its client left before anything was written.
  using Done = absl::AnyInvocable<void(grpc::Status const&, std::int64_t timestamp)>;

  std::unique_ptr<SetPlan> plan;
  std::atomic<bool> const* isCancelled = nullptr; // may be null; lives until `done` is called or dropped
  Done done;
};

// All Sets of the agent; those that still wait when it goes are dropped.
//
// Nothing is written that stays as it is; entries that a request deletes and makes again stay, with their
// state. Entries are removed last. Subscribers are told in the published order, deletes first. After a
// success whoever applies configuration learns of it. The router outlives them.
class SetRuns final {
public:
  explicit SetRuns(Router& router);
  ~SetRuns();
  SetRuns(SetRuns const&) = delete;
  SetRuns& operator=(SetRuns const&) = delete;

  // Any thread.
  [[nodiscard]] Context& context() const noexcept;

  void setIs(SetOrder order);

  // Called after a Set that wrote the configuration of interfaces, with their names. May be null.
  using ConfigChanged = std::function<void(std::set<std::string> const& interfaces)>;
  void configChangedIs(ConfigChanged changed) { configChanged_ = std::move(changed); }

private:
  class Run;
  class Queue;
  Router& router_;
  ClientEntries entries_;
  ConfigChanged configChanged_;
  std::shared_ptr<Queue> const queue_;
};

} // namespace Agent
