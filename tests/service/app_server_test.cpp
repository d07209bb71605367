// The server: who is let in, and before what; health, reflection, limits, the end.

#include <crypt.h>
#include <grpcpp/generic/generic_stub.h>

#include <chrono>
#include <utility>
#include <vector>

#include "Kel/Dir.h"
#include "agent/service/Gate.h"
#include "agent/service/Server.h"
#include "agent/synthetic/Synthetic.h"
#include "service/ServiceTesting.h"

namespace Agent {
namespace {

constexpr std::int64_t kSecondNs = 1'000'000'000;
constexpr char const* kGet = "/gnmi.gNMI/Get";
constexpr char const* kHealthCheck = "/grpc.health.v1.Health/Check";

std::string hashed(char const* password) {
  crypt_data data{};
  return ::crypt_r(password, "$6$rounds=1000$abcdefgh$", &data);
}

// A server on loopback over a runtime that runs, and a connection to it.
class Serving {
public:
  explicit Serving(bool hasUsers = false, Limits const& limits = {}) {
    ServiceTesting::clearModel();
    runtime = std::make_unique<Runtime>(Context::Options{.limits = limits});
    runtime->context().start();
    Server::Options options{
        .listen = {ListenAddress{.host = "127.0.0.1"}}, .security = plaintext(), .gate = {}};
    if (hasUsers) {
      auto users = std::make_shared<Users const>(Users::parse("ann:" + hashed("open")).value());
      options.gate = std::make_shared<Gate>(Terms{.users = std::move(users)}, Tovak::SystemClock::instance());
    }
    auto started = Server::start(options, *runtime);
    EXPECT_TRUE(started.ok());
    server = std::move(started.value());
    channel = grpc::CreateChannel(server->addresses().front().text(), grpc::InsecureChannelCredentials());
  }
  ~Serving() {
    server.reset();
    runtime->context().stop();
  }

