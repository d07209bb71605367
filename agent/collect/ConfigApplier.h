// Carries the configuration of interfaces to the kernel: description, MTU, enabled, addresses.
// docs/decisions.md: "Configuration is applied on a thread of its own."
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Kstd/Result.h"
#include "Tovak/TaskScheduler.h"
#include "agent/model/LinkChange.h"

namespace Agent {

// Applies changes one after the other on a thread of its own, because a driver may take long over one: all
// that is wanted of all links of a change, or nothing. What a link had before is remembered as the kernel has
// it, since not all of that has a leaf. A link that is not there wants nothing. The model follows by the
// kernel's events. Made and used on the scheduler thread; whoever made it owns it.
class ConfigApplier {
public:
  // What the kernel said; the text names the interface and the reason.
  using Outcome = Kstd::Result<void, std::string>;
  using Done = std::function<void(Outcome const&)>;

  explicit ConfigApplier(std::shared_ptr<Tovak::TaskScheduler> scheduler);
  // Changes that wait are dropped and their `done` is not called; one that is being applied is waited for.
  ~ConfigApplier();
  ConfigApplier(ConfigApplier const&) = delete;
  ConfigApplier& operator=(ConfigApplier const&) = delete;

  // Brings links to what is wanted of them, and calls `done` on the scheduler thread, later. What is right
  // already is found out when it is the change's turn, from the kernel: an earlier change may be on its way.
  // When the kernel refuses a part, what went before it is taken back.
  void apply(std::vector<LinkChange> links, Done done);

private:
  struct Shared;
  static void work(Shared& shared);

  std::shared_ptr<Shared> shared_; // with the thread, and with answers on their way
  std::thread thread_;
};

} // namespace Agent
