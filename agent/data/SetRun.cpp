// Whose turn it is among Sets, and which of them begin by themselves.
#include "agent/data/SetRun.h"

#include <string>
#include <utility>

#include "agent/context/Context.h"
#include "agent/data/SetCourse.h"
#include "agent/router/Router.h"

namespace Agent {
namespace {

constexpr std::size_t kMostOnTheWay = 256; // to the disk

} // namespace

SetRuns::Queue::Queue(SetRuns& runs)
    : Tovak::Task(runs.context().scheduler(), "Sets", Tovak::TaskPriority::normal)
    , runs_(runs) {}
SetRuns::Queue::~Queue() = default;

void SetRuns::Queue::setIs(SetOrder order) {
  waiting_.push_back(std::move(order));
  scheduleTask();
}

void SetRuns::Queue::allDel() {
  descheduleTask();
  running_.clear();
  waiting_.clear();
}

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
