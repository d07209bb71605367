#include "agent/subscribe/Engine.h"

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Ondra/ArenaRespMsg.h"
#include "Ondra/ByteRouter.h"
#include "Ondra/GifNotifiee.h"
#include "Tovak/TaskScheduler.h"
#include "Tovak/Trace.h"
#include "agent/paths/OutPath.h"
#include "agent/service/Memory.h"
#include "agent/service/Runtime.h"
#include "agent/service/Worker.h"
#include "agent/subscribe/Call.h"
#include "agent/subscribe/Feed.h"
#include "agent/subscribe/Pumps.h"
#include "agent/subscribe/SubscribeStream.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr std::int64_t kCheckNs = 1'000'000'000;
constexpr std::int64_t kSlowNs =
    1'000'000'000; // a write that takes so long: the subscriber takes nothing, or little

// Why a subscriber is ended.
constexpr char const* kStuckText = "the subscriber takes nothing of what waits for it";
constexpr char const* kMemoryText = "there is no memory left for what waits for subscribers";

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentEngine", false);
  return handler;
}

// A leaf-list without entries is not there. What the library tells of it as an empty one is left out of what is walked; of a change it is the
// end of its path.
void emptyListsDel(gnmi::Notification& notification, bool isChange) {
  auto& updates = *notification.mutable_update();
  for (int i = updates.size() - 1; i >= 0; --i) {
    gnmi::TypedValue const& value = updates[i].val();
    if (!value.has_leaflist_val() || value.leaflist_val().element_size() > 0) continue;
    if (isChange) *notification.add_delete_() = updates[i].path();
    updates.DeleteSubrange(i, 1);
  }
}

// The calls that are allowed at a time, in all and from one address. Any thread.
class Slots {
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

// Takes nothing: the walk that installs the watch sends nothing of its own.
class Watch final : public PatternWalk::Receiver {
public:
  enum class State : std::uint8_t { Off, Installing, On };

  bool take(std::shared_ptr<Ondra::ArenaRespMsg>&) override { return true; }
  void walkEnded() override {
    state = State::On;
    if (whenOn) whenOn();
  }

  State state = State::Off;
  std::unique_ptr<PatternWalk> walk;
  absl::AnyInvocable<void()> whenOn;
};

// A snapshot for a sink.
class SinkSnapshot final : public Snapshot, private PatternWalk::Receiver {
public:
  SinkSnapshot(Engine& engine, Pattern pattern, std::shared_ptr<SnapshotSink> sink,
               std::string const& address)
      : engine_(engine)
      , selector_(std::make_shared<Pattern const>(std::move(pattern)), {})
      , sink_(std::move(sink))
      , walk_(engine.walkIs(selector_.pattern(), Ondra::flagSnapshot, *this, address)) {}
  ~SinkSnapshot() override {
    if (walk_) engine_.walkDel(*walk_);
  }

private:
  bool take(std::shared_ptr<Ondra::ArenaRespMsg>& response) override {
    gnmi::Notification const& notification = response->response->update();
    Selector::Selected const selected = selector_.updates(notification, LeafKind::All);
    if (!selected.any) return true;
    if (!selected.updates) {
      sink_->notification(notification);
      return true;
    }
    gnmi::Notification part;
    part.set_timestamp(notification.timestamp());
    *part.mutable_prefix() = notification.prefix();
    for (std::uint32_t const at : *selected.updates)
      *part.add_update() = notification.update(static_cast<int>(at));
    sink_->notification(part);
    return true;
  }
  void walkEnded() override {
    engine_.walkDel(*walk_);
    walk_.reset();
    std::shared_ptr<SnapshotSink> const sink = sink_;
    sink->done(grpc::Status::OK); // which may drop this
  }

  Engine& engine_;
  Selector const selector_;
  std::shared_ptr<SnapshotSink> const sink_;
  std::unique_ptr<PatternWalk> walk_;
};

} // namespace

