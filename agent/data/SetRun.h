// Carries out checked Sets on the model, or leaves it as it was. Scheduler thread.
//
// Invariants
// 1. One Set after the other changes the model, in their order.
// 2. A Set is compared with the model, and what it comes to is checked by the library, in slices, while
//    everybody reads. What is refused by then has written nothing.
// 3. Where configuration is to last, what a Set comes to is on the disk before the model changes: nobody sees
//    what a crash could take back, and no reader waits for the disk. While one waits for it, the next ones
//    are compared and sent after it, as long as none can change what another comes to (`SetPlaces`); so they
//    are synced together. Behind the disk a Set is compared anew, with what those before it have left.
//    A commit that is to be confirmed is provisional there until then: a start goes back to what was before.
//    Where configuration is carried to the machine, that comes between the disk and the model, and the Set is
//    provisional on the disk until the machine has it all: what the kernel refuses is told in its words, and
//    has not been. Such a Set is alone on its way.
//    Where rules hold for the configuration as a whole, they are asked first, on a thread of their own; what
//    they have go with a Set goes in it. Whatever changes such configuration is alone on its way, so that what
//    was asked of holds when it is written.
// 4. What the model refuses after that is taken back from the disk, before it is answered.
// 5. From its first write until all of it has been told, or taken back, walks wait and changes of its own
//    wait aside (`StagedSet`): whoever reads finds none of it or all. The machine's own work goes on
//    meanwhile.
// 6. When the model refuses a write half-way, which it does only where the machine has taken something away
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

#include "agent/context/TimeHistogram.h"
#include "agent/data/ClientEntries.h"
#include "agent/data/ConfirmedCommit.h"
#include "agent/data/LinkWishes.h"
#include "agent/data/SetExtensions.h"
#include "agent/data/SetPlan.h"

namespace Agent {

class ConfigRules;
class ConfigStore;
class Context;
class Router;

struct SetOrder {
  // Told once: how it ended, and the time of the end. RESOURCE_EXHAUSTED when there is no memory for what it
  // would make or tell, or no room on the disk, INTERNAL when the disk fails, FAILED_PRECONDITION when the
  // kernel refuses or a commit is in the way, CANCELLED when its client left
  // before anything was written.
  using Done = absl::AnyInvocable<void(grpc::Status const&, std::int64_t timestamp)>;

  std::unique_ptr<SetPlan> plan;
  std::atomic<bool> const* isCancelled = nullptr; // may be null; lives until `done` is called or dropped
  Done done;
  SetExtensions extensions = {};
  // The client's; what a store held, which the machine is told of otherwise; a commit's time is over; links
  // of the machine are to be as they are configured.
  enum class Source : std::uint8_t { Client, Store, Timeout, Links };
  Source source = Source::Client;
  std::set<std::string> links = {}; // of that last one
};

// All Sets of the agent; those that still wait when it goes are dropped.
//
// Nothing is written that stays as it is; entries that a request deletes and makes again stay, with their
// state. Entries are removed last. Subscribers are told in the published order, deletes first. The
// router outlives them.
class SetRuns final {
public:
  explicit SetRuns(Router& router);
  ~SetRuns();
  SetRuns(SetRuns const&) = delete;
  SetRuns& operator=(SetRuns const&) = delete;

  // Any thread.
  [[nodiscard]] Context& context() const noexcept;

  void setIs(SetOrder order);

  // Carries what is wanted of links to the machine; it outlives this, or is taken away before. Before the
  // first Set. May be null: configuration is the model's alone.
  void carrierIs(LinkCarrier* carrier) noexcept { carrier_ = carrier; }
  // All that a store held is wanted of the machine's links. Before the first Set of a client.
  void wantedIs(ConfigMap map) { wishes_.mapIs(std::move(map)); }
  [[nodiscard]] std::set<std::string> wantedLinks() const { return wishes_.links(); }
  // Has links brought to what is wanted of them. `done` as of a Set.
  void linksAre(std::set<std::string> links, SetOrder::Done done);
  // A link has come: it gets what is configured of it. `refused`, with why, if it cannot.
  void linkIs(std::string const& link, std::function<void(std::string const& why)> refused);

  // Where what Sets leave is to last; it outlives this. Before the first one. May be null: nowhere.
  void storeIs(ConfigStore* store) noexcept { store_ = store; }
  // How long it took to write down what Sets leave; null where nothing is to last.
  [[nodiscard]] TimeHistogram const* storeTimes() const noexcept {
    return store_ == nullptr ? nullptr : &storeTimes_;
  }

  // What the configuration is held to as a whole; it outlives this. Before the first one. May be null.
  void rulesIs(ConfigRules* rules) noexcept { rules_ = rules; }

private:
  class Run;
  class Queue;
  Router& router_;
  ConfigStore* store_ = nullptr;
  ConfigRules* rules_ = nullptr;
  TimeHistogram storeTimes_;
  ClientEntries entries_;
  Mastership masters_;
  ConfirmedCommit commit_;
  LinkCarrier* carrier_ = nullptr;
  LinkWishes wishes_;                   // what has been carried
  std::set<std::string> linksToFollow_; // came while a commit waited, and wait for its end
  std::shared_ptr<Queue> const queue_;
};

} // namespace Agent
