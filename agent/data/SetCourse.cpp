// A coroutine for each Set: compare, check, ask the rules, to the disk, to the machine, write, tell or take
// back, tidy up; compare anew whenever others have had their turn meanwhile.
#include "agent/data/SetCourse.h"

#include <utility>

#include "agent/context/Context.h"
#include "agent/data/SetBack.h"
#include "agent/data/SetRecord.h"
#include "agent/paths/OutPath.h"
#include "agent/router/Router.h"
#include "agent/store/ConfigRules.h"

namespace Agent {
namespace {

grpc::Status ended(grpc::Status const& status) {
  return status.ok() ? status : grpc::Status(status.error_code(), statusText(status.error_message(), 1024));
}

} // namespace

SetRuns::Run::Run(SetRuns& runs, SetOrder order, Queue& queue)
    : runs_(runs)
    , context_(runs.context())
    , order_(std::move(order))
    , queue_(queue)
    , coming_(context_.memory().entries)
    , carry_(runs.carrier_, runs.wishes_)
    , steps_(run()) {}

SetRuns::Run::~Run() {
  if (isOnTheWay_) queue_.onTheWay.leave(places_);
}

bool SetRuns::Run::resume() {
  if (writing_) writing_->sliceBegins();
  bool const goesOn = steps_.resume();
  if (writing_) writing_->sliceEnds();
  return goesOn;
}

Steps SetRuns::Run::run() {
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

Steps SetRuns::Run::compare() {
  diff_.emplace(*order_.plan, queue_);
  co_await diff_->run();
  co_await check();
}

Steps SetRuns::Run::check() {
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

// The model changes from here on.
Steps SetRuns::Run::carryOut() {
  writing_.emplace(runs_.router_, *diff_, runs_.entries_, queue_);
  co_await writing_->run(coming_);
  status_ = writing_->status();
  timestamp_ = writing_->timestamp();
}

// To let go of much takes its time, too.
Steps SetRuns::Run::tidy() {
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

// --- commits that are to be confirmed --------------------------------------------------------------------

Steps SetRuns::Run::begin() {
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

Steps SetRuns::Run::makeBack() {
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

void SetRuns::Run::endCommit() {
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

Steps SetRuns::Run::askRules() {
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

bool SetRuns::Run::carries() const {
  return runs_.carrier_ != nullptr && order_.source != Source::Store &&
         !(diff_->interfaces.empty() && order_.links.empty());
}

std::set<std::string> SetRuns::Run::links() const {
  std::set<std::string> links = diff_->interfaces;
  links.insert(order_.links.begin(), order_.links.end());
  return links;
}

ConfigChange SetRuns::Run::wish() const {
  return isBack_ && runs_.commit_.isRunning() ? runs_.commit_.unwish() : changeOf(*diff_, runs_.entries_);
}

Steps SetRuns::Run::look() {
  carry_.look(links(), wish(), whenAnswered());
  co_await untilAnswered();
  if (!carry_.refusal().empty()) status_ = {grpc::StatusCode::FAILED_PRECONDITION, carry_.refusal()};
}

Steps SetRuns::Run::carry() {
  carry_.carry(links(), wish(), whenAnswered());
  co_await untilAnswered();
  if (carry_.refusal().empty()) {
    co_await compare();
  } else {
    status_ = {grpc::StatusCode::FAILED_PRECONDITION, carry_.refusal()};
    carry_.refusedIs();
  }
}

Steps SetRuns::Run::carryBack() {
  carry_.carryBack(whenAnswered());
  co_await untilAnswered();
}

// --- the disk --------------------------------------------------------------------------------------------

Steps SetRuns::Run::store() {
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

Steps SetRuns::Run::confirm() {
  ConfigChange change;
  change.values.emplace_back(kWayBack, std::nullopt);
  co_await write(ConfigRecord::Kind::Confirm, std::move(change));
}

Steps SetRuns::Run::write(ConfigRecord::Kind kind, ConfigChange change) {
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

Steps SetRuns::Run::takeBackStored() {
  runs_.store_->takeBack(std::move(*back_), whenWritten());
  co_await untilAnswered(); // also what is not written now is taken back
}

ConfigStore::Done SetRuns::Run::whenWritten() {
  written_ = std::make_shared<Written>();
  return [written = written_, told = whenAnswered()](ConfigStore::Outcome outcome) mutable {
    *written = std::move(outcome);
    told();
  };
}

void SetRuns::Run::refused(ConfigStore::Refusal const& refusal) {
  status_ = {refusal.isFull ? grpc::StatusCode::RESOURCE_EXHAUSTED : grpc::StatusCode::INTERNAL,
             refusal.text};
}

// --- waiting ---------------------------------------------------------------------------------------------

absl::AnyInvocable<void()> SetRuns::Run::whenAnswered() {
  haveAnswered_ = std::make_shared<bool>(false);
  return [scheduler = context_.scheduler(), queue = queue_.weak_from_this(), answered = haveAnswered_] {
    scheduler->post([queue, answered] {
      *answered = true;
      if (auto const there = queue.lock()) there->scheduleTask();
    });
  };
}

// A function for what comes before the first pause, and a part for the pauses: clang 14 crashes on both in
// one.
Steps SetRuns::Run::untilAnswered() {
  waits_ = Waits::ForOthers;
  return waited();
}

Steps SetRuns::Run::toBeFirst() {
  waits_ = Waits::ToBeFirst;
  return waited();
}

Steps SetRuns::Run::waited() {
  while (waits_ == Waits::ForOthers ? !*haveAnswered_ : !queue_.isFirst(*this))
    co_await Steps::pauseIf(true);
}

Steps SetRuns::Run::beAlone() {
  isAlone_ = true;
  if (queue_.isFirst(*this)) co_return;
  co_await toBeFirst();
  co_await compare();
}

} // namespace Agent
