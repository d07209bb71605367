// Who may begin, the table from streams to calls, the check each second for those who take nothing, and whom
// lack of memory ends.
#include "agent/service/Calls.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>

#include "agent/context/Context.h"
#include "agent/router/Router.h"
#include "agent/service/SubscribeStream.h"

namespace Agent {
namespace {

constexpr std::int64_t kCheckNs = 1'000'000'000;
constexpr std::int64_t kSlowNs =
    1'000'000'000; // a write that takes so long: the subscriber takes nothing, or little

// Why a subscriber is ended.
constexpr char const* kMemoryText = "there is no memory left for what waits for subscribers";

} // namespace

// The calls that are allowed at a time, in all and from one address. Any thread.
class Calls::Slots {
public:
  Slots(std::size_t most, std::size_t mostOfOne) : most_(most), mostOfOne_(mostOfOne) {}

  [[nodiscard]] bool take(std::string const& address) {
    std::lock_guard const guard(mutex_);
    if (taken_ >= most_) return false;
    if (!address.empty()) {
      std::size_t& ofOne = byAddress_[address];
      if (ofOne >= mostOfOne_) return false;
      ++ofOne;
    }
    ++taken_;
    return true;
  }
  void giveBack(std::string const& address) {
    std::lock_guard const guard(mutex_);
    --taken_;
    auto const ofOne = byAddress_.find(address);
    if (ofOne != byAddress_.end() && --ofOne->second == 0) byAddress_.erase(ofOne);
  }

private:
  std::size_t const most_;
  std::size_t const mostOfOne_;
  std::mutex mutex_;
  std::size_t taken_ = 0;
  absl::flat_hash_map<std::string, std::size_t> byAddress_;
};

Calls::Calls(Router& router)
    : router_(router)
    , feeds_(router.context().scheduler())
    , slots_(std::make_shared<Slots>(router.context().limits().streams,
                                     router.context().limits().streamsPerPeer))
    , checkTimer_(router.context().scheduler()->timerEvery(kCheckNs, [this] { check(); }))
    , trimmer_(*router.context().memory().whole) {
  router_.listenerIs(&feeds_);
}

Calls::~Calls() {
  context().scheduler()->timerDel(checkTimer_);
  calls_.clear();
  router_.listenerIs(nullptr);
}

Context& Calls::context() const noexcept { return router_.context(); }

// --- any thread -------------------------------------------------------------------------------------------

std::shared_ptr<void const> Calls::slotIs(std::string const& address) {
  if (!slots_->take(address)) return nullptr;
  return {slots_.get(), [slots = slots_, address](void const*) { slots->giveBack(address); }};
}

void Calls::shedIs() {
  if (!shedComes_.exchange(true, std::memory_order_relaxed)) context().scheduler()->post([this] { shed(); });
}

void Calls::pumpIs(std::shared_ptr<SubscribeStream> stream) { pumps_.pumpIs(std::move(stream)); }

// --- one call ---------------------------------------------------------------------------------------------

void Calls::streamIs(std::shared_ptr<SubscribeStream> const& stream) {
  begun_.insert({stream.get(), {stream, context().clock().monotonicNs()}});
  if (ending_) stream->end(*ending_);
}

void Calls::callIs(std::shared_ptr<SubscribeStream> const& stream, CallPlan const& plan) {
  begun_.erase(stream.get());
  if (ending_) {
    stream->end(*ending_);
    return;
  }
  calls_.emplace(stream.get(), std::make_unique<Call>(router_, feeds_, stream, plan));
  prepare(stream);
}

// A bit in each turn until the call is prepared.
void Calls::prepare(std::shared_ptr<SubscribeStream> const& stream) {
  Call* const call = find(*stream);
  if (call == nullptr) return;
  if (grpc::Status const status = call->prepareSome(); !status.ok()) {
    stream->end(status);
    calls_.erase(stream.get());
  } else if (call->isPrepared()) {
    call->begin();
  } else {
    context().scheduler()->post([this, stream] { prepare(stream); });
  }
}

Call* Calls::find(SubscribeStream& stream) {
  auto const call = calls_.find(&stream);
  return call == calls_.end() ? nullptr : call->second.get();
}

void Calls::poll(SubscribeStream& stream) {
  if (Call* const call = find(stream)) call->poll();
}

void Calls::halfClosed(SubscribeStream& stream) {
  if (Call* const call = find(stream)) call->halfClosed();
}

void Calls::drained(SubscribeStream& stream) {
  if (Call* const call = find(stream)) call->drained();
}

void Calls::streamDel(SubscribeStream& stream) {
  begun_.erase(&stream);
  calls_.erase(&stream);
}

// --- all of them ------------------------------------------------------------------------------------------

void Calls::end(grpc::Status const& status) {
  ending_ = status;
  restart(status);
}

void Calls::restart(grpc::Status const& status) {
  for (auto const& [stream, since] : begun_)
    stream->end(status);
  for (auto const& [stream, call] : calls_)
    stream->end(status);
}

void Calls::forEach(Visit visit) const {
  for (auto const& [stream, call] : calls_)
    visit(*stream, *call);
}

void Calls::check() {
  std::int64_t const now = context().clock().monotonicNs();
  std::int64_t const stuckNs = context().limits().stuckNs;
  for (auto const& [stream, since] : begun_)
    if (now - since.ns >= stuckNs)
      stream->end({grpc::StatusCode::INVALID_ARGUMENT, "no subscription list has come"});
  for (Since& one : stuck_)
    if (now - one.ns >= stuckNs) std::exchange(one.stream, nullptr)->reset();
  std::erase_if(stuck_, [](Since const& one) { return !one.stream || one.stream.use_count() == 1; });
  absl::erase_if(calls_, [&](auto const& call) {
    if (!call.first->isStuck(now, stuckNs)) return false;
    endNow(*call.first, SubscribeStream::kStuckText);
    return true;
  });
  if (trimmer_.isDue(now)) context().worker().post(&HeapTrimmer::trim);
}

void Calls::endNow(SubscribeStream& stream, char const* why) {
  stuck_.push_back({stream.shared_from_this(), context().clock().monotonicNs()});
  stream.endNow(why);
}

void Calls::shed() {
  shedComes_.store(false, std::memory_order_relaxed);
  std::int64_t const now = context().clock().monotonicNs();
  struct Holder {
    bool isSlow;
    std::size_t kept;
    SubscribeStream* stream;
    auto operator<=>(Holder const&) const = default;
  };
  std::vector<Holder> holders;
  for (auto const& [stream, call] : calls_) {
    auto const [queued, sinceNs] = stream->held();
    holders.push_back({sinceNs && now - *sinceNs > kSlowNs, queued + call->heldBytes(), stream});
  }
  std::ranges::sort(holders, std::greater());
  for (Holder const& holder : holders) {
    if (!context().memory().queues->isOver() || holder.kept == 0) break;
    endNow(*holder.stream, kMemoryText);
    calls_.erase(holder.stream);
  }
}

} // namespace Agent
