// The unary calls of the service: Capabilities, Get, Set. Each is called on one of gRPC's threads with a
// request whose client has been admitted, and returns the reactor that ends the call; request and response
// stay valid until it does. A Get's response and both of a Set are bytes: a response is written once, and a
// request that cannot be parsed is refused. What concerns the types alone is done at once, on that thread, or
// on the worker's; the model is read and written on the scheduler thread.
//
// A call that its client has left ends soon: a Get stops reading, a Set that has not begun is not carried
// out. The scheduler must run until all calls have ended; work that its scheduler is destroyed with ends its
// call with UNAVAILABLE.
#pragma once

#include <grpcpp/support/byte_buffer.h>
#include <grpcpp/support/server_callback.h>

#include "agent/model/Schema.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

class Audit;
class Router;
class SetRuns;
struct Guest;

[[nodiscard]] grpc::ServerUnaryReactor* capabilitiesCall(grpc::CallbackServerContext& context,
                                                         gnmi::CapabilityRequest const& request,
                                                         gnmi::CapabilityResponse& response);
[[nodiscard]] grpc::ServerUnaryReactor* getCall(grpc::CallbackServerContext& context, Guest const& guest,
                                                gnmi::GetRequest const& request, grpc::ByteBuffer& response,
                                                Router& router);
[[nodiscard]] grpc::ServerUnaryReactor* setCall(grpc::CallbackServerContext& context, Guest const& guest,
                                                grpc::ByteBuffer& request, grpc::ByteBuffer& response,
                                                SetRuns& sets, Writer writer, Audit* audit);

} // namespace Agent
