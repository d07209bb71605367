// A coroutine for each Set: compare, check, ask the rules, to the disk, compare again, write, tell or take
// back, tidy up. The queue says whose turn it is.
#include "agent/data/SetRun.h"

#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Kel/ActivityClock.h"
#include "Kel/Error.h"
#include "Tovak/Task.h"
#include "agent/context/Context.h"
#include "agent/data/ClientEntries.h"
#include "agent/data/LinkCarry.h"
#include "agent/data/SetBack.h"
#include "agent/data/SetDiff.h"
#include "agent/data/SetPlaces.h"
#include "agent/data/SetRecord.h"
#include "agent/data/SetUndo.h"
#include "agent/paths/OutPath.h"
#include "agent/router/Router.h"
#include "agent/router/StagedSet.h"
#include "agent/store/ConfigRules.h"
#include "agent/store/ConfigStore.h"

namespace Agent {
namespace {

grpc::Status ended(grpc::Status const& status) {
  return status.ok() ? status : grpc::Status(status.error_code(), statusText(status.error_message(), 1024));
}

} // namespace

// One after the other, in slices; those that wait for the disk, side by side.
class SetRuns::Queue final : public Tovak::Task {
public:
  explicit Queue(SetRuns& runs)
      : Tovak::Task(runs.context().scheduler(), "Sets", Tovak::TaskPriority::normal)
      , runs_(runs) {}

  void setIs(SetOrder order) {
    waiting_.push_back(std::move(order));
    scheduleTask();
  }
  void taskExecute() override;
  void allDel() {
    descheduleTask();
    running_.clear();
    waiting_.clear();
  }

  [[nodiscard]] bool isFirst(Run const& run) const { return running_.front().get() == &run; }

  PlacesOnTheWay onTheWay;

private:
  static constexpr std::size_t kMostOnTheWay = 256;
  // Whose turn it is; null when all wait for the disk, or there is none.
  [[nodiscard]] Run* next();

  SetRuns& runs_;
  std::deque<SetOrder> waiting_;
  std::deque<std::unique_ptr<Run>> running_;
};

class SetRuns::Run {
public:
  Run(SetRuns& runs, SetOrder order, Queue& queue)
      : runs_(runs)
      , context_(runs.context())
      , order_(std::move(order))
      , queue_(queue)
      , coming_(context_.memory().entries)
      , carry_(runs.carrier_, runs.wishes_)
      , steps_(run()) {}
  ~Run() {
    if (isOnTheWay_) queue_.onTheWay.leave(places_);
  }
  Run(Run const&) = delete;
  Run& operator=(Run const&) = delete;

  // False once nothing of it is left.
  [[nodiscard]] bool resume() {
    if (staged_) staged_->whoseIs(whose_);
    bool const goesOn = steps_.resume();
    if (staged_) staged_->whoseIs(Staging::Whose::Other);
    return goesOn;
  }
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

  [[nodiscard]] Steps::Pause pause() const { return Steps::pauseIf(queue_.taskShouldYield()); }

  Steps run() {
    co_await begin();
    if (status_.ok()) co_await compare();
    if (order_.isCancelled != nullptr && order_.isCancelled->load(std::memory_order_relaxed))
      status_ = {grpc::StatusCode::CANCELLED, "the client has left"};
    if (status_.ok() && carries()) co_await beAlone();
    if (status_.ok() && runs_.rules_ != nullptr) co_await askRules();
    if (status_.ok() && isProvisional()) co_await makeBack();
    if (status_.ok() && carries() && lasts() && !isBack_) co_await look();
    if (status_.ok() && lasts()) co_await store();
    if (status_.ok() && carries()) co_await carry();
    if (status_.ok() && isProvisional() && !isAction(Action::Commit)) co_await confirm();
    if (status_.ok()) {
      co_await toBeFirst();
      co_await carryOut();
    }
    if (!status_.ok() && carry_.hasCarried()) co_await carryBack();
    if (!status_.ok() && back_) co_await takeBackStored();
    if (isLaidOver_) status_.ok() ? runs_.rules_->keep() : runs_.rules_->takeBack();
    endCommit();
    std::exchange(order_.done, nullptr)(ended(status_), timestamp_);
    co_await tidy();
  }

