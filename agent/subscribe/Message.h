// Agent::Message: one entry of the queues to subscribers.
//
// Invariants
// 1. Immutable but for what is encoded, which is made once, on the thread that first asks, and shared by all queues that hold the
//    message.
// 2. The notification is internal: its paths begin with the data root. The frame says how it is told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <grpcpp/support/slice.h>

#include "agent/subscribe/SubscribePlan.h"

namespace gnmi {
class Notification;
} // namespace gnmi
namespace Ondra {
class ArenaRespMsg;
} // namespace Ondra

namespace Agent {

// Which updates of a notification are meant: all, or those of these positions.
using Selection = std::optional<std::vector<std::uint32_t>>;

// A response of the library as it is to be told to some subscribers, a notification of the agent's own, or the sync. Shared; dropped on
// any thread.
class Message {
public:
  using Ptr = std::shared_ptr<Message const>;

  [[nodiscard]] static Ptr sync();
  // `timestamp`: instead of the response's own, unless 0. The deletes of the response are left out.
  [[nodiscard]] static Ptr of(std::shared_ptr<Ondra::ArenaRespMsg> response,
                              std::shared_ptr<Frame const> frame, Selection updates, std::int64_t timestamp);
  // All of it.
  [[nodiscard]] static Ptr of(std::unique_ptr<gnmi::Notification> notification,
                              std::shared_ptr<Frame const> frame);

  struct Private {}; // the factories alone make messages
  explicit Message(Private const&);
  ~Message();
  Message(Message const&) = delete;
  Message& operator=(Message const&) = delete;

  [[nodiscard]] bool isSync() const noexcept { return notification_ == nullptr; }
  // Memory that the message keeps, as it is counted against a subscriber's bound.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }
  // The encoded responses, none longer than `limit` unless a single leaf is. Any thread.
  [[nodiscard]] std::vector<grpc::Slice> const& encoded(std::size_t limit) const;

  // REQUIRES that it is no sync, here and below.
  [[nodiscard]] gnmi::Notification const& notification() const noexcept { return *notification_; }
  [[nodiscard]] std::shared_ptr<Frame const> const& frame() const noexcept { return frame_; }
  [[nodiscard]] std::int64_t timestamp() const noexcept { return timestamp_; }
  [[nodiscard]] Selection const& updates() const noexcept { return updates_; }
  [[nodiscard]] bool tellsDeletes() const noexcept { return tellsDeletes_; }

private:
  std::shared_ptr<Ondra::ArenaRespMsg> response_; // or
  std::unique_ptr<gnmi::Notification> own_;
  gnmi::Notification const* notification_ = nullptr; // of one of the two
  std::shared_ptr<Frame const> frame_;
  Selection updates_;
  std::int64_t timestamp_ = 0;
  std::size_t bytes_ = 0;
  bool tellsDeletes_ = false;
  mutable std::once_flag once_;
  mutable std::vector<grpc::Slice> encoded_;
};

} // namespace Agent