class Engine::Impl final : public Ondra::BaseRouter {
public:
  // The router of walks whose receivers want bytes.
  class Bytes final : public Ondra::ByteRouter {
  public:
    explicit Bytes(Impl& impl) : impl_(impl) {}
    bool pushBytes(Ondra::SyncId syncId, Ondra::WalkId walkId, Ondra::WireResponse const& response) override {
      if (!(syncId == Ondra::SyncId())) {
        auto const walk = impl_.walks.find(syncId.value());
        return walk == impl_.walks.end() || walk->second->takeBytes(response);
      }
      // A change of what such a walk was the first to watch.
      auto message = Ondra::ArenaRespMsg::createResponse(response.prefix, response.timestamp).first;
      if (!message->response->ParseFromArray(response.bytes.data(), static_cast<int>(response.bytes.size())))
        TOVAK_TRACE(trace(), Tovak::traceLevelError, "", "a change holds a text that is not UTF-8");
      return impl_.push(syncId, walkId, message);
    }

  private:
    Impl& impl_;
  };

  Impl(Engine& theEngine, Runtime& theRuntime)
      : engine(theEngine)
      , runtime(theRuntime)
      , bytes(*this)
      , turns(theRuntime.scheduler())
      , feeds(theRuntime.scheduler())
      , trimmer(*theRuntime.memory().whole)
      , slots(std::make_shared<Slots>(theRuntime.limits().streams, theRuntime.limits().streamsPerPeer)) {}

  bool push(Ondra::SyncId syncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& response) override {
    bool const isChange = syncId == Ondra::SyncId();
    if (response->response->has_update()) emptyListsDel(*response->response->mutable_update(), isChange);
    if (isChange) {
      // While something waits aside nobody joins those who are concerned.
      bool const waits = staging && feeds.concerns(*response) && staging->take(response, staged);
      if (!waits) feeds.changed(response);
      return true;
    }
    auto const walk = walks.find(syncId.value());
    return walk == walks.end() || walk->second->take(response);
  }

  // The model is watched: calls that wait for it go live.
  void watchIsOn() {
    engine.walkDel(*watch.walk);
    watch.walk.reset();
    startWaiting();
  }
  void startWaiting() {
    for (SubscribeStream* const stream : std::exchange(waiting, {})) {
      if (auto const call = calls.find(stream); call != calls.end()) call->second->start();
    }
  }
  // A bit in each turn until the call is prepared.
  void prepare(std::shared_ptr<SubscribeStream> const& stream) {
    Call* const call = find(*stream);
    if (call == nullptr) return;
    if (grpc::Status const status = call->prepareSome(); !status.ok()) {
      stream->end(status);
      calls.erase(stream.get());
    } else if (!call->isPrepared()) {
      runtime.scheduler()->post([this, stream] { prepare(stream); });
    } else if (call->mode() == CallMode::Stream) {
      startStream(*stream, *call);
    } else {
      call->start();
    }
  }
  void startStream(SubscribeStream& stream, Call& call) {
    if (watch.state == Watch::State::On && !staging) {
      call.start();
      return;
    }
    waiting.push_back(&stream);
    if (watch.state != Watch::State::Off) return;
    watch.state = Watch::State::Installing;
    watch.whenOn = [this] { watchIsOn(); };
    watch.walk = engine.walkIs(std::make_shared<Pattern const>(), Ondra::flagStream, watch, "");
  }
  void check() {
    std::int64_t const now = runtime.clock().monotonicNs();
    for (auto const& [stream, since] : begun) {
      if (now - since.ns >= runtime.limits().stuckNs)
        stream->end({grpc::StatusCode::INVALID_ARGUMENT, "no subscription list has come"});
    }
    for (auto& [stream, sinceNs] : stuck) {
      if (now - sinceNs >= runtime.limits().stuckNs) std::exchange(stream, nullptr)->reset();
    }
    std::erase_if(stuck, [](Stuck const& one) { return !one.stream || one.stream.use_count() == 1; });
    absl::erase_if(calls, [&](auto const& call) {
      if (!call.first->isStuck(now, runtime.limits().stuckNs)) return false;
      end(*call.first, kStuckText);
      return true;
    });
    if (trimmer.isDue(now)) runtime.worker().post(&HeapTrimmer::trim);
  }
  void end(SubscribeStream& stream, char const* why) {
    stuck.push_back({stream.shared_from_this(), runtime.clock().monotonicNs()});
    stream.endNow(why);
  }
  void shed() {
    shedComes.store(false, std::memory_order_relaxed);
    std::int64_t const now = runtime.clock().monotonicNs();
    struct Holder {
      bool isSlow;
      std::size_t kept;
      SubscribeStream* stream;
      auto operator<=>(Holder const&) const = default;
    };
    std::vector<Holder> holders;
    for (auto const& [stream, call] : calls) {
      auto const [queued, sinceNs] = stream->held();
      holders.push_back({sinceNs && now - *sinceNs > kSlowNs, queued + call->heldBytes(), stream});
    }
    std::ranges::sort(holders, std::greater());
    for (Holder const& holder : holders) {
      if (!runtime.memory().queues->isOver() || holder.kept == 0) break;
      end(*holder.stream, kMemoryText);
      calls.erase(holder.stream);
    }
  }
  Call* find(SubscribeStream& stream) {
    auto const call = calls.find(&stream);
    return call == calls.end() ? nullptr : call->second.get();
  }

