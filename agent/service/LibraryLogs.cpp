// How the levels of protobuf and gRPC become trace levels, each library under a handler of its own.
#include "agent/service/LibraryLogs.h"

#include <google/protobuf/stubs/logging.h>
#include <grpc/support/log.h>

#include <string>

#include "Tovak/DebugHandler.h"
#include "Tovak/Trace.h"

namespace Agent {
namespace {

void protobufLog(google::protobuf::LogLevel level, char const* file, int line, std::string const& message) {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentProtobuf", false);
  unsigned const traced = level >= google::protobuf::LOGLEVEL_ERROR     ? 0
                          : level == google::protobuf::LOGLEVEL_WARNING ? 1
                                                                        : 2;
  Tovak::fmtrace(handler, traced, file, "protobuf", line, "", "{}", message);
}

void grpcLog(gpr_log_func_args* args) {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("AgentGrpc", false);
  unsigned const traced = args->severity == GPR_LOG_SEVERITY_ERROR ? 0 : 2;
  Tovak::fmtrace(handler, traced, args->file, "grpc", args->line, "", "{}", args->message);
}

} // namespace

void libraryLogsToTraces() {
  google::protobuf::SetLogHandler(&protobufLog);
  gpr_set_log_function(&grpcLog);
}

} // namespace Agent
