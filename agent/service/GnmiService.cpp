// Admission before parsing: the holders of messages keep a request as bytes until its call is let in. A Set
// gets the bytes themselves.
#include "agent/service/GnmiService.h"

#include <type_traits>
#include <utility>

#include "agent/service/Audit.h"
#include "agent/service/Gate.h"
#include "agent/service/Runtime.h"
#include "agent/service/SubscribeStream.h"
#include "agent/service/UnaryCalls.h"

namespace Agent {
namespace {

// The methods in the order of the published service.
enum Method : int { kCapabilities, kGet, kSet, kSubscribe };
static_assert(kSubscribe == static_cast<int>(Tally::Method::Subscribe));

// A stream that is refused before it begins.
class RefusedStream final : public grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer> {
public:
  explicit RefusedStream(grpc::Status const& status) { Finish(status); }
  void OnDone() override { delete this; }
};

grpc::ServerUnaryReactor* refused(grpc::CallbackServerContext& context, grpc::Status const& status) {
  grpc::ServerUnaryReactor* const reactor = context.DefaultReactor();
  reactor->Finish(status);
  return reactor;
}

} // namespace

// The messages of one call, which lie together; gRPC releases it when the call is over.
template <class Request, class Response>
class GnmiService::UnaryCall final : public grpc::MessageHolder<grpc::ByteBuffer, Response> {
public:
  UnaryCall() {
    this->set_request(&bytes_);
    this->set_response(response_);
  }
  void Release() override { delete this; }

  // The bytes are let go, unless they are what is asked for.
  [[nodiscard]] bool parse() {
    if constexpr (kIsOfBytes)
      return true;
    else
      return grpc::SerializationTraits<Request>::Deserialize(&bytes_, request_).ok();
  }
  [[nodiscard]] Request& request() { return *request_; }

private:
  static constexpr bool kIsOfBytes = std::is_same_v<Request, grpc::ByteBuffer>;
  Request* requestIs() {
    if constexpr (kIsOfBytes)
      return &bytes_;
    else
      return made<Request>(arena_);
  }
  template <class Made>
  static Made* made(google::protobuf::Arena& arena) {
    if constexpr (std::is_base_of_v<google::protobuf::Message, Made>)
      return google::protobuf::Arena::CreateMessage<Made>(&arena);
    else
      return google::protobuf::Arena::Create<Made>(&arena);
  }
  static google::protobuf::ArenaOptions options() {
    google::protobuf::ArenaOptions options;
    options.start_block_size = 1024;
    options.max_block_size = 64 * 1024;
    return options;
  }

  grpc::ByteBuffer bytes_;
  google::protobuf::Arena arena_{options()};
  Request* const request_ = requestIs();
  Response* const response_ = made<Response>(arena_);
};

template <class Request, class Response>
class GnmiService::UnaryCalls final : public grpc::MessageAllocator<grpc::ByteBuffer, Response> {
public:
  grpc::MessageHolder<grpc::ByteBuffer, Response>* AllocateMessages() override {
    return new UnaryCall<Request, Response>();
  }
};

template <class Request, class Response, class Handle>
void GnmiService::unaryIs(int method, UnaryCalls<Request, Response>& calls, Handle handle) {
  using Handler = grpc::internal::CallbackUnaryHandler<grpc::ByteBuffer, Response>;
  auto handler =
      std::make_unique<Handler>([this, handle, method](grpc::CallbackServerContext* context,
                                                       grpc::ByteBuffer const*, Response* response) {
        auto const refuse = [&](grpc::Status const& status) {
          runtime_.context().tally().ended(status.error_code());
          return refused(*context, status);
        };
        auto const admitted = admission(*context, method);
        if (!admitted) return refuse(admitted.error());
        auto& call = static_cast<UnaryCall<Request, Response>&>(*context->GetRpcAllocatorState());
        if (!call.parse())
          return refuse({grpc::StatusCode::INVALID_ARGUMENT, "the request cannot be parsed"});
        return handle(*context, *admitted, call.request(), *response);
      });
  handler->SetMessageAllocator(&calls);
  MarkMethodCallback(method, handler.release()); // which owns it from then on
}

GnmiService::GnmiService(Runtime& runtime, std::shared_ptr<Gate> gate, Writer writer, Audit* audit)
    : runtime_(runtime)
    , gate_(std::move(gate))
    , writer_(writer)
    , audit_(audit)
    , capabilities_(std::make_unique<UnaryCalls<gnmi::CapabilityRequest, gnmi::CapabilityResponse>>())
    , gets_(std::make_unique<UnaryCalls<gnmi::GetRequest, grpc::ByteBuffer>>())
    , sets_(std::make_unique<UnaryCalls<grpc::ByteBuffer, grpc::ByteBuffer>>()) {
  unaryIs(kCapabilities, *capabilities_, [](auto& context, auto&, auto& request, auto& response) {
    return capabilitiesCall(context, request, response);
  });
  unaryIs(kGet, *gets_, [this](auto& context, auto& guest, auto& request, auto& response) {
    return getCall(context, guest, request, response, runtime_.router());
  });
  unaryIs(kSet, *sets_, [this](auto& context, auto& guest, auto& request, auto& response) {
    return setCall(context, guest, request, response, runtime_.sets(), writer_, audit_);
  });
  MarkMethodRawCallback(kSubscribe,
                        new grpc::internal::CallbackBidiHandler<grpc::ByteBuffer, grpc::ByteBuffer>(
                            [this](grpc::CallbackServerContext* context) { return subscribe(*context); }));
}

GnmiService::~GnmiService() = default;

Gate::Admitted GnmiService::admission(grpc::CallbackServerContext const& context, int method) const {
  static constexpr char const* kNames[] = {"Capabilities", "Get", "Set", "Subscribe"};
  runtime_.context().tally().begun(static_cast<Tally::Method>(method));
  if (closed_.load(std::memory_order_relaxed))
    return Kstd::Err(grpc::Status(grpc::StatusCode::UNAVAILABLE, "the agent is going down"));
  if (!gate_) return Guest();
  auto admitted = gate_->admit(context);
  if (!admitted && audit_ != nullptr)
    audit_->refused(Audit::Caller(context), kNames[method], admitted.error());
  return admitted;
}

grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>*
GnmiService::subscribe(grpc::CallbackServerContext& context) {
  auto admitted = admission(context, kSubscribe);
  if (!admitted) {
    runtime_.context().tally().ended(admitted.error().error_code());
    return new RefusedStream(admitted.error());
  }
  return subscribeCall(context, std::move(*admitted), gate_, runtime_.calls());
}

} // namespace Agent
