// How Sets go on: the course of each, and whose turn it is. For SetRun.cpp and SetCourse.cpp alone.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <absl/functional/any_invocable.h>

#include "Tovak/Task.h"
#include "agent/data/LinkCarry.h"
#include "agent/data/SetPlaces.h"
#include "agent/data/SetRun.h"
#include "agent/data/SetWriting.h"
#include "agent/store/ConfigStore.h"

namespace Agent {

// One after the other, in slices; those that wait for the disk, side by side.
class SetRuns::Queue final : public Tovak::Task {
public:
  explicit Queue(SetRuns& runs);
  ~Queue() override;

  void setIs(SetOrder order);
  void taskExecute() override;
  void allDel();

  [[nodiscard]] bool isFirst(Run const& run) const { return running_.front().get() == &run; }

  PlacesOnTheWay onTheWay;

private:
  // Whose turn it is; null when all wait for the disk, or there is none.
  [[nodiscard]] Run* next();

  SetRuns& runs_;
  std::deque<SetOrder> waiting_;
  std::deque<std::unique_ptr<Run>> running_;
};

// One Set. The runs and their queue outlive it.
class SetRuns::Run {
public:
  Run(SetRuns& runs, SetOrder order, Queue& queue);
  ~Run();
  Run(Run const&) = delete;
  Run& operator=(Run const&) = delete;

  // False once nothing of it is left.
  [[nodiscard]] bool resume();
  // It is at the beginning: whatever is ahead of it has been compared already, and must not change the model
  // now.
  [[nodiscard]] bool isComparing() const { return waits_ == Waits::No; }
  // REQUIRES that it is the first one.
  [[nodiscard]] bool canGoOn() const { return waits_ != Waits::ForOthers || *haveAnswered_; }
  // None is to follow before it has ended.
  [[nodiscard]] bool isAlone() const { return isAlone_; }

private:
  using Action = CommitOrder::Action;
  using Source = SetOrder::Source;
  enum class Waits : std::uint8_t { No, ToBeFirst, ForOthers };
  using Written = std::optional<ConfigStore::Outcome>;

  Steps run();
  Steps compare();
  Steps check();
  Steps carryOut();
  Steps tidy();

  // --- commits that are to be confirmed ---
  [[nodiscard]] bool isAction(Action action) const {
    return order_.extensions.commit && order_.extensions.commit->action == action;
  }
  // Who may go on; whatever is about a commit is alone.
  Steps begin();
  Steps makeBack();
  // It holds on the disk when the machine has it, or somebody confirms it. A way back from the past is none.
  [[nodiscard]] bool isProvisional() const {
    return isAction(Action::Commit) || (lasts() && carries() && !isBack_);
  }
  void endCommit();

  // --- the configuration as a whole ---
  Steps askRules();

  // --- the machine ---
  [[nodiscard]] bool carries() const;
  [[nodiscard]] std::set<std::string> links() const;
  // What is wanted of them from now on.
  [[nodiscard]] ConfigChange wish() const;
  // What the links have, before they are changed.
  Steps look();
  Steps carry();
  // The machine takes what it had.
  Steps carryBack();

  // --- the disk ---
  [[nodiscard]] bool lasts() const {
    return runs_.store_ != nullptr && order_.source != Source::Store && !isLeftForLater_;
  }
  Steps store();
  Steps confirm();
  Steps write(ConfigRecord::Kind kind, ConfigChange change);
  Steps takeBackStored();
  ConfigStore::Done whenWritten();
  void refused(ConfigStore::Refusal const& refusal);

  // --- waiting ---
  [[nodiscard]] Steps::Pause pause() const { return Steps::pauseIf(queue_.taskShouldYield()); }
  Steps toBeFirst();
  Steps waited(); // as `waits_` says
  Steps beAlone();
  // For another thread to call when it has done its part.
  absl::AnyInvocable<void()> whenAnswered();
  Steps untilAnswered();

  SetRuns& runs_;
  Context& context_;
  SetOrder order_;
  Queue& queue_;
  std::optional<SetDiff> diff_;
  grpc::Status status_;
  std::int64_t timestamp_ = 0;
  ByteBudget::Share coming_; // the entries that it is going to make
  SetPlaces places_;
  bool isOnTheWay_ = false; // its places have been entered
  bool isAlone_ = false;
  Waits waits_ = Waits::No;
  std::shared_ptr<bool> haveAnswered_; // those that are waited for
  std::shared_ptr<Written> written_;   // the disk's answer, when it has come
  LinkCarry carry_;                    // to the machine
  bool isLeftForLater_ = false;        // the disk's part, until a commit has ended
  std::string backBytes_;              // a request, that leads back
  std::unique_ptr<SetPlan> wayBack_;   // of a commit
  bool isLaidOver_ = false;            // the rules have it, and let it pass
  bool isBack_ = false;                // it leads back from a commit
  std::optional<ConfigChange> back_;   // takes back what is on the disk
  std::optional<SetWriting> writing_;  // from the first write on
  Steps steps_;                        // goes first
};

} // namespace Agent
