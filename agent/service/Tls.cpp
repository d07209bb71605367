// The files are read and checked by OpenSSL first, so that a wrong one is told by its name; gRPC would only
// refuse connections.
#include "agent/service/Tls.h"

#include <fmt/format.h>
#include <grpcpp/security/server_credentials.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <utility>

namespace Agent {
namespace {

template <auto release>
struct Releasing {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};
using Bio = std::unique_ptr<BIO, Releasing<BIO_free_all>>;
using Certificate = std::unique_ptr<X509, Releasing<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Releasing<EVP_PKEY_free>>;

std::optional<std::string> contentOf(std::string const& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) return std::nullopt;
  return text.str();
}

Bio bioOf(std::string const& text) {
  return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// Nobody is there to type a passphrase.
int noPassphrase(char*, int, int, void*) { return -1; }

Certificate certificateOf(std::string const& pem) {
  return Certificate(PEM_read_bio_X509(bioOf(pem).get(), nullptr, noPassphrase, nullptr));
}
Key keyOf(std::string const& pem) {
  return Key(PEM_read_bio_PrivateKey(bioOf(pem).get(), nullptr, noPassphrase, nullptr));
}

std::vector<std::string> warningsOf(X509 const& certificate, std::string const& path) {
  std::vector<std::string> warnings;
  if (X509_cmp_current_time(X509_get0_notAfter(&certificate)) < 0)
    warnings.push_back(fmt::format("the certificate in {} has expired", path));
  if (X509_cmp_current_time(X509_get0_notBefore(&certificate)) > 0)
    warnings.push_back(fmt::format("the certificate in {} is not valid yet", path));
  if (X509_get_ext_by_NID(&certificate, NID_subject_alt_name, -1) < 0) {
    warnings.push_back(
        fmt::format("the certificate in {} has no subjectAltName: clients will refuse it", path));
  }
  return warnings;
}

} // namespace

Kstd::Result<ServerSecurity, std::string> tlsSecurity(TlsFiles const& files) {
  auto const certificatePem = contentOf(files.certificate);
  if (!certificatePem) return Kstd::Err(fmt::format("cannot read the certificate {}", files.certificate));
  auto const keyPem = contentOf(files.key);
  if (!keyPem) return Kstd::Err(fmt::format("cannot read the key {}", files.key));
  Certificate const certificate = certificateOf(*certificatePem);
  if (!certificate) return Kstd::Err(fmt::format("{} holds no certificate (PEM)", files.certificate));
  Key const key = keyOf(*keyPem);
  if (!key) return Kstd::Err(fmt::format("{} holds no key without passphrase (PEM)", files.key));
  if (X509_check_private_key(certificate.get(), key.get()) != 1) {
    return Kstd::Err(
        fmt::format("the key {} does not belong to the certificate {}", files.key, files.certificate));
  }

  // gRPC's own defaults: TLS 1.2 and 1.3.
  grpc::SslServerCredentialsOptions options(files.clientCa.empty()
                                                ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                                                : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
  options.pem_key_cert_pairs.push_back({*keyPem, *certificatePem});
  if (!files.clientCa.empty()) {
    auto const ca = contentOf(files.clientCa);
    if (!ca) return Kstd::Err(fmt::format("cannot read the authorities of clients {}", files.clientCa));
    if (!certificateOf(*ca)) return Kstd::Err(fmt::format("{} holds no certificate (PEM)", files.clientCa));
    options.pem_root_certs = *ca;
  }
  return ServerSecurity{.credentials = grpc::SslServerCredentials(options),
                        .isSecure = true,
                        .asksClients = !files.clientCa.empty(),
                        .warnings = warningsOf(*certificate, files.certificate)};
}

ServerSecurity plaintext() { return {.credentials = grpc::InsecureServerCredentials(), .warnings = {}}; }

} // namespace Agent