  struct Begun { // has not told its list
    std::shared_ptr<SubscribeStream> stream;
    std::int64_t ns;
  };
  struct Stuck { // has been ended, but its client still takes nothing
    std::shared_ptr<SubscribeStream> stream;
    std::int64_t sinceNs;
  };

  Engine& engine;
  Runtime& runtime;
  Bytes bytes;
  std::uint64_t lastWalk = 0;
  absl::flat_hash_map<std::uint64_t, PatternWalk*> walks;
  Turns turns;
  FeedIndex feeds;
  Watch watch;
  absl::flat_hash_map<SubscribeStream*, Begun> begun;
  absl::flat_hash_map<SubscribeStream*, std::unique_ptr<Call>> calls; // each holds its stream
  std::vector<SubscribeStream*> waiting;                              // for the watch, or the end of a Set
  std::unique_ptr<Staging> staging;                                   // of the Set that is being carried out
  Staging::Whose staged = Staging::Whose::Own;
  std::optional<grpc::Status> ending;
  std::vector<Stuck> stuck;
  Tovak::TimerId stuckTimer;
  HeapTrimmer trimmer;
  std::atomic<bool> shedComes = false;
  std::shared_ptr<Slots> const slots;
  Pumps pumps; // ends first
};

Engine::Engine(Runtime& runtime) : impl_(std::make_unique<Impl>(*this, runtime)) {
  impl_->stuckTimer = runtime.scheduler()->timerEvery(kCheckNs, [this] { impl_->check(); });
}

Engine::~Engine() {
  impl_->runtime.scheduler()->timerDel(impl_->stuckTimer);
  impl_->watch.walk.reset();
  impl_->calls.clear();
  impl_->stuck.clear();
  impl_->begun.clear();
  Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees(); // they refer to the router
}

Runtime& Engine::runtime() noexcept { return impl_->runtime; }
FeedIndex& Engine::feeds() noexcept { return impl_->feeds; }

// --- walks and snapshots ----------------------------------------------------------------------------------

std::unique_ptr<PatternWalk> Engine::walkIs(std::shared_ptr<Pattern const> pattern, Ondra::WalkerFlags flags,
                                            PatternWalk::Receiver& receiver, std::string const& address) {
  Ondra::BaseRouter& router = receiver.wantsBytes() ? static_cast<Ondra::BaseRouter&>(impl_->bytes) : *impl_;
  auto walk = std::make_unique<PatternWalk>(router, impl_->runtime.scheduler(),
                                            impl_->turns.turnIs(address, Turns::Kind::Walk),
                                            ++impl_->lastWalk, std::move(pattern), flags, receiver);
  impl_->walks.emplace(walk->id(), walk.get());
  return walk;
}