  std::unique_ptr<Runtime> runtime;
  std::unique_ptr<Server> server;
  std::shared_ptr<grpc::Channel> channel;
};

// A context with a deadline far off, so that a test that would hang fails, and with credentials.
std::unique_ptr<grpc::ClientContext> contextOf(char const* password = nullptr) {
  auto context = std::make_unique<grpc::ClientContext>();
  context->set_deadline(gpr_time_add(gpr_now(GPR_CLOCK_REALTIME), gpr_time_from_seconds(20, GPR_TIMESPAN)));
  if (password != nullptr) {
    context->AddMetadata("username", "ann");
    context->AddMetadata("password", password);
  }
  return context;
}

struct Answer {
  grpc::Status status;
  std::string bytes;
};

// A unary call with whatever bytes.
Answer call(Serving& serving, char const* method, std::string const& request,
            char const* password = nullptr) {
  grpc::GenericStub stub(serving.channel);
  auto const context = contextOf(password);
  grpc::CompletionQueue queue;
  grpc::Slice const slice(request);
  auto const reader = stub.PrepareUnaryCall(context.get(), method, grpc::ByteBuffer(&slice, 1), &queue);
  reader->StartCall();
  grpc::ByteBuffer response;
  Answer answer;
  reader->Finish(&response, &answer.status, nullptr);
  void* tag = nullptr;
  bool ok = false;
  queue.Next(&tag, &ok);
  grpc::Slice whole;
  if (answer.status.ok() && response.DumpToSingleSlice(&whole).ok())
    answer.bytes.assign(reinterpret_cast<char const*>(whole.begin()), whole.size());
  return answer;
}

struct Stream {
  explicit Stream(Serving& serving, bool saysWhat = true)
      : stub(gnmi::gNMI::NewStub(serving.channel))
      , context(contextOf()) {
    stream = stub->Subscribe(context.get());
    if (!saysWhat) return;
    gnmi::SubscribeRequest request;
    request.mutable_subscribe()->add_subscription()->mutable_path()->add_elem()->set_name("interfaces");
    stream->Write(request);
  }
  // The status of the call once it has ended.
  grpc::Status end() {
    gnmi::SubscribeResponse response;
    while (stream->Read(&response)) {
    }
    return stream->Finish();
  }
  bool awaitSync() {
    gnmi::SubscribeResponse response;
    while (stream->Read(&response))
      if (response.sync_response()) return true;
    return false;
  }
  std::unique_ptr<gnmi::gNMI::Stub> stub;
  std::unique_ptr<grpc::ClientContext> context;
  std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>> stream;
};

TEST(Server, CredentialsComeBeforeTheRequest) {
  Serving serving(true);
  std::string const garbage = "\xff\xff\xff";
  using Code = grpc::StatusCode;
  for (char const* const method : {kGet, "/gnmi.gNMI/Set", "/gnmi.gNMI/Capabilities"}) {
    EXPECT_EQ(call(serving, method, garbage).status.error_code(), Code::UNAUTHENTICATED) << method;
    EXPECT_EQ(call(serving, method, garbage, "wrong").status.error_code(), Code::UNAUTHENTICATED) << method;
    EXPECT_EQ(call(serving, method, garbage, "open").status.error_code(), Code::INVALID_ARGUMENT) << method;
    EXPECT_EQ(call(serving, method, "", "open").status.error_code(), Code::OK) << method;
  }
  EXPECT_EQ(Stream(serving).end().error_code(), Code::UNAUTHENTICATED);
  EXPECT_TRUE(call(serving, kHealthCheck, "").status.ok()) << "health is for everybody";
}

TEST(Server, BytesThatAreNoRequestAreRefusedWithoutAWordOnStandardError) {
  Serving serving;
  testing::internal::CaptureStderr();
  for (char const* const method : {kGet, "/gnmi.gNMI/Set", "/gnmi.gNMI/Subscribe"}) {
    // The last two are names that are not UTF-8.
    for (char const* const bytes :
         {"\xff\xff\xff", "\x0a\x7f", "\x12\x04\x1a\x02\x0a\xff", "\x12\x05\x1a\x03\x0a\x01\xff",
          "\x0a\x09\x12\x07\x0a\x05\x1a\x03\x0a\x01\xff"})
      EXPECT_EQ(call(serving, method, bytes).status.error_code(), grpc::StatusCode::INVALID_ARGUMENT)
          << method;
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Server, TellsItsHealthAndItsServices) {
  Serving serving;
  std::string const kServing = "\x08\x01";
  EXPECT_EQ(call(serving, kHealthCheck, "").bytes, kServing);
  EXPECT_EQ(call(serving, kHealthCheck, "\x0a\x09gnmi.gNMI").bytes, kServing);
  EXPECT_EQ(call(serving, kHealthCheck, "\x0a\x02no").status.error_code(), grpc::StatusCode::NOT_FOUND);
  Answer const services = call(serving, "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo",
                               std::string("\x3a\x00", 2)); // to list them
  EXPECT_NE(services.bytes.find("gnmi.gNMI"), std::string::npos) << services.status.error_message();
}

TEST(Server, LimitsMessages) {
  Serving serving(false, {.messageBytes = 64 << 10});
  using Code = grpc::StatusCode;
  EXPECT_EQ(call(serving, kGet, std::string(65 << 10, 'x')).status.error_code(), Code::RESOURCE_EXHAUSTED);
  EXPECT_TRUE(call(serving, "/gnmi.gNMI/Capabilities", "").status.ok()) << "others are served on";
}

// A Get whose answer the client leaves lying.
struct UnreadGet {
  UnreadGet(Serving& serving, gnmi::GetRequest const& request)
      : stub(gnmi::gNMI::NewStub(channelOf(serving)))
      , context(contextOf())
      , reader(stub->PrepareAsyncGet(context.get(), request, &queue)) {
    reader->StartCall();
    reader->ReadInitialMetadata(nullptr);
    next();
  }
  ~UnreadGet() {
    if (!hasEnded) static_cast<void>(end());
  }
  // Takes it after all.
  grpc::Status end() {
    gnmi::GetResponse response;
    grpc::Status status;
    reader->Finish(&response, &status, nullptr);
    next();
    hasEnded = true;
    return status;
  }
  void next() {
    void* tag = nullptr;
    bool ok = false;
    queue.Next(&tag, &ok);
  }

  // Takes little ahead of what is asked for.
  static std::shared_ptr<grpc::Channel> channelOf(Serving& serving) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_HTTP2_BDP_PROBE, 0);
    arguments.SetInt(GRPC_ARG_HTTP2_STREAM_LOOKAHEAD_BYTES, 1'024);
    return grpc::CreateCustomChannel(serving.server->addresses().front().text(),
                                     grpc::InsecureChannelCredentials(), arguments);
  }

  grpc::CompletionQueue queue;
  std::unique_ptr<gnmi::gNMI::Stub> stub;
  std::unique_ptr<grpc::ClientContext> context;
  std::unique_ptr<grpc::ClientAsyncResponseReader<gnmi::GetResponse>> reader;
  bool hasEnded = false;
};

TEST(Server, AnswersThatNobodyTakesAreBoundedAndTakenBack) {
  declareSynthetic();
  Serving serving(false, {.getBytes = 1'000'000, .stuckNs = 3'000'000'000});
  Kel::Ptr<SyntheticPorts> ports;
  serving.runtime->context().scheduler()->post([&ports] {
    ports = syntheticIn(*Kel::globalDir(), 40'000); // some 800 KB
  });
  gnmi::GetRequest request;
  request.add_path()->add_elem()->set_name("synthetic");
  std::string const bytes = request.SerializeAsString();
  {
    std::vector<std::unique_ptr<UnreadGet>> unread;
    for (int i = 0; i < 2; ++i)
      unread.push_back(std::make_unique<UnreadGet>(serving, request));
    grpc::Status status;
    bool wasRefused = false;
    auto const giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!(wasRefused && status.ok()) && std::chrono::steady_clock::now() < giveUp) {
      status = call(serving, kGet, bytes).status;
      if (status.ok()) continue;
      EXPECT_EQ(status.error_message(), "too many answers wait for their clients: try again later");
      wasRefused = true;
    }
    EXPECT_TRUE(wasRefused && status.ok());
    EXPECT_FALSE(unread.front()->end().ok());
  }
  serving.runtime->context().stop();
  ports.reset();
}

TEST(Server, SubscribeCallsThatDoNotSayWhatTheyWantEnd) {
  Serving serving(false, {.stuckNs = 10'000'000});
  grpc::Status const status = Stream(serving, false).end();
  EXPECT_EQ(status.error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(status.error_message(), "no subscription list has come");
}

TEST(Server, DrainingEndsStreamsAndHealthAndRefusesCalls) {
  Serving serving;
  Stream silent(serving, false);
  Stream stream(serving);
  ASSERT_TRUE(stream.awaitSync());
  serving.server->drain(10 * kSecondNs);
  for (Stream* const each : {&stream, &silent}) {
    grpc::Status const status = each->end();
    EXPECT_EQ(status.error_code(), grpc::StatusCode::UNAVAILABLE);
    EXPECT_EQ(status.error_message(), "the agent is going down");
  }
  EXPECT_EQ(call(serving, kHealthCheck, "").status.error_code(), grpc::StatusCode::UNAVAILABLE);
}

} // namespace
} // namespace Agent
