// The end of a unary call, which comes exactly once, whoever brings it and on whichever thread.
#pragma once

#include <atomic>
#include <memory>

#include <grpcpp/support/server_callback.h>

namespace Agent {

// Shared by all that may end the call; when the last of them lets go of it without having done so, the call ends with UNAVAILABLE.
class UnaryEnd {
public:
  // The reactor lives until its call has ended.
  explicit UnaryEnd(grpc::ServerUnaryReactor& reactor) : reactor_(&reactor) {}
  ~UnaryEnd() { finish({grpc::StatusCode::UNAVAILABLE, "the agent is going down"}); }
  UnaryEnd(UnaryEnd const&) = delete;
  UnaryEnd& operator=(UnaryEnd const&) = delete;

  // The first end counts.
  void finish(grpc::Status const& status) {
    if (grpc::ServerUnaryReactor* const reactor = reactor_.exchange(nullptr)) reactor->Finish(status);
  }

private:
  std::atomic<grpc::ServerUnaryReactor*> reactor_;
};

} // namespace Agent
