// One frame for all commands (options, connection, call, exit code); each command then adds its call and how
// the answer is printed.
#include "agent/client/Commands.h"

#include <fmt/format.h>
#include <google/protobuf/util/json_util.h>

#include <cstdio>
#include <utility>

#include "agent/client/Lines.h"
#include "agent/client/Requests.h"
#include "agent/client/ValueText.h"
#include "agent/options/Console.h"
#include "agent/paths/PathText.h"

namespace Agent {
namespace {

void print(std::string const& text) { say(stdout, text); }

int failed(char const* command, std::string const& what) {
  say(stderr, fmt::format("ondra-agent {}: {}\n", command, printable(what)));
  return ExitCode::failed;
}

// Parses the options, connects, and hands both to `call`, which gives the call's status.
template <class Options, class Call>
int run(char const* command, std::vector<std::string> const& arguments, Call call) {
  auto options = Options::parse(arguments);
  if (!options) {
    say(options.error().code == ExitCode::ok ? stdout : stderr, options.error().text);
    return options.error().code;
  }
  auto stub = connect(options->connection);
  if (!stub) return failed(command, stub.error());
  grpc::ClientContext context;
  contextIs(context, options->connection);
  grpc::Status const status = call(*options, **stub, context);
  return status.ok() ? ExitCode::ok : failed(command, statusText(status));
}

grpc::Status watch(WatchOptions const& options, Stub& stub, grpc::ClientContext& context) {
  if (options.durationNs > 0) {
    context.set_deadline(
        gpr_time_add(gpr_now(GPR_CLOCK_REALTIME), gpr_time_from_nanos(options.durationNs, GPR_TIMESPAN)));
  }
  LineStyle const style = LineStyle::ofStandardOutput(options.isJson);
  auto const stream = stub.Subscribe(&context);
  if (stream->Write(options.request)) stream->WritesDone();
  gnmi::SubscribeResponse response;
  while (stream->Read(&response)) {
    print(response.has_update()      ? notificationLines(response.update(), style)
          : response.sync_response() ? syncLine(style)
                                     : std::string());
  }
  grpc::Status const status = stream->Finish();
  bool const isTimeUp = options.durationNs > 0 && status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED;
  return isTimeUp ? grpc::Status::OK : status;
}

grpc::Status get(GetOptions const& options, Stub& stub, grpc::ClientContext& context) {
  gnmi::GetResponse response;
  grpc::Status status = stub.Get(&context, options.request, &response);
  LineStyle style = LineStyle::ofStandardOutput(options.isJson);
  style.hasTime = false;
  for (gnmi::Notification const& notification : response.notification())
    print(notificationLines(notification, style, 2));
  return status;
}

grpc::Status set(SetOptions const& options, Stub& stub, grpc::ClientContext& context) {
  gnmi::SetResponse response;
  grpc::Status status = stub.Set(&context, options.request, &response);
  for (gnmi::UpdateResult const& result : response.response()) {
    print(fmt::format("{} {}\n", gnmi::UpdateResult::Operation_Name(result.op()),
                      printable(pathText(response.prefix(), result.path()))));
  }
  return status;
}

grpc::Status capabilities(CapabilitiesOptions const& options, Stub& stub, grpc::ClientContext& context) {
  gnmi::CapabilityResponse response;
  grpc::Status status = stub.Capabilities(&context, {}, &response);
  if (!status.ok()) return status;
  if (options.isJson) {
    std::string text;
    static_cast<void>(google::protobuf::util::MessageToJsonString(response, &text));
    print(text + '\n');
    return status;
  }
  std::string encodings;
  for (int const encoding : response.supported_encodings()) {
    encodings += ' ';
    encodings += gnmi::Encoding_IsValid(encoding) ? gnmi::Encoding_Name(static_cast<gnmi::Encoding>(encoding))
                                                  : std::to_string(encoding);
  }
  print(fmt::format("gNMI {}\nencodings{}\n", printable(response.gnmi_version()), encodings));
  for (gnmi::ModelData const& model : response.supported_models()) {
    print(fmt::format("{} {} ({})\n", printable(model.name()), printable(model.version()),
                      printable(model.organization())));
  }
  return status;
}

} // namespace

int watchCommand(std::vector<std::string> const& arguments) {
  return run<WatchOptions>("watch", arguments, watch);
}
int getCommand(std::vector<std::string> const& arguments) { return run<GetOptions>("get", arguments, get); }
int setCommand(std::vector<std::string> const& arguments) { return run<SetOptions>("set", arguments, set); }
int capabilitiesCommand(std::vector<std::string> const& arguments) {
  return run<CapabilitiesOptions>("capabilities", arguments, capabilities);
}

} // namespace Agent
