// Agent::ConfirmedCommit: the commit that waits to be confirmed, and goes back when it is not.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <grpcpp/support/status.h>

#include "Tovak/TaskScheduler.h"
#include "agent/data/SetExtensions.h"
#include "agent/data/SetPlan.h"
#include "agent/store/ConfigRecord.h"

namespace Agent {

// One at a time. Scheduler thread.
class ConfirmedCommit {
public:
  // `isDue`: told when its time is over.
  ConfirmedCommit(std::shared_ptr<Tovak::TaskScheduler> scheduler, std::function<void()> isDue)
      : scheduler_(std::move(scheduler))
      , isDue_(std::move(isDue)) {}
  ~ConfirmedCommit() { end(); }
  ConfirmedCommit(ConfirmedCommit const&) = delete;
  ConfirmedCommit& operator=(ConfirmedCommit const&) = delete;

  [[nodiscard]] bool isRunning() const noexcept { return running_.has_value(); }
  // Its time is over.
  [[nodiscard]] bool isOver() const noexcept { return running_ && running_->isOver; }
  // Whether a Set may go on: FAILED_PRECONDITION where it needs a commit that runs, or none; INVALID_ARGUMENT
  // for another one's id.
  [[nodiscard]] grpc::Status check(std::optional<CommitOrder> const& order) const;

  // `back`: what leads back, and `unwish` what is wanted of the machine. REQUIRES that none runs.
  void begin(CommitOrder const& order, std::unique_ptr<SetPlan> back, ConfigChange unwish);
  // These REQUIRE that one runs. Its time starts anew:
  void durationIs(std::int64_t ns);
  // The way back is tried.
  [[nodiscard]] std::unique_ptr<SetPlan> back();
  [[nodiscard]] ConfigChange const& unwish() const { return running_->unwish; }
  // It was not possible: a little later again.
  void backIs(std::unique_ptr<SetPlan> back);
  // It has ended; does nothing when none runs.
  void end();

private:
  struct Running {
    std::string id;
    std::unique_ptr<SetPlan> back;
    ConfigChange unwish;
    Tovak::TimerId timer = {};
    bool isOver = false;
  };
  std::shared_ptr<Tovak::TaskScheduler> const scheduler_;
  std::function<void()> const isDue_;
  std::optional<Running> running_;
};

} // namespace Agent
