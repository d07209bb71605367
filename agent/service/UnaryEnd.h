// The end of a unary call, which comes exactly once, whoever brings it and on whichever thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include <absl/functional/any_invocable.h>
#include <grpcpp/alarm.h>
#include <grpcpp/support/server_callback.h>

namespace Agent {

class Context;

// A unary call as those see it who may outlive it. Any thread.
class UnaryContext : public std::enable_shared_from_this<UnaryContext> {
public:
  explicit UnaryContext(grpc::CallbackServerContext& context) : context_(&context) {}

  // The answer is about to be sent: a client that has not taken it by then loses the call, and with it what
  // the answer takes up.
  void patienceIs(std::int64_t ns);
  // gRPC is done with the call.
  void doneIs();

private:
  void takeAway();

  std::mutex mutex_;
  grpc::CallbackServerContext* context_; // guarded by it; null once gRPC is done
  grpc::Alarm alarm_;
};

// Shared by all that may end the call; when the last of them lets go of it without having done so, the call
// ends with UNAVAILABLE.
class UnaryEnd {
public:
  // The reactor lives until its call has ended, and tells the context so. `agent`: that answers; its limits
  // say how long the client may take over the answer, and its tally is told of the end.
  UnaryEnd(grpc::ServerUnaryReactor& reactor, std::shared_ptr<UnaryContext> context, Context& agent)
      : reactor_(&reactor)
      , context_(std::move(context))
      , agent_(agent) {}
  ~UnaryEnd() { finish({grpc::StatusCode::UNAVAILABLE, "the agent is going down"}); }
  UnaryEnd(UnaryEnd const&) = delete;
  UnaryEnd& operator=(UnaryEnd const&) = delete;

  // The first end counts.
  void finish(grpc::Status const& status);
  // `told` is called with it before the answer is sent. To be set before anybody else may end the call.
  void toldIs(absl::AnyInvocable<void(grpc::Status const&)> told) { told_ = std::move(told); }

private:
  std::atomic<grpc::ServerUnaryReactor*> reactor_;
  std::shared_ptr<UnaryContext> const context_;
  Context& agent_;
  absl::AnyInvocable<void(grpc::Status const&)> told_;
};

} // namespace Agent
