// Agent::StagedSet: a Set from its first write until all of it has been told, or taken back: whoever reads
// finds none of it, or all.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "agent/router/Staging.h"

namespace Agent {

class Router;

// While it is there nothing is read and no STREAM begins, and changes wait aside (see Staging). Its end lets
// everything go on, and forgets what has not been told. Scheduler thread; the router outlives it.
class StagedSet {
public:
  // REQUIRES that there is no other.
  explicit StagedSet(Router& router);
  ~StagedSet();
  StagedSet(StagedSet const&) = delete;
  StagedSet& operator=(StagedSet const&) = delete;

  // Whose the changes are that come now; the Set's own at first.
  void whoseIs(Staging::Whose whose) noexcept { whose_ = whose; }
  [[nodiscard]] bool hasRoom() const noexcept { return staging_->hasRoom(); }
  // Forgets the changes of the Set, but at and below `kept`.
  void forget(std::span<std::string const> kept);
  // Tells those that wait; false when the task's slice is over before.
  [[nodiscard]] bool tellSome(Tovak::Task const& task);

  // For the router: whether a change waits here; else it passes by.
  [[nodiscard]] bool take(Staging::Response const& response) { return staging_->take(response, whose_); }

private:
  Router& router_;
  std::unique_ptr<Staging> staging_;
  Staging::Whose whose_ = Staging::Whose::Own;
};

} // namespace Agent