  Steps compare() {
    diff_.emplace(*order_.plan, queue_);
    co_await diff_->run();
    co_await check();
  }

  Steps check() {
    coming_.bytesAre(0);
    if (!coming_.growTo(ClientEntries::bytesOf(diff_->made))) {
      status_ = {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory for more entries"};
      co_return;
    }
    bool const isInParts =
        diff_->resets.parts.size() + diff_->writes.parts.size() + diff_->removals.parts.size() > 1;
    if (!isInParts && runs_.store_ == nullptr) co_return; // the one part checks itself
    for (SetParts const* const parts : {&diff_->resets, &diff_->writes, &diff_->removals}) {
      for (auto const& part : parts->parts) {
        status_ = part.check();
        if (!status_.ok()) co_return;
        co_await pause();
      }
    }
  }

  // --- commits that are to be confirmed --------------------------------------------------------------------

  [[nodiscard]] bool isAction(Action action) const {
    return order_.extensions.commit && order_.extensions.commit->action == action;
  }

  // Who may go on; whatever is about a commit is alone.
  Steps begin() {
    auto const& [commit, election] = order_.extensions;
    isAlone_ = commit.has_value() || order_.source == Source::Timeout || order_.source == Source::Links;
    if (isAlone_) co_await toBeFirst();
    if (election) status_ = runs_.masters_.check(*election);
    if (status_.ok() && order_.source == Source::Client) status_ = runs_.commit_.check(commit);
    isLeftForLater_ = order_.source == Source::Links && runs_.commit_.isRunning();
    if (isLeftForLater_) runs_.linksToFollow_.insert(order_.links.begin(), order_.links.end());
    isBack_ = status_.ok() &&
              (isAction(Action::Cancel) || (order_.source == Source::Timeout && runs_.commit_.isOver()));
    if (isBack_) order_.plan = runs_.commit_.back();
  }

  Steps makeBack() {
    SetBack way(*diff_, queue_);
    co_await way.run();
    backBytes_ = way.request.SerializeAsString();
    auto plan = std::make_shared<std::optional<SetPlan::OrError>>();
    context_.worker().post([plan, request = std::move(way.request), told = whenAnswered()]() mutable {
      plan->emplace(setPlanOf(request));
      told();
    });
    co_await untilAnswered();
    if (**plan) {
      wayBack_ = std::move(***plan);
    } else {
      status_ = {grpc::StatusCode::RESOURCE_EXHAUSTED,
                 "the way back from this commit is too long: " + (*plan)->error().error_message()};
    }
  }

  // It holds on the disk when the machine has it, or somebody confirms it. A way back from the past is none.
  [[nodiscard]] bool isProvisional() const {
    return isAction(Action::Commit) || (lasts() && carries() && !isBack_);
  }
  [[nodiscard]] bool lasts() const {
    return runs_.store_ != nullptr && order_.source != Source::Store && !isLeftForLater_;
  }

  void endCommit() {
    if (isBack_ && !status_.ok()) return runs_.commit_.backIs(std::move(order_.plan));
    if (!status_.ok()) return;
    if (isAction(Action::Commit))
      runs_.commit_.begin(*order_.extensions.commit, std::move(wayBack_), carry_.takeUnwish());
    if (isAction(Action::Duration)) runs_.commit_.durationIs(order_.extensions.commit->durationNs);
    if (isAction(Action::Confirm) || isBack_) runs_.commit_.end();
    // Without its confirmation a commit does not outlive the process: what leads back needs no room.
    if (isBack_ && runs_.store_ != nullptr) runs_.store_->takeBack({}, nullptr);
    if (!runs_.commit_.isRunning() && !runs_.linksToFollow_.empty())
      runs_.linksAre(std::exchange(runs_.linksToFollow_, {}), [](grpc::Status const&, std::int64_t) {});
  }

  // --- the configuration as a whole ------------------------------------------------------------------------

  Steps askRules() {
    ConfigChange change = changeOf(*diff_, runs_.entries_);
    if (change.isEmpty()) co_return;
    if (!queue_.isFirst(*this)) {
      co_await beAlone();
      if (!status_.ok()) co_return;
      change = changeOf(*diff_, runs_.entries_);
    }
    isAlone_ = true;
    bool const hasHeld = isBack_ || order_.source == SetOrder::Source::Store;
    auto const verdict = std::make_shared<ConfigRules::Verdict>();
    runs_.rules_->changeIs(std::move(change), hasHeld ? ConfigRules::How::AsItIs : ConfigRules::How::Checked,
                           [verdict, answered = whenAnswered()](ConfigRules::Verdict told) mutable {
                             *verdict = std::move(told);
                             answered();
                           });
    co_await untilAnswered();
    isLaidOver_ = verdict->refusal.empty();
    if (!isLaidOver_) status_ = {grpc::StatusCode::INVALID_ARGUMENT, verdict->refusal};
    if (!isLaidOver_ || verdict->gone.empty()) co_return;
    for (std::string const& place : verdict->gone)
      order_.plan->clear(pathOfBytes(place));
    co_await compare();
  }

  // --- the machine -----------------------------------------------------------------------------------------

  [[nodiscard]] bool carries() const {
    return runs_.carrier_ != nullptr && order_.source != Source::Store &&
           !(diff_->interfaces.empty() && order_.links.empty());
  }

  Steps beAlone() {
    isAlone_ = true;
    if (queue_.isFirst(*this)) co_return;
    co_await toBeFirst();
    co_await compare();
  }

  [[nodiscard]] std::set<std::string> links() const {
    std::set<std::string> links = diff_->interfaces;
    links.insert(order_.links.begin(), order_.links.end());
    return links;
  }
  // What is wanted of them from now on.
  [[nodiscard]] ConfigChange wish() const {
    return isBack_ && runs_.commit_.isRunning() ? runs_.commit_.unwish() : changeOf(*diff_, runs_.entries_);
  }

  // What the links have, before they are changed.
  Steps look() {
    carry_.look(links(), wish(), whenAnswered());
    co_await untilAnswered();
    if (!carry_.refusal().empty()) status_ = {grpc::StatusCode::FAILED_PRECONDITION, carry_.refusal()};
  }

  Steps carry() {
    carry_.carry(links(), wish(), whenAnswered());
    co_await untilAnswered();
    if (carry_.refusal().empty()) {
      co_await compare();
    } else {
      status_ = {grpc::StatusCode::FAILED_PRECONDITION, carry_.refusal()};
      carry_.refusedIs();
    }
  }

  // The machine takes what it had.
  Steps carryBack() {
    carry_.carryBack(whenAnswered());
    co_await untilAnswered();
  }

  // --- the disk --------------------------------------------------------------------------------------------

  Steps store() {
    places_ = SetPlaces::of(*order_.plan, *diff_);
    isAlone_ = isAlone_ || places_.isWide || queue_.onTheWay.disturb(places_);
    if (isAlone_ && !queue_.isFirst(*this)) {
      co_await toBeFirst();
      co_await compare();
      if (!status_.ok()) co_return;
    }
    if (isBack_ || (diff_->isEmpty() && carry_.befores().empty() && !isAction(Action::Confirm))) co_return;
    ConfigChange change = changeOf(*diff_, runs_.entries_);
    beforesInto(carry_.befores(), change);
    if (change.isEmpty() && !isAction(Action::Confirm)) co_return; // none of it is configuration
    queue_.onTheWay.enter(places_);
    isOnTheWay_ = true;
    if (isProvisional()) change.values.emplace_back(kWayBack, backBytes_);
    using Kind = ConfigRecord::Kind;
    if (isAction(Action::Confirm))
      co_await confirm();
    else
      co_await write(isProvisional() ? Kind::Provisional : Kind::Change, std::move(change));
    if (status_.ok()) co_await compare();
  }

  Steps confirm() {
    ConfigChange change;
    change.values.emplace_back(kWayBack, std::nullopt);
    co_await write(ConfigRecord::Kind::Confirm, std::move(change));
  }

  Steps write(ConfigRecord::Kind kind, ConfigChange change) {
    std::int64_t const begun = context_.clock().monotonicNs();
    runs_.store_->write(kind, std::move(change), whenWritten());
    co_await untilAnswered();
    runs_.storeTimes_.add(context_.clock().monotonicNs() - begun);
    ConfigStore::Outcome& outcome = **written_;
    if (outcome)
      back_ = std::move(*outcome);
    else
      refused(outcome.error());
  }

  Steps takeBackStored() {
    runs_.store_->takeBack(std::move(*back_), whenWritten());
    co_await untilAnswered(); // also what is not written now is taken back
  }

  ConfigStore::Done whenWritten() {
    written_ = std::make_shared<Written>();
    return [written = written_, told = whenAnswered()](ConfigStore::Outcome outcome) mutable {
      *written = std::move(outcome);
      told();
    };
  }

  // For another thread to call when it has done its part.
  absl::AnyInvocable<void()> whenAnswered() {
    haveAnswered_ = std::make_shared<bool>(false);
    return [scheduler = context_.scheduler(), queue = queue_.weak_from_this(), answered = haveAnswered_] {
      scheduler->post([queue, answered] {
        *answered = true;
        if (auto const there = queue.lock()) there->scheduleTask();
      });
    };
  }
  Steps untilAnswered() {
    waits_ = Waits::ForOthers;
    while (!*haveAnswered_)
      co_await Steps::pauseIf(true);
  }
  Steps toBeFirst() {
    waits_ = Waits::ToBeFirst;
    while (!queue_.isFirst(*this))
      co_await Steps::pauseIf(true);
  }

  void refused(ConfigStore::Refusal const& refusal) {
    status_ = {refusal.isFull ? grpc::StatusCode::RESOURCE_EXHAUSTED : grpc::StatusCode::INTERNAL,
               refusal.text};
  }

  // --- the model -------------------------------------------------------------------------------------------

  // The model changes from here on.
  Steps carryOut() {
    staged_.emplace(runs_.router_);
    co_await writeParts(diff_->resets);
    co_await writeParts(diff_->writes);
    co_await writePlain();
    makePresences();
    staged_->whoseIs(whose_ = Staging::Whose::OwnRemoval);
    co_await writeParts(diff_->removals);
    staged_->whoseIs(whose_ = Staging::Whose::Own);
    timestamp_ = Kel::activityManagerStatus()->activityLoopExecNsTime();
    if (status_.ok())
      co_await note();
    else
      co_await takeBack();
    while (!staged_->tellSome(queue_))
      co_await Steps::pauseIf(true);
    staged_.reset();
  }

  Steps takeBack() {
    std::vector<std::string> kept;
    for (auto undo = diff_->undo.rbegin(); undo != diff_->undo.rend(); ++undo) {
      if (undo->made && hasComeToLife(*undo))
        kept.push_back(diff_->made[*undo->made].path);
      else
        putBack(*undo);
      co_await pause();
    }
    staged_->forget(kept);
  }

  Steps writeParts(SetParts const& parts) {
    for (auto const& part : parts.parts) {
      if (!status_.ok()) co_return;
      status_ = part.execute();
      if (status_.ok() && !staged_->hasRoom())
        status_ = {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory for what it would tell"};
      co_await pause();
    }
  }

  Steps writePlain() {
    constexpr std::size_t kAtATime = 16;
    std::size_t count = 0;
    for (PlainWrite const& write : diff_->plain) {
      if (!status_.ok()) co_return;
      if (static_cast<Kel::Entity const*>(write.object->object())->isOrphan()) {
        status_ = {grpc::StatusCode::ABORTED, "what the request names has gone meanwhile"};
        co_return;
      }
      try {
        write.attr.genericIfSet(write.object, nullptr, write.value);
      } catch (Kel::Error const& error) {
        status_ = {grpc::StatusCode::INVALID_ARGUMENT, error.what()};
      }
      if (++count % kAtATime != 0) continue;
      if (!staged_->hasRoom())
        status_ = {grpc::StatusCode::RESOURCE_EXHAUSTED, "there is no memory for what it would tell"};
      co_await pause();
    }
  }

  // What follows from a success.
  Steps note() {
    bool hasChanged = diff_->removals.size() != 0 || !diff_->made.empty() || !diff_->presences.empty();
    for (auto undo = diff_->undo.begin(); undo != diff_->undo.end() && !hasChanged; ++undo) {
      hasChanged = !isAsBefore(*undo);
      co_await pause();
    }
    for (std::string const& path : diff_->gone) {
      runs_.entries_.gone(path);
      co_await pause();
    }
    coming_.bytesAre(0);
    for (auto& made : diff_->made) {
      runs_.entries_.made(std::move(made));
      co_await pause();
    }
    if (hasChanged)
      context_.tree().system->state->leafIs(&SystemState::lastConfigurationTimestamp,
                                            static_cast<std::uint64_t>(timestamp_));
  }

  // To let go of much takes its time, too.
  void makePresences() {
    for (std::string const& path : diff_->presences) {
      if (!status_.ok()) return;
      if (!containerIsAt(pathOfBytes(path)))
        status_ = {grpc::StatusCode::ABORTED, "what the request names has gone meanwhile"};
    }
  }

  Steps tidy() {
    if (!diff_) co_return;
    context_.worker().post(
        [plan = std::move(order_.plan), made = std::move(diff_->made), gone = std::move(diff_->gone)] {});
    for (SetParts* const parts : {&diff_->resets, &diff_->writes, &diff_->removals}) {
      while (!parts->parts.empty()) {
        parts->parts.pop_back();
        co_await pause();
      }
    }
    while (!diff_->undo.empty()) {
      diff_->undo.pop_back();
      co_await pause();
    }
  }

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
  std::shared_ptr<bool> haveAnswered_;         // those that are waited for
  std::shared_ptr<Written> written_;           // the disk's answer, when it has come
  LinkCarry carry_;                            // to the machine
  bool isLeftForLater_ = false;                // the disk's part, until a commit has ended
  std::string backBytes_;                      // a request, that leads back
  std::unique_ptr<SetPlan> wayBack_;           // of a commit
  bool isLaidOver_ = false;                    // the rules have it, and let it pass
  bool isBack_ = false;                        // it leads back from a commit
  std::optional<ConfigChange> back_;           // takes back what is on the disk
  std::optional<StagedSet> staged_;            // from the first write on
  Staging::Whose whose_ = Staging::Whose::Own; // then: whose the changes of our slices are
  Steps steps_;                                // goes first
};

SetRuns::Run* SetRuns::Queue::next() {
  if (!running_.empty()) {
    Run& last = *running_.back();
    if (last.isComparing()) return &last;
    if (running_.front()->canGoOn()) return running_.front().get();
    if (last.isAlone() || running_.size() == kMostOnTheWay) return nullptr;
  }
  if (waiting_.empty()) return nullptr;
  running_.push_back(std::make_unique<Run>(runs_, std::move(waiting_.front()), *this));
  waiting_.pop_front();
  return running_.back().get();
}

void SetRuns::Queue::taskExecute() {
  while (Run* const run = next()) {
    if (!run->resume()) std::erase_if(running_, [run](auto const& one) { return one.get() == run; });
    if (taskShouldYield()) break;
  }
  if (next() != nullptr) scheduleTask();
}

SetRuns::SetRuns(Router& router)
    : router_(router)
    , entries_(router.context().memory().entries)
    , commit_(router.context().scheduler(),
              [this] {
                setIs({.plan = std::make_unique<SetPlan>(),
                       .done = [](grpc::Status const&, std::int64_t) {},
                       .source = SetOrder::Source::Timeout});
              })
    , queue_(std::make_shared<Queue>(*this)) {}
SetRuns::~SetRuns() { queue_->allDel(); }

Context& SetRuns::context() const noexcept { return router_.context(); }

void SetRuns::setIs(SetOrder order) { queue_->setIs(std::move(order)); }

void SetRuns::linksAre(std::set<std::string> links, SetOrder::Done done) {
  setIs({.plan = std::make_unique<SetPlan>(),
         .done = std::move(done),
         .source = SetOrder::Source::Links,
         .links = std::move(links)});
}

void SetRuns::linkIs(std::string const& link, std::function<void(std::string const& why)> refused) {
  if (carrier_ == nullptr) return;
  gnmi::SetRequest const request = wishes_.requestFor(link);
  if (request.update_size() + request.delete__size() == 0) return;
  auto plan = setPlanOf(request); // its entry begins with what the machine gives
  setIs({.plan = plan ? std::move(*plan) : std::make_unique<SetPlan>(),
         .done =
             [refused = std::move(refused)](grpc::Status const& status, std::int64_t) {
               if (!status.ok()) refused(status.error_message());
             },
         .source = SetOrder::Source::Links,
         .links = {link}});
}

} // namespace Agent
