// What the agent's connections are secured with, and whether clients' certificates are still good.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
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
  std::string clientCa;  // empty: clients need no certificate
  std::string clientCrl; // revocation lists of these authorities; may be empty
};

// What the files hold, checked. A value.
struct TlsKeys {
  // The error says which file is wrong, and how: not readable, no certificate, a key that does not belong to
  // it.
  using OrError = Kstd::Result<TlsKeys, std::string>;
  [[nodiscard]] static OrError of(TlsFiles const& files);

  std::string certificate;
  std::string key;
  std::string clientCa;
  std::vector<std::string> warnings; // for the operator: a certificate that has expired, or names no host
};

// TLS 1.2 or later, with keys that may change while a server uses them: a handshake takes those that are
// there when it begins. For one server. Any thread.
class TlsCredentials {
public:
  explicit TlsCredentials(TlsKeys keys);
  ~TlsCredentials();
  TlsCredentials(TlsCredentials const&) = delete;
  TlsCredentials& operator=(TlsCredentials const&) = delete;

  // REQUIRES that they ask for client certificates as the first ones did.
  void keysAre(TlsKeys keys);
  [[nodiscard]] bool asksClients() const noexcept { return asksClients_; }
  [[nodiscard]] std::shared_ptr<grpc::ServerCredentials> forServer() const noexcept;

private:
  class Grpc;
  bool const asksClients_;
  std::shared_ptr<Grpc> const grpc_;
};

struct ServerSecurity {
  std::shared_ptr<grpc::ServerCredentials> credentials;
  bool isSecure = false;
  bool asksClients = false; // for a certificate
};
[[nodiscard]] ServerSecurity securityOf(TlsCredentials const& credentials);
[[nodiscard]] ServerSecurity plaintext();

// Whom clients' certificates are believed from, and which of them are revoked. Immutable; any thread.
class ClientTrust {
public:
  using OrError = Kstd::Result<std::unique_ptr<ClientTrust const>, std::string>;
  // REQUIRES authorities of clients among the files.
  [[nodiscard]] static OrError of(TlsFiles const& files);
  ~ClientTrust();
  ClientTrust(ClientTrust const&) = delete;
  ClientTrust& operator=(ClientTrust const&) = delete;

  // Why a certificate (PEM, with what its owner sent along) is not good; nothing: it is. Remembered.
  [[nodiscard]] std::optional<std::string> faultOf(std::string const& certificate,
                                                   std::string const& chain) const;
  [[nodiscard]] std::size_t lists() const noexcept { return lists_; } // of revocations

private:
  static constexpr std::size_t kMemory = 1'024; // certificates

  struct Store;
  ClientTrust();
  [[nodiscard]] std::optional<std::string> verify(std::string const& certificate,
                                                  std::string const& chain) const;

  std::unique_ptr<Store> store_;
  std::size_t lists_ = 0;
  mutable std::mutex mutex_;
  mutable std::map<std::string, std::optional<std::string>> known_; // guarded by it
};

} // namespace Agent
