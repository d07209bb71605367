// Agent::GnmiService: the gNMI service as gRPC sees it.
//
// A call's credentials are checked before anything of its request is parsed; that is why requests arrive here
// as bytes. docs/decisions.md: "Why do requests arrive as bytes?"
#pragma once

#include <atomic>
#include <memory>

#include <grpcpp/support/message_allocator.h>
#include <grpcpp/support/server_callback.h>

#include "Kstd/Result.h"
#include "agent/model/Schema.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"

namespace Agent {

class Audit;
class Gate;
struct Guest;
class Runtime;

// Registered with one gRPC server, which it outlives, as the runtime outlives it. Its calls come in on gRPC's
// threads.
class GnmiService final : public gnmi::gNMI::Service {
public:
  // Without a gate everybody may call, and do everything. Sets are those of such a writer. What it does is
  // told to the audit, which outlives it.
  GnmiService(Runtime& runtime, std::shared_ptr<Gate> gate, Writer writer = Writer::Client,
              Audit* audit = nullptr);
  ~GnmiService() override;

  // Calls that begin from now on are refused: UNAVAILABLE. Any thread.
  void closedIs() { closed_.store(true, std::memory_order_relaxed); }

private:
  template <class Request, class Response>
  class UnaryCall;
  template <class Request, class Response>
  class UnaryCalls;
  // Makes a method of the service take its request as bytes, and hands them to `handle`, parsed where it
  // wants a message.
  template <class Request, class Response, class Handle>
  void unaryIs(int method, UnaryCalls<Request, Response>& calls, Handle handle);

  // Whether the call may go on, by its credentials and the state of the service.
  [[nodiscard]] Kstd::Result<Guest, grpc::Status> admission(grpc::CallbackServerContext const& context,
                                                            int method) const;
  [[nodiscard]] grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>*
  subscribe(grpc::CallbackServerContext& context);

  Runtime& runtime_;
  std::shared_ptr<Gate> const gate_;
  Writer const writer_;
  Audit* const audit_;
  std::atomic<bool> closed_ = false;
  std::unique_ptr<UnaryCalls<gnmi::CapabilityRequest, gnmi::CapabilityResponse>> const capabilities_;
  std::unique_ptr<UnaryCalls<gnmi::GetRequest, grpc::ByteBuffer>> const gets_;
  std::unique_ptr<UnaryCalls<grpc::ByteBuffer, grpc::ByteBuffer>> const sets_;
};

} // namespace Agent
