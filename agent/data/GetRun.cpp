// One path after the other, each into its answer, by a reading of objects or else by a snapshot, within the
// limits of size and memory; a path that gives nothing is looked up again.
#include "agent/data/GetRun.h"

#include <utility>

#include <fmt/format.h>

#include "Kel/ActivityClock.h"
#include "agent/context/Context.h"
#include "agent/data/ModelPlace.h"
#include "agent/paths/Pattern.h"
#include "agent/router/Router.h"

namespace Agent {

using grpc::StatusCode;

GetRun::GetRun(Router& router, GetOrder order, std::string address)
    : router_(router)
    , context_(router.context())
    , order_(std::move(order))
    , address_(std::move(address))
    , shares_(std::make_shared<Shares>(context_)) {}
GetRun::~GetRun() = default;

GetRun::Shares::Shares(Context const& context)
    : bytes(context.getBudget())
    , memory(context.memory().answers) {}

void GetRun::start(Done done) {
  done_ = std::move(done);
  next();
}

void GetRun::next() {
  if (!done_) return;
  std::size_t const index = answers_.size();
  if (index == order_.paths.size()) return end(grpc::Status::OK);
  auto pattern = Pattern::of(order_.paths[index]);
  if (!pattern) return end(pattern.error());
  answers_.push_back(std::make_unique<GetAnswer>(order_, index));
  auto const& access = order_.access;
  // An empty container that may not be read is as if it were not there.
  isReadable_ = !access || (pattern->isConcrete() && access->at(*pattern).permits());
  // Objects are read whole where all of them may be read.
  bool const isWhole = !access || access->coverOf(*pattern) == Pattern::Cover::All;
  if (auto plan = isWhole ? ObjectReading::planOf(order_, *pattern) : nullptr) {
    auto const self = shared_from_this();
    reading_ = std::make_unique<ObjectReading>(
        router_, order_, std::move(*pattern), std::move(plan), *answers_.back(), address_,
        [self](std::size_t bytes) { return self->hasGrown(bytes); },
        [self] {
          std::unique_ptr<ObjectReading> const ended = std::move(self->reading_); // until this has returned
          self->pathIsRead();
        });
    return;
  }
  snapshot_ = std::make_shared<Snapshot>(router_, std::move(*pattern), access, shared_from_this(), address_);
}

void GetRun::notification(gnmi::Notification const& notification) {
  if (isTooLarge_ || !done_) return;
  answers_.back()->add(notification);
  static_cast<void>(hasGrown(0));
}

bool GetRun::hasGrown(std::size_t beside) {
  GetAnswer const& answer = *answers_.back();
  if (bytes_ + answer.bytes() + beside > context_.limits().getBytes) {
    tooLargeIs(fmt::format("the answer has more than {} bytes: ask for less, or subscribe",
                           context_.limits().getBytes));
  } else if (!shares_->bytes.growTo(bytes_ + answer.bytes() + beside) ||
             !shares_->memory.growTo(memoryBytes_ + answer.memoryBytes() + beside)) {
    tooLargeIs("too many answers wait for their clients: try again later");
  }
  return !isTooLarge_;
}

void GetRun::tooLargeIs(std::string text) {
  isTooLarge_ = true;
  context_.scheduler()->post([self = shared_from_this(), text = std::move(text)] {
    self->end({StatusCode::RESOURCE_EXHAUSTED, text});
  });
}

void GetRun::done(grpc::Status const& status) {
  std::shared_ptr<Snapshot> const snapshot = std::exchange(snapshot_, nullptr); // until it has returned
  if (!status.ok()) return end(status);
  if (!isTooLarge_) pathIsRead();
}

void GetRun::pathIsRead() {
  GetAnswer& answer = *answers_.back();
  if (answer.isEmpty() && !answer.hasLeftOut()) {
    RequestPath const& path = order_.paths[answers_.size() - 1];
    if (!isContainerThere(path) || !isReadable_)
      return end({StatusCode::NOT_FOUND, fmt::format("{}: there is nothing", path.text())});
    answer.emptyContainerIs();
  }
  bytes_ += answer.bytes();
  memoryBytes_ += answer.memoryBytes();
  context_.scheduler()->post([self = shared_from_this()] { self->next(); });
}

grpc::ByteBuffer GetRun::takeResponse() {
  std::vector<grpc::Slice> slices;
  for (std::unique_ptr<GetAnswer>& answer : answers_) {
    answer->take(timestamp_, slices);
    answer.reset();
  }
  shares_->memory.bytesAre(bytes_);
  return {slices.data(), slices.size()};
}

void GetRun::cancel() { end({StatusCode::CANCELLED, "the client has left"}); }

void GetRun::end(grpc::Status const& status) {
  if (!done_) return;
  snapshot_.reset();
  reading_.reset();
  timestamp_ = Kel::activityManagerStatus()->activityLoopExecNsTime();
  std::exchange(done_, nullptr)(status);
}

} // namespace Agent
