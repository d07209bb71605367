// How messages are taken from the pool and come back, on any thread and after its end; arenas are emptied
// outside the lock.
#include "Ondra/ArenaRespMsg.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <type_traits>

#include "Kel/Allocator.h"
#include "Ondra/CompactText.h"
#include "Ondra/GnmiUtils.h"
#include "Ondra/responses/ArenaBlocks.h"
#include "Tovak/Trace.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {

// Releases come on any thread and at any time, also after the statics have gone: what they touch once the
// pool has been purged has no destructor.
constinit Tovak::Locking::Lock ArenaRespMsg::mutex_;
constinit std::uint32_t ArenaPool::ARENA_POOL_SIZE = 2000;
constinit std::atomic<std::uint64_t> arenaMsgCount{0};
constinit std::atomic<std::uint64_t> arenaRecycleCount{0};
constinit std::atomic<std::uint64_t> arenaReleaseCount{0};
static_assert(std::is_trivially_destructible_v<Tovak::Locking::Lock>);

ArenaPool arenaPool;

namespace {

constexpr char const* kCategory = "ArenaRespMsg";
constexpr char const* kIndent = "   ";
constexpr unsigned kPoolLevel = 8;
constexpr unsigned kPurgeLevel = 1;

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraArena", false);
  return handler;
}

Tovak::String textOf(ArenaRespMsg const* msg) { return msg == nullptr ? "nullptr" : msg->toString(); }

// The only way to hold a message. Its counts come from the model's free lists, whichever thread makes or
// drops them.
ArenaRespMsg::Ptr share(ArenaRespMsg* msg) {
  return {msg, ArenaRespMsg::Deleter{}, Kel::MemAllocator<ArenaRespMsg>{}};
}

// As the pool was last left. Read without the lock: in doubt it is looked at.
constinit std::atomic<bool> poolIsFull{false};

// REQUIRES the lock: others read meanwhile and do not add.
void countOne(std::atomic<std::uint64_t>& counter) {
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

double percent(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) * 100 / static_cast<double>(whole);
}

} // namespace

// --- the message ---------------------------------------------------------------------------------

ArenaRespMsg::ArenaRespMsg()
    : arena_(ArenaBlocks::arenaOptions())
    , response(google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena_)) {
  arenaMsgCount.fetch_add(1, std::memory_order_relaxed);
}

ArenaRespMsg::~ArenaRespMsg() { arenaMsgCount.fetch_sub(1, std::memory_order_relaxed); }

void ArenaRespMsg::reset() {
  TOVAK_TRACE(debugHandler(), kPoolLevel, kCategory, "arena:{} allocated:{} used:{}", fmt::ptr(this),
              spaceAllocated(), spaceUsed());
  arena_.Reset();
  response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena_);
}

Tovak::String ArenaRespMsg::toString() const {
  return response == nullptr ? "nullptr" : subscribeResponseToCompactString(*response);
}

std::pair<ArenaRespMsg::Ptr, gnmi::Notification*>
ArenaRespMsg::createResponse(Kel::Ptr<Path const> const& prefix, long timestamp) {
  Ptr msg;
  {
    std::lock_guard const guard(mutex_);
    msg = arenaPool.take();
    if (msg) {
      countOne(arenaRecycleCount);
      TOVAK_TRACE(debugHandler(), kPoolLevel, kCategory, "get from pool arenaMsgPtr:{}", fmt::ptr(msg.get()));
    }
  }
  if (!msg) {
    msg = share(new ArenaRespMsg());
    TOVAK_TRACE(debugHandler(), kPoolLevel, kCategory, "heap alloc arenaMsgPtr:{}", fmt::ptr(msg.get()));
  }
  msg->response->Clear();
  gnmi::Notification* const notification = msg->response->mutable_update();
  KelGnmiUtils::populateTimestamp(*notification, timestamp);
  prefix->copyToGnmiPath(notification->mutable_prefix());
  return {std::move(msg), notification};
}

// The arena is emptied outside the lock: dropping a large response takes long, and the scheduler thread may
// be waiting for a message.
void ArenaRespMsg::Deleter::operator()(ArenaRespMsg* msg) const {
  bool const mayWait = msg != nullptr && !poolIsFull.load(std::memory_order_relaxed);
  if (mayWait) {
    TOVAK_TRACE(debugHandler(), kPoolLevel, kCategory, "release to pool msg:{} {}", fmt::ptr(msg),
                textOf(msg));
    msg->reset();
  }
  {
    std::lock_guard const guard(mutex_);
    countOne(arenaReleaseCount);
    if (mayWait && arenaPool.put(msg)) return;
  }
  TOVAK_TRACE(debugHandler(), kPoolLevel, kCategory, "delete msg:{} {}", fmt::ptr(msg), textOf(msg));
  delete msg;
}

// --- the pool ------------------------------------------------------------------------------------

ArenaPool::ArenaPool() : messages_(ARENA_POOL_SIZE) {}

ArenaPool::~ArenaPool() { purge(); }

bool ArenaPool::isFull() const noexcept {
  // In this order: the storage of a pool that has been destroyed is not looked at.
  return ARENA_POOL_SIZE == 0 ||
         messages_.size() >= std::min<std::size_t>(ARENA_POOL_SIZE, messages_.capacity());
}

ArenaRespMsg::Ptr ArenaPool::take() {
  if (ARENA_POOL_SIZE == 0 || messages_.empty()) return nullptr;
  ArenaRespMsg::Ptr msg = std::move(messages_.front());
  messages_.pop_front();
  poolIsFull.store(false, std::memory_order_relaxed);
  return msg;
}

bool ArenaPool::put(ArenaRespMsg* msg) {
  bool const hasRoom = !isFull(); // others may have filled it meanwhile
  if (hasRoom) messages_.push_front(share(msg));
  poolIsFull.store(isFull(), std::memory_order_relaxed);
  return hasRoom;
}

// The messages end by their deleter, which takes the lock: so they are destroyed after it has been given
// back.
void ArenaPool::purge() {
  TOVAK_TRACE(debugHandler(), kPurgeLevel, "ArenaPool", "purge");
  boost::circular_buffer<ArenaRespMsg::Ptr> waiting;
  {
    std::lock_guard const guard(ArenaRespMsg::mutex_);
    ARENA_POOL_SIZE = 0;
    poolIsFull.store(true, std::memory_order_relaxed);
    waiting.swap(messages_);
  }
  waiting.clear();
  ArenaBlocks::purge();
}

std::size_t ArenaPool::size() const {
  std::lock_guard const guard(ArenaRespMsg::mutex_);
  return messages_.size();
}

Tovak::String ArenaPool::dumpState() const {
  std::lock_guard const guard(ArenaRespMsg::mutex_);
  Tovak::String text = fmt::format("ArenaPool: buffer.size:{}\n", messages_.size());
  if (messages_.empty()) return text;
  std::uint64_t used = 0;
  std::uint64_t allocated = 0;
  ArenaRespMsg const* largest = messages_.front().get();
  for (ArenaRespMsg::Ptr const& msg : messages_) {
    used += msg->spaceUsed();
    allocated += msg->spaceAllocated();
    if (msg->spaceAllocated() > largest->spaceAllocated()) largest = msg.get();
  }
  text += fmt::format("{}total space used:{}B allocated:{}B utilization:{}%\n", kIndent, used, allocated,
                      percent(used, allocated));
  text += fmt::format("{}largest arena allocated:{}B utilization:{}%\n", kIndent, largest->spaceAllocated(),
                      percent(largest->spaceUsed(), largest->spaceAllocated()));
  return text;
}

} // namespace Ondra
