// Agent::Message: one entry of the queues to subscribers.
//
// Invariants
// 1. Immutable but for what is encoded, which is made once, on the thread that first asks, and shared by all
//    queues that hold the message. What has been encoded ahead keeps nothing else.
// 2. All of one message is of one time, and no path is in it twice.
// 3. Notifications are internal: their paths begin with the data root. The frame says how they are told.
#pragma once

#include <absl/container/inlined_vector.h>
#include <absl/functional/function_ref.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <grpcpp/support/slice.h>

#include "agent/context/ByteBudget.h"
#include "agent/router/Selector.h"
#include "agent/subscribe/SubscribePlan.h"

namespace gnmi {
class Notification;
class Path;
class Update;
} // namespace gnmi
namespace Ondra {
class ArenaRespMsg;
} // namespace Ondra

namespace Agent {

// Updates of responses of the library as they are to be told to some subscribers; or a notification of the
// agent's own; or the sync. Shared; dropped on any thread.
class Message {
public:
  using Ptr = std::shared_ptr<Message const>;
  struct Part {
    std::shared_ptr<Ondra::ArenaRespMsg> response; // its updates alone are meant
    Selection updates;
  };
  using Parts = absl::InlinedVector<Part, 1>;

  [[nodiscard]] static Ptr sync();
  // REQUIRES a part. `timestamp` stands for the responses' own.
  [[nodiscard]] static Ptr of(Parts parts, std::shared_ptr<Frame const> frame, std::int64_t timestamp);
  // The same, encoded at once: the responses are free again.
  [[nodiscard]] static Ptr encodedOf(Parts parts, std::shared_ptr<Frame const> frame, std::int64_t timestamp,
                                     std::size_t limit);
  [[nodiscard]] static Ptr encodedOf(std::unique_ptr<gnmi::Notification> notification,
                                     std::shared_ptr<Frame const> frame, std::size_t limit);
  // What has been encoded already; so many leaves.
  [[nodiscard]] static Ptr of(std::vector<grpc::Slice> encoded, std::size_t leaves,
                              std::shared_ptr<Frame const> frame, std::int64_t timestamp);
  // All of it.
  [[nodiscard]] static Ptr of(std::unique_ptr<gnmi::Notification> notification,
                              std::shared_ptr<Frame const> frame);

  struct Private {}; // the factories alone make messages
  explicit Message(Private const&);
  ~Message();
  Message(Message const&) = delete;
  Message& operator=(Message const&) = delete;

  [[nodiscard]] bool isSync() const noexcept { return isSync_; }
  // It was encoded ahead, and there was nothing to tell.
  [[nodiscard]] bool isEmpty() const noexcept {
    return parts_.empty() && own_ == nullptr && !isSync_ && encoded_.empty();
  }
  // How many updates it has.
  [[nodiscard]] std::size_t leaves() const noexcept { return leaves_; }
  // Memory that the message keeps, as it is counted against a subscriber's bound.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }
  // Counts the memory in the budget of all as long as what is returned, or got from another call, is there.
  // Scheduler thread.
  using Charge = std::shared_ptr<ByteBudget::Share const>;
  [[nodiscard]] Charge charged(std::shared_ptr<ByteBudget> const& budget) const;
  // The encoded responses, none longer than `limit` unless a single leaf is. Any thread.
  [[nodiscard]] std::vector<grpc::Slice> const& encoded(std::size_t limit) const;

  // --- what it says, unless it was encoded ahead --------------------------------------------------
  [[nodiscard]] std::shared_ptr<Frame const> const& frame() const noexcept { return frame_; }
  [[nodiscard]] std::int64_t timestamp() const noexcept { return timestamp_; }
  using OnUpdate = absl::FunctionRef<void(gnmi::Path const& prefix, gnmi::Update const& update)>;
  void forEachUpdate(OnUpdate visit) const;
  // Null unless it is of the agent's own.
  [[nodiscard]] gnmi::Notification const* own() const noexcept { return own_.get(); }
  [[nodiscard]] Parts const& parts() const noexcept { return parts_; }

private:
  Parts parts_; // or
  std::unique_ptr<gnmi::Notification> own_;
  std::shared_ptr<Frame const> frame_;
  std::int64_t timestamp_ = 0;
  std::size_t bytes_ = 0;
  std::size_t leaves_ = 0;
  bool isSync_ = false;
  mutable std::weak_ptr<ByteBudget::Share const> charge_;
  mutable std::once_flag once_;
  mutable std::vector<grpc::Slice> encoded_;
};

} // namespace Agent
