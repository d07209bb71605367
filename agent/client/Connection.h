// The client's end of a connection: its options, the channel, what every call carries.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Kstd/Result.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.grpc.pb.h"

namespace CLI {
class App;
} // namespace CLI

namespace Agent {

// Plain values; see `connectionOptions` for what they mean.
struct ConnectionOptions {
  std::string address = "127.0.0.1:9339";
  bool isPlaintext = false;
  std::string ca, certificate, key; // PEM files
  std::string serverName;
  bool skipsVerification = false;
  std::string user, password;
  std::string target;                      // of the requests' prefix
  std::int64_t timeoutNs = 10'000'000'000; // until connected
};
void connectionOptions(CLI::App& app, ConnectionOptions& options);

using Stub = gnmi::gNMI::Stub;
// Waits until connected. The error says what stands in the way.
[[nodiscard]] Kstd::Result<std::unique_ptr<Stub>, std::string> connect(ConnectionOptions const& options);
// Credentials.
void contextIs(grpc::ClientContext& context, ConnectionOptions const& options);

// "NOT_FOUND: no such path"
[[nodiscard]] std::string statusText(grpc::Status const& status);

} // namespace Agent
