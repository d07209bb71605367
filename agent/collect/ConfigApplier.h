// Carries an interface's configuration to the kernel: description, MTU, enabled.
// docs/decisions.md: "Configuration is applied on a thread of its own."
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Kstd/Result.h"
#include "Tovak/TaskScheduler.h"
#include "agent/model/Interface.h"

namespace Agent {

// What is wanted of a link. What is left without value goes back to what it was before it was first wanted
// otherwise; it stays where it never was.
struct LinkChange {
  std::string name;
  std::string description; // empty: none
  std::optional<std::uint32_t> mtu;
  std::optional<bool> enabled;

  bool operator==(LinkChange const&) const = default;
};

// What the configuration of an interface asks for.
[[nodiscard]] LinkChange linkChangeOf(Interface const& interface);

// Applies changes one after the other on a thread of its own, because a driver may take long over one. What a
// link had before is remembered as the kernel has it, since not all of that has a leaf. The model follows by
// the kernel's events. Made and used on the scheduler thread; whoever made it owns it.
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

  // Applies what the kernel takes of a change, and calls `done` on the scheduler thread, later. What is right
  // already is found out when it is the change's turn, from the kernel: an earlier change may be on its way.
  void apply(LinkChange change, Done done);

private:
  struct Shared;
  static void work(Shared& shared);

  std::shared_ptr<Shared> shared_; // with the thread, and with answers on their way
  std::thread thread_;
};

} // namespace Agent
