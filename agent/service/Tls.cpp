// The files are read and checked by OpenSSL first, so that a wrong one is told by its name; gRPC would only
// refuse connections.
#include "agent/service/Tls.h"

#include <fmt/format.h>
#include <grpc/grpc.h>
#include <grpc/grpc_security.h>
#include <grpcpp/security/server_credentials.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <fstream>
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
using RevocationList = std::unique_ptr<X509_CRL, Releasing<X509_CRL_free>>;
using Key = std::unique_ptr<EVP_PKEY, Releasing<EVP_PKEY_free>>;

Kstd::Result<std::string, std::string> contentOf(char const* what, std::string const& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) return Kstd::Err(fmt::format("cannot read {} {}", what, path));
  return text.str();
}

Bio bioOf(std::string const& text) {
  return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// Nobody is there to type a passphrase.
int noPassphrase(char*, int, int, void*) { return -1; }

Certificate certificateOf(BIO* pem) {
  return Certificate(PEM_read_bio_X509(pem, nullptr, noPassphrase, nullptr));
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

Kstd::Result<std::string, std::string> clientCaOf(TlsFiles const& files) {
  auto ca = contentOf("the authorities of clients", files.clientCa);
  if (ca && !certificateOf(bioOf(*ca).get()))
    return Kstd::Err(fmt::format("{} holds no certificate (PEM)", files.clientCa));
  return ca;
}

} // namespace

TlsKeys::OrError TlsKeys::of(TlsFiles const& files) {
  auto certificatePem = contentOf("the certificate", files.certificate);
  if (!certificatePem) return Kstd::Err(certificatePem.error());
  auto keyPem = contentOf("the key", files.key);
  if (!keyPem) return Kstd::Err(keyPem.error());
  Certificate const certificate = certificateOf(bioOf(*certificatePem).get());
  if (!certificate) return Kstd::Err(fmt::format("{} holds no certificate (PEM)", files.certificate));
  Key const key = keyOf(*keyPem);
  if (!key) return Kstd::Err(fmt::format("{} holds no key without passphrase (PEM)", files.key));
  if (X509_check_private_key(certificate.get(), key.get()) != 1) {
    return Kstd::Err(
        fmt::format("the key {} does not belong to the certificate {}", files.key, files.certificate));
  }
  TlsKeys keys{.certificate = std::move(*certificatePem),
               .key = std::move(*keyPem),
               .clientCa = {},
               .warnings = warningsOf(*certificate, files.certificate)};
  if (!files.clientCa.empty()) {
    auto ca = clientCaOf(files);
    if (!ca) return Kstd::Err(ca.error());
    keys.clientCa = std::move(*ca);
  }
  return keys;
}

// --- credentials ------------------------------------------------------------------------------------------

// gRPC's C interface asks at each handshake whether there are new keys; its C++ one has no name for that.
class TlsCredentials::Grpc final : public grpc::ServerCredentials {
public:
  explicit Grpc(TlsKeys keys) : keys_(std::move(keys)) {
    auto const request = keys_.clientCa.empty() ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                                                : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY;
    // Its own defaults besides: TLS 1.2 and 1.3.
    credentials_ = grpc_ssl_server_credentials_create_with_options(
        grpc_ssl_server_credentials_create_options_using_config_fetcher(request, &fetch, this));
  }
  ~Grpc() override { grpc_server_credentials_release(credentials_); }
  Grpc(Grpc const&) = delete;
  Grpc& operator=(Grpc const&) = delete;

  void keysAre(TlsKeys keys) {
    std::lock_guard const guard(mutex_);
    keys_ = std::move(keys);
    areNew_ = true;
  }

  void SetAuthMetadataProcessor(std::shared_ptr<grpc::AuthMetadataProcessor> const&) override {}

private:
  int AddPortToServer(std::string const& address, grpc_server* server) override {
    return grpc_server_add_http2_port(server, address.c_str(), credentials_);
  }

  static grpc_ssl_certificate_config_reload_status fetch(void* self,
                                                         grpc_ssl_server_certificate_config** config) {
    auto& credentials = *static_cast<Grpc*>(self);
    std::lock_guard const guard(credentials.mutex_);
    if (!std::exchange(credentials.areNew_, false)) return GRPC_SSL_CERTIFICATE_CONFIG_RELOAD_UNCHANGED;
    TlsKeys const& keys = credentials.keys_;
    grpc_ssl_pem_key_cert_pair const pair{keys.key.c_str(), keys.certificate.c_str()};
    // It wants authorities, though it asks no client for a certificate.
    std::string const& authorities = keys.clientCa.empty() ? keys.certificate : keys.clientCa;
    *config = grpc_ssl_server_certificate_config_create(authorities.c_str(), &pair, 1);
    return GRPC_SSL_CERTIFICATE_CONFIG_RELOAD_NEW;
  }

  grpc_server_credentials* credentials_ = nullptr;
  std::mutex mutex_;
  TlsKeys keys_;       // guarded by it
  bool areNew_ = true; // likewise: gRPC has not got them yet
};

TlsCredentials::TlsCredentials(TlsKeys keys)
    : asksClients_(!keys.clientCa.empty())
    , grpc_(std::make_shared<Grpc>(std::move(keys))) {}
TlsCredentials::~TlsCredentials() = default;

void TlsCredentials::keysAre(TlsKeys keys) { grpc_->keysAre(std::move(keys)); }
std::shared_ptr<grpc::ServerCredentials> TlsCredentials::forServer() const noexcept { return grpc_; }

ServerSecurity securityOf(TlsCredentials const& credentials) {
  return {.credentials = credentials.forServer(), .isSecure = true, .asksClients = credentials.asksClients()};
}

ServerSecurity plaintext() { return {.credentials = grpc::InsecureServerCredentials()}; }

// --- trust ------------------------------------------------------------------------------------------------

struct ClientTrust::Store {
  std::unique_ptr<X509_STORE, Releasing<X509_STORE_free>> x509{X509_STORE_new()};
};

namespace {

using Chain = std::unique_ptr<STACK_OF(X509),
                              decltype([](STACK_OF(X509) * chain) { sk_X509_pop_free(chain, X509_free); })>;

Chain chainOf(std::string const& pem) {
  Chain chain(sk_X509_new_null());
  Bio const bio = bioOf(pem);
  while (Certificate certificate = certificateOf(bio.get()))
    sk_X509_push(chain.get(), certificate.release());
  ERR_clear_error(); // the end
  return chain;
}

// An authority without a list revokes nobody.
int passWithoutList(int isGood, X509_STORE_CTX* context) {
  if (isGood == 0 && X509_STORE_CTX_get_error(context) == X509_V_ERR_UNABLE_TO_GET_CRL) {
    X509_STORE_CTX_set_error(context, X509_V_OK);
    return 1;
  }
  return isGood;
}

} // namespace

ClientTrust::ClientTrust() : store_(std::make_unique<Store>()) {}
ClientTrust::~ClientTrust() = default;

ClientTrust::OrError ClientTrust::of(TlsFiles const& files) {
  auto const ca = clientCaOf(files);
  if (!ca) return Kstd::Err(ca.error());
  std::unique_ptr<ClientTrust> trust(new ClientTrust());
  X509_STORE* const store = trust->store_->x509.get();
  Chain const authorities = chainOf(*ca);
  for (int i = 0; i < sk_X509_num(authorities.get()); ++i)
    X509_STORE_add_cert(store, sk_X509_value(authorities.get(), i));
  unsigned long flags = X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_TRUSTED_FIRST; // as gRPC has it
  if (!files.clientCrl.empty()) {
    auto const pem = contentOf("the revocation lists", files.clientCrl);
    if (!pem) return Kstd::Err(pem.error());
    Bio const bio = bioOf(*pem);
    while (RevocationList list{PEM_read_bio_X509_CRL(bio.get(), nullptr, noPassphrase, nullptr)}) {
      X509_STORE_add_crl(store, list.get());
      ++trust->lists_;
    }
    ERR_clear_error();
    if (trust->lists_ == 0)
      return Kstd::Err(fmt::format("{} holds no revocation list (PEM)", files.clientCrl));
    flags |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
  }
  X509_STORE_set_flags(store, flags);
  X509_STORE_set_verify_cb(store, &passWithoutList);
  return std::unique_ptr<ClientTrust const>(std::move(trust));
}

std::optional<std::string> ClientTrust::faultOf(std::string const& certificate,
                                                std::string const& chain) const {
  std::string const key = certificate + chain;
  {
    std::lock_guard const guard(mutex_);
    if (auto const found = known_.find(key); found != known_.end()) return found->second;
  }
  std::optional<std::string> fault = verify(certificate, chain);
  std::lock_guard const guard(mutex_);
  if (known_.size() >= kMemory) known_.clear();
  return known_.insert_or_assign(key, std::move(fault)).first->second;
}

std::optional<std::string> ClientTrust::verify(std::string const& certificate,
                                               std::string const& chain) const {
  Certificate const leaf = certificateOf(bioOf(certificate).get());
  if (!leaf) return "it cannot be read";
  Chain const sent = chainOf(chain);
  std::unique_ptr<X509_STORE_CTX, Releasing<X509_STORE_CTX_free>> const context(X509_STORE_CTX_new());
  X509_STORE_CTX_init(context.get(), store_->x509.get(), leaf.get(), sent.get());
  X509_STORE_CTX_set_default(context.get(), "ssl_client");
  if (X509_verify_cert(context.get()) == 1) return std::nullopt;
  std::string why = X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
  ERR_clear_error();
  return why;
}

} // namespace Agent