void Engine::walkDel(PatternWalk const& walk) { impl_->walks.erase(walk.id()); }

std::shared_ptr<Snapshot> Engine::snapshotIs(Pattern pattern, std::shared_ptr<SnapshotSink> sink,
                                             std::string const& address) {
  return std::make_shared<SinkSnapshot>(*this, std::move(pattern), std::move(sink), address);
}

Turns& Engine::turns() noexcept { return impl_->turns; }

// --- Sets -------------------------------------------------------------------------------------------------

void Engine::stagingBegins() {
  impl_->staging = std::make_unique<Staging>(impl_->runtime.memory().plans);
  impl_->staged = Staging::Whose::Own;
  impl_->turns.readingHeldIs(true);
}

void Engine::stagedIs(Staging::Whose whose) { impl_->staged = whose; }

bool Engine::hasRoomForStaged() const { return impl_->staging->hasRoom(); }

void Engine::stagedDel(std::span<std::string const> kept) {
  // To let go of much takes its time.
  impl_->runtime.worker().post([forgotten = impl_->staging->drop(kept)] {});
}

bool Engine::stagedTold(Tovak::Task const& task) {
  if (!impl_->staging->settleSome(task)) return false;
  while (Staging::Response const response = impl_->staging->next()) {
    impl_->feeds.changed(response);
    if (task.taskShouldYield()) return false;
  }
  return true;
}

void Engine::stagingEnds() {
  impl_->runtime.worker().post([staging = std::move(impl_->staging)] {});
  impl_->turns.readingHeldIs(false);
  if (impl_->watch.state == Watch::State::On) impl_->startWaiting();
}

// --- calls ------------------------------------------------------------------------------------------------

std::shared_ptr<void const> Engine::slotIs(std::string const& address) {
  std::shared_ptr<Slots> const& slots = impl_->slots;
  if (!slots->take(address)) return nullptr;
  return {slots.get(), [slots, address](void const*) { slots->giveBack(address); }};
}

void Engine::shedIs() {
  if (!impl_->shedComes.exchange(true, std::memory_order_relaxed))
    impl_->runtime.scheduler()->post([this] { impl_->shed(); });
}

void Engine::pumpIs(std::shared_ptr<SubscribeStream> stream) { impl_->pumps.pumpIs(std::move(stream)); }

void Engine::callBegun(std::shared_ptr<SubscribeStream> const& stream) {
  impl_->begun.insert({stream.get(), {stream, impl_->runtime.clock().monotonicNs()}});
  if (impl_->ending) stream->end(*impl_->ending);
}

void Engine::callIs(std::shared_ptr<SubscribeStream> const& stream, CallPlan const& plan) {
  impl_->begun.erase(stream.get());
  if (impl_->ending) {
    stream->end(*impl_->ending);
    return;
  }
  impl_->calls.emplace(stream.get(), std::make_unique<Call>(*this, stream, plan));
  impl_->prepare(stream);
}

void Engine::callPoll(SubscribeStream& stream) {
  if (Call* const call = impl_->find(stream)) call->poll();
}

void Engine::callHalfClosed(SubscribeStream& stream) {
  if (Call* const call = impl_->find(stream)) call->halfClosed();
}

void Engine::callDrained(SubscribeStream& stream) {
  if (Call* const call = impl_->find(stream)) call->drained();
}

void Engine::callDel(SubscribeStream& stream) {
  std::erase(impl_->waiting, &stream);
  impl_->begun.erase(&stream);
  impl_->calls.erase(&stream);
}

void Engine::callsEnd(grpc::Status const& status) {
  impl_->ending = status;
  callsRestart(status);
}

void Engine::callsRestart(grpc::Status const& status) {
  for (auto const& [stream, since] : impl_->begun)
    stream->end(status);
  for (auto const& [stream, call] : impl_->calls)
    stream->end(status);
}

std::size_t Engine::callCount() const { return impl_->calls.size(); }

} // namespace Agent
