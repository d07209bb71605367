// Agent::SubscribeStream: the gRPC side of one Subscribe call: requests in, queued messages out.
//
// Invariants
// 1. Everything below `mutex_` is guarded by it, and no operation of gRPC is started while it is held.
// 2. At most one write is on its way, and one thread pumps: whoever sets `writing_`.
// 3. Finish is called once; with a status that is an error it does not wait for what is queued.
// 4. It lives until gRPC is done with it, and as long as anybody holds it; what is pushed after its end is
//    dropped.
// 5. Its place among the calls that are allowed is free before its client can know of the end: who calls
//    again at once is let in. The place of one that was stuck is free when nothing of it waits any more.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <grpcpp/grpcpp.h>

#include "agent/service/Audit.h"
#include "agent/service/Gate.h"
#include "agent/subscribe/OutQueue.h"
#include "agent/subscribe/SubscribePlan.h"
#include "agent/subscribe/Subscriber.h"

namespace gnmi {
class SubscribeRequest;
} // namespace gnmi

namespace Agent {

class Calls;
class Context;

// Answers a Subscribe call; for a raw (ByteBuffer) callback method, once the caller has been let in. The
// registry outlives the call.
[[nodiscard]] grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>*
subscribeCall(grpc::CallbackServerContext& context, Guest guest, std::shared_ptr<Gate> gate, Calls& calls);

class SubscribeStream final : public grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>,
                              public Subscriber,
                              public std::enable_shared_from_this<SubscribeStream> {
public:
  // Why a call is taken away from its client.
  static constexpr char const* kStuckText = "the subscriber takes nothing of what waits for it";

  SubscribeStream(grpc::CallbackServerContext& context, Guest guest, std::shared_ptr<Gate> gate,
                  Calls& calls);
  // Starts reading; gRPC holds it from now on.
  void begin();

  // --- for the call: see Subscriber -------------------------------------------------------------
  [[nodiscard]] std::string const& address() const noexcept override { return address_; }
  void push(std::span<Message::Ptr const> messages) override;
  [[nodiscard]] std::size_t pushSome(std::span<Message::Ptr const> messages) override;
  [[nodiscard]] bool isFull() const override;
  [[nodiscard]] Held held() const override;
  [[nodiscard]] bool isStuck(std::int64_t nowNs, std::int64_t ns) const override;
  void end(grpc::Status const& status) override;

  // --- any thread -------------------------------------------------------------------------------
  // Ends the call with RESOURCE_EXHAUSTED though a write is on its way. The client learns of it once it reads
  // on.
  void endNow(char const* why);
  // Takes the call away from a client that does not even take its end, with the same status.
  void reset();
  // Writes what is queued when no write is on its way.
  void pump();

  // Who has called, when, and what has been given to him.
  struct Figures {
    std::optional<CallMode> mode; // none: his list has not come
    std::uint64_t sentMessages = 0;
    std::uint64_t sentLeaves = 0;
    std::uint64_t sentBytes = 0;
    std::size_t queuedMessages = 0;
    std::size_t queuedBytes = 0;
  };
  [[nodiscard]] Figures figures() const;
  [[nodiscard]] std::uint64_t id() const noexcept { return id_; }
  [[nodiscard]] std::int64_t startNs() const noexcept { return startNs_; } // since the Unix epoch
  [[nodiscard]] Audit::Caller const& caller() const noexcept { return caller_; }

  // --- gRPC's threads -----------------------------------------------------------------------------
  void OnReadDone(bool ok) override;
  void OnWriteDone(bool ok) override;
  void OnCancel() override;
  void OnDone() override;

private:
  void take(gnmi::SubscribeRequest const& request);
  [[nodiscard]] grpc::Status takeList(gnmi::SubscribeRequest const& request);
  // Whoever calls these shows that he holds `mutex_`.
  using Guard = std::lock_guard<std::mutex>;
  [[nodiscard]] bool hasNext(Guard const&) const;
  [[nodiscard]] bool takeNext(Guard const&);
  void dropQueued(Guard const&);
  [[nodiscard]] std::size_t pushUntilFull(std::span<Message::Ptr const> messages, bool all);

  void slotDel();

  // Held while gRPC is asked for something by who is no reaction of its own, and taken before the others:
  // when `Finish` has been asked for, nothing else may be, because the call may be gone at once.
  std::mutex gRpcMutex_;
  std::mutex serverContextMutex_;
  grpc::CallbackServerContext* serverContext_; // guarded by it; null once gRPC is done
  Calls& calls_;
  Context& context_;
  Audit::Caller const caller_;
  std::uint64_t const id_; // of all calls of this process
  std::int64_t const startNs_;
  std::string const address_;
  Guest const guest_;
  std::shared_ptr<Gate> const gate_;      // may be null
  std::shared_ptr<SubscribeStream> self_; // until gRPC is done
  grpc::ByteBuffer request_;
  grpc::ByteBuffer response_;
  std::optional<CallMode> mode_; // once the list has come; the thread of the reads alone

  mutable std::mutex mutex_;
  OutQueue queue_;
  Message::Ptr current_;      // being written
  std::size_t nextSlice_ = 0; // of it: the one that is written
  Figures sent_;              // of what has been handed to gRPC
  std::optional<grpc::Status> end_;
  std::shared_ptr<void const> slot_;         // among the calls that are allowed
  std::optional<std::int64_t> writeSinceNs_; // gRPC has a write
  bool writing_ = false;                     // it has, or is about to get one
  bool pumpComes_ = false;                   // somebody has been asked to pump
  bool finished_ = false;
  bool readsAfterSync_ = false; // a poll is being answered
};

} // namespace Agent
