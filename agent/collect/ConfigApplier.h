// Carries the configuration of interfaces to the kernel: description, MTU, enabled, addresses.
// docs/decisions.md: "Configuration is applied on a thread of its own."
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Tovak/TaskScheduler.h"
#include "agent/model/LinkChange.h"

namespace Agent {

// Applies changes one after the other on a thread of its own, because a driver may take long over one: all
// that is wanted of all links of a change, or nothing. What a link had before is remembered as the kernel has
// it, since not all of that has a leaf. A link that is not there wants nothing. The model follows by the
// kernel's events. Made and used on the scheduler thread; whoever made it owns it.
class ConfigApplier final : public LinkCarrier {
public:
  explicit ConfigApplier(std::shared_ptr<Tovak::TaskScheduler> scheduler);
  // Changes that wait are dropped and their `done` is not called; one that is being applied is waited for.
  ~ConfigApplier() override;
  ConfigApplier(ConfigApplier const&) = delete;
  ConfigApplier& operator=(ConfigApplier const&) = delete;

  // What an earlier process remembered. Before the first change.
  void beforesAre(LinkBefores befores);

  void look(std::vector<LinkChange> links, Looked done) override;
  // What is right already is found out when it is the change's turn, from the kernel: an earlier change may
  // be on its way. When the kernel refuses a part, what went before it is taken back.
  void carry(std::vector<LinkChange> links, Carried done) override;

private:
  struct Shared;
  static void work(Shared& shared);
  template <class Work, class Done>
  void post(Work work, Done done);

  std::shared_ptr<Shared> shared_; // with the thread, and with answers on their way
  std::thread thread_;
};

} // namespace Agent
