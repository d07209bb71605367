// In three sections, requests, responses, the end: what gRPC's threads, the pumps and the scheduler do, and
// under which lock.
#include "agent/service/SubscribeStream.h"

#include <grpc/grpc.h>

#include <utility>

#include "agent/context/Context.h"
#include "agent/paths/RequestParts.h"
#include "agent/service/Calls.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"

namespace Agent {
namespace {

grpc::Status invalid(char const* what) { return {grpc::StatusCode::INVALID_ARGUMENT, what}; }

grpc::Status parse(grpc::ByteBuffer& from, gnmi::SubscribeRequest& into) {
  grpc::Status const status = grpc::SerializationTraits<gnmi::SubscribeRequest>::Deserialize(&from, &into);
  return status.ok() ? status : invalid("the message is no SubscribeRequest");
}

} // namespace

grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>*
subscribeCall(grpc::CallbackServerContext& context, Guest guest, std::shared_ptr<Gate> gate, Calls& calls) {
  auto const stream = std::make_shared<SubscribeStream>(context, std::move(guest), std::move(gate), calls);
  stream->begin();
  return stream.get();
}

SubscribeStream::SubscribeStream(grpc::CallbackServerContext& context, Guest guest,
                                 std::shared_ptr<Gate> gate, Calls& calls)
    : serverContext_(&context)
    , calls_(calls)
    , context_(calls.context())
    , caller_(context)
    , id_(calls.nextId())
    , startNs_(context_.clock().wallNs())
    , address_(addressOf(context.peer()))
    , guest_(std::move(guest))
    , gate_(std::move(gate))
    , queue_(context_.limits().queueBytes, context_.memory().queues) {}

void SubscribeStream::begin() {
  self_ = shared_from_this();
  bool isAllowed = false;
  {
    std::lock_guard const guard(mutex_);
    slot_ = calls_.slotIs(address_);
    isAllowed = slot_ != nullptr;
  }
  if (isAllowed) {
    context_.scheduler()->post([self = shared_from_this()] { self->calls_.streamIs(self); });
    StartRead(&request_);
  } else {
    end({grpc::StatusCode::RESOURCE_EXHAUSTED, "there are too many Subscribe calls"});
  }
  if (gate_) gate_->enter(shared_from_this(), guest_);
}

// --- requests ---------------------------------------------------------------------------------------------

void SubscribeStream::OnReadDone(bool ok) {
  if (ok) {
    gnmi::SubscribeRequest request;
    grpc::Status const status = parse(request_, request);
    if (status.ok())
      take(request);
    else
      end(status);
    return;
  }
  if (!mode_) {
    end(invalid("the call ended before a subscription list"));
    return;
  }
  context_.scheduler()->post([self = shared_from_this()] { self->calls_.halfClosed(*self); });
}

void SubscribeStream::take(gnmi::SubscribeRequest const& request) {
  if (!mode_) {
    grpc::Status const status = takeList(request);
    if (!status.ok())
      end(status);
    else if (*mode_ != CallMode::Poll)
      StartRead(&request_);
    return;
  }
  if (request.request_case() == gnmi::SubscribeRequest::kPoll && *mode_ == CallMode::Poll) {
    {
      std::lock_guard const guard(mutex_);
      readsAfterSync_ = true;
    }
    context_.scheduler()->post([self = shared_from_this()] { self->calls_.poll(*self); });
    return;
  }
  switch (request.request_case()) {
  case gnmi::SubscribeRequest::kSubscribe: end(invalid("a call takes one subscription list")); break;
  case gnmi::SubscribeRequest::kPoll: end(invalid("only a call of mode POLL can be polled")); break;
  case gnmi::SubscribeRequest::REQUEST_NOT_SET:
    end(invalid("the request holds neither a subscription list nor a poll"));
    break;
  }
}

grpc::Status SubscribeStream::takeList(gnmi::SubscribeRequest const& request) {
  if (request.request_case() != gnmi::SubscribeRequest::kSubscribe)
    return invalid("the first message holds no subscription list");
  if (grpc::Status status = checkExtensions(request.extension(), CallKind::Subscribe); !status.ok())
    return status;
  CallPlan::OrError plan = CallPlan::of(request.subscribe(), context_.limits());
  if (!plan.ok()) return plan.error();
  plan->depth = depthOf(request.extension());
  plan->access = guest_.rights.reads;
  mode_ = plan->mode;
  {
    std::lock_guard const guard(mutex_);
    sent_.mode = mode_;
    readsAfterSync_ = mode_ == CallMode::Poll; // the list is answered like a poll
  }
  context_.scheduler()->post(
      [self = shared_from_this(), plan = std::move(plan).value()] { self->calls_.callIs(self, plan); });
  return grpc::Status::OK;
}

// --- responses --------------------------------------------------------------------------------------------

void SubscribeStream::push(std::span<Message::Ptr const> messages) {
  static_cast<void>(pushUntilFull(messages, true));
}

std::size_t SubscribeStream::pushSome(std::span<Message::Ptr const> messages) {
  return pushUntilFull(messages, false);
}

std::size_t SubscribeStream::pushUntilFull(std::span<Message::Ptr const> messages, bool all) {
  std::size_t count = 0;
  bool pumpIs = false;
  {
    std::lock_guard const guard(mutex_);
    if (end_) return messages.size();
    for (; count < messages.size() && (all || !queue_.isFull()); ++count)
      queue_.push(messages[count]);
    pumpIs = count > 0 && !writing_ && !std::exchange(pumpComes_, true);
  }
  if (pumpIs) calls_.pumpIs(shared_from_this());
  if (context_.memory().queues->isOver()) calls_.shedIs();
  return count;
}

bool SubscribeStream::isFull() const {
  std::lock_guard const guard(mutex_);
  return queue_.isFull();
}

Subscriber::Held SubscribeStream::held() const {
  std::lock_guard const guard(mutex_);
  return {queue_.bytes(), writeSinceNs_};
}

void SubscribeStream::pump() {
  bool drained = false;
  bool reads = false;
  std::optional<grpc::Status> finish;
  std::size_t slice = 0;
  Message::Ptr message;
  {
    std::lock_guard const guard(mutex_);
    pumpComes_ = false;
    if (writing_ || finished_) return;
    if (takeNext(guard)) {
      writing_ = true;
      message = current_;
      slice = nextSlice_;
      reads = message->isSync() && std::exchange(readsAfterSync_, false);
    } else if (end_) {
      finished_ = true;
      finish = end_;
    }
    drained = queue_.takeDrained();
  }
  if (drained) context_.scheduler()->post([self = shared_from_this()] { self->calls_.drained(*self); });
  if (finish) {
    slotDel();
    std::lock_guard const asks(gRpcMutex_);
    Finish(*finish);
  }
  if (!message) return;
  std::vector<grpc::Slice> const& slices = message->encoded(context_.limits().responseBytes);
  grpc::ByteBuffer buffer(&slices[slice], 1);
  response_.Swap(&buffer);
  std::lock_guard const asks(gRpcMutex_);
  {
    std::lock_guard const guard(mutex_);
    if (finished_) return; // by `endNow`, while this was encoded
    writeSinceNs_ = context_.clock().monotonicNs();
    if (slice == 0) {
      ++sent_.sentMessages;
      sent_.sentLeaves += message->leaves();
    }
    sent_.sentBytes += slices[slice].size();
  }
  if (reads) StartRead(&request_);
  StartWrite(&response_);
}

// Stands `current_` and `nextSlice_` at what is to be written next.
bool SubscribeStream::takeNext(Guard const&) {
  if (current_ && ++nextSlice_ < current_->encoded(context_.limits().responseBytes).size()) return true;
  current_ = queue_.pop();
  nextSlice_ = 0;
  return current_ != nullptr;
}

void SubscribeStream::OnWriteDone(bool ok) {
  bool pumpIs = false;
  {
    std::lock_guard const guard(mutex_);
    writing_ = false;
    writeSinceNs_.reset();
    response_.Clear();
    if (!ok) {
      dropQueued(guard);
      if (!end_) end_ = grpc::Status::CANCELLED;
    }
    if (hasNext(guard))
      pumpIs = !std::exchange(pumpComes_, true);
    else
      current_.reset();
  }
  if (pumpIs) calls_.pumpIs(shared_from_this());
}

// Whether there is something to be written, or the end to be told.
bool SubscribeStream::hasNext(Guard const&) const {
  bool const isCut = current_ && nextSlice_ + 1 < current_->encoded(context_.limits().responseBytes).size();
  return isCut || !queue_.empty() || end_;
}

void SubscribeStream::dropQueued(Guard const&) {
  queue_.clear();
  current_.reset();
}

// --- the end ----------------------------------------------------------------------------------------------

void SubscribeStream::end(grpc::Status const& status) {
  {
    std::lock_guard const guard(mutex_);
    if (end_) return;
    end_ = status;
    context_.tally().ended(status.error_code());
    if (!status.ok()) dropQueued(guard);
    if (writing_ || std::exchange(pumpComes_, true)) return;
  }
  calls_.pumpIs(shared_from_this());
}

SubscribeStream::Figures SubscribeStream::figures() const {
  std::lock_guard const guard(mutex_);
  Figures figures = sent_;
  figures.queuedMessages = queue_.size();
  figures.queuedBytes = queue_.bytes();
  return figures;
}

bool SubscribeStream::isStuck(std::int64_t nowNs, std::int64_t ns) const {
  std::lock_guard const guard(mutex_);
  return writeSinceNs_ && nowNs - *writeSinceNs_ >= ns;
}

void SubscribeStream::endNow(char const* why) {
  grpc::Status const status(grpc::StatusCode::RESOURCE_EXHAUSTED, why);
  std::lock_guard const asks(gRpcMutex_);
  {
    std::lock_guard const guard(mutex_);
    if (std::exchange(finished_, true)) return;
    end_ = status;
    context_.tally().ended(status.error_code());
    queue_.clear();
  }
  Finish(status);
}

void SubscribeStream::slotDel() {
  std::lock_guard const guard(mutex_);
  slot_.reset();
}

void SubscribeStream::OnCancel() {
  slotDel();
  end(grpc::Status::CANCELLED);
  context_.scheduler()->post([self = shared_from_this()] { self->calls_.streamDel(*self); });
}

void SubscribeStream::reset() {
  // `TryCancel` would tell the client CANCELLED, as if it had done it itself. A status that comes with a
  // reset passes by what the client has not read.
  std::lock_guard const guard(serverContextMutex_);
  if (serverContext_ != nullptr)
    grpc_call_cancel_with_status(serverContext_->c_call(), GRPC_STATUS_RESOURCE_EXHAUSTED, kStuckText,
                                 nullptr);
}

void SubscribeStream::OnDone() {
  {
    std::lock_guard const guard(serverContextMutex_);
    serverContext_ = nullptr;
  }
  if (gate_) gate_->leave(*this);
  slotDel();
  context_.scheduler()->post([self = std::move(self_)] { self->calls_.streamDel(*self); });
}

} // namespace Agent
