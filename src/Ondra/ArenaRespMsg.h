// ArenaRespMsg, ArenaPool: SubscribeResponses that live in pooled arenas; their compact texts come along.
#pragma once

#include <google/protobuf/arena.h>

#include <atomic>
#include <boost/circular_buffer.hpp>
#include <cstdint>
#include <memory>
#include <utility>

#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/CompactText.h"
#include "Ondra/Path.h"
#include "Tovak/Lock.h"
#include "Tovak/String.h"

namespace gnmi {
class Notification;
class SubscribeResponse;
} // namespace gnmi

namespace Ondra {

// One response and the arena in which it and all its parts are made. Got from `createResponse`, filled by
// whoever got it, then read only. Shared; the last holder may let go on any thread, also during the end of
// the process, and the message then returns to the pool or is destroyed.
class KTD_EXPORT ArenaRespMsg {
public:
  // What ends a message that nobody holds any more. Null is allowed.
  struct KTD_EXPORT Deleter {
    void operator()(ArenaRespMsg* msg) const;
  };
  using Ptr = std::shared_ptr<ArenaRespMsg>; // with a `Deleter`

  // Outside the pool: an empty response.
  ArenaRespMsg();
  ~ArenaRespMsg();
  ArenaRespMsg(ArenaRespMsg const&) = delete;
  ArenaRespMsg& operator=(ArenaRespMsg const&) = delete;

  // A message from the pool (or a new one) and its `update`, which holds the time (nanoseconds since the Unix
  // epoch) and the prefix and nothing else. The notification lives as long as the message.
  [[nodiscard]] static std::pair<Ptr, gnmi::Notification*> createResponse(Kel::Ptr<Path const> const& prefix,
                                                                          long timestamp);

  // Drops the response with all its parts and makes an empty one. The arena's blocks go back to the block
  // cache.
  void reset();

  // Bytes of the arena: taken from the block cache, and used of these.
  [[nodiscard]] std::uint64_t spaceAllocated() const { return arena_.SpaceAllocated(); }
  [[nodiscard]] std::uint64_t spaceUsed() const { return arena_.SpaceUsed(); } // of these

  // The compact text of the response.
  [[nodiscard]] Tovak::String toString() const;

  // Guards the pool and the counters, for every message of the process. Held for a few instructions only.
  static Tovak::Locking::Lock mutex_;

private:
  google::protobuf::Arena arena_;

public:
  // In the arena; never null.
  gnmi::SubscribeResponse* response;
};

// The messages that wait to be used again, last in first out, so that what is handed out is still in the
// processor's caches. There is one, `arenaPool`. Everything is guarded by ArenaRespMsg::mutex_, which the
// operations take themselves.
class KTD_EXPORT ArenaPool {
public:
  // How many messages may wait. The storage for that many is made with the pool; `purge` sets it to 0.
  static std::uint32_t ARENA_POOL_SIZE;

  ArenaPool();
  ~ArenaPool();
  ArenaPool(ArenaPool const&) = delete;
  ArenaPool& operator=(ArenaPool const&) = delete;

  // Destroys the waiting messages and frees the cached blocks, for good: from now on every release destroys
  // its message.
  void purge();

  // How many messages wait and, when any do, how much memory their arenas hold.
  [[nodiscard]] Tovak::String dumpState() const;

  // How many messages wait.
  [[nodiscard]] std::size_t size() const;

private:
  friend class ArenaRespMsg;
  friend struct ArenaRespMsg::Deleter;

  // These REQUIRE the lock.
  [[nodiscard]] ArenaRespMsg::Ptr take();    // null when none waits
  [[nodiscard]] bool put(ArenaRespMsg* msg); // false: it is full
  [[nodiscard]] bool isFull() const noexcept;

  boost::circular_buffer<ArenaRespMsg::Ptr> messages_; // the most recently released at the front
};

extern KTD_EXPORT ArenaPool arenaPool; // the one of the process

// Each is right by itself when read on any thread; the three together only while nothing is made or released.
extern KTD_EXPORT std::atomic<std::uint64_t> arenaMsgCount;     // messages in existence
extern KTD_EXPORT std::atomic<std::uint64_t> arenaRecycleCount; // taken from the pool instead of made
extern KTD_EXPORT std::atomic<std::uint64_t> arenaReleaseCount; // releases, recycled or destroyed

} // namespace Ondra
