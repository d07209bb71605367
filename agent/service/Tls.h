// What the agent's connections are secured with.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kstd/Result.h"

namespace grpc {
class ServerCredentials;
} // namespace grpc

namespace Agent {

// PEM files.
struct TlsFiles {
  std::string certificate; // with the chain that leads to its authority
  std::string key;
  std::string clientCa; // empty: clients need no certificate
};

struct ServerSecurity {
  std::shared_ptr<grpc::ServerCredentials> credentials;
  bool isSecure = false;
  bool asksClients = false; // for a certificate
  std::vector<std::string>
      warnings; // texts for the operator: a certificate that has expired, or names no host
};

// TLS 1.2 or later. The error says which file is wrong, and how: not readable, no certificate, a key that
// does not belong to it.
[[nodiscard]] Kstd::Result<ServerSecurity, std::string> tlsSecurity(TlsFiles const& files);
[[nodiscard]] ServerSecurity plaintext();

} // namespace Agent
