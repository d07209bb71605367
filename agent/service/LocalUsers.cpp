// What the processor of an acceptor's credentials adds to the context of a connection stays there, and all of
// its calls see it: that is gRPC's own way to say who has connected.
#include "agent/service/LocalUsers.h"

#include <grpcpp/security/auth_context.h>
#include <grpcpp/security/auth_metadata_processor.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server_builder.h>
#include <pwd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

namespace Agent {
namespace {

constexpr char const* kProperty = "ondra_local_user";

std::string nameOf(uid_t user) {
  std::array<char, 4'096> bytes; // NOLINT: filled by the call
  passwd entry{};
  passwd* found = nullptr;
  bool const isNamed =
      ::getpwuid_r(user, &entry, bytes.data(), bytes.size(), &found) == 0 && found != nullptr;
  return isNamed ? std::string(entry.pw_name) : std::to_string(user);
}

} // namespace

class LocalUsers::Teller final : public grpc::AuthMetadataProcessor {
public:
  // Before its acceptor takes a connection.
  void nameIs(std::string name) {
    std::lock_guard const guard(mutex_);
    name_ = std::move(name);
  }

  bool IsBlocking() const override { return false; }
  // At each call, from any thread; the context is the connection's.
  grpc::Status Process(InputMetadata const&, grpc::AuthContext* context, OutputMetadata*,
                       OutputMetadata*) override {
    std::lock_guard const guard(mutex_);
    if (context->FindPropertyValues(kProperty).empty()) context->AddProperty(kProperty, name_);
    return grpc::Status::OK;
  }

private:
  std::mutex mutex_;
  std::string name_; // guarded by it
};

LocalUsers::LocalUsers(grpc::ServerBuilder& builder) {
  for (std::size_t i = 0; i <= kUsersMax; ++i) {
    auto const credentials = grpc::experimental::LocalServerCredentials(UDS);
    auto teller = std::make_shared<Teller>();
    credentials->SetAuthMetadataProcessor(teller);
    slots_.push_back(
        {.user = 0,
         .teller = std::move(teller),
         .grpc = builder.experimental().AddExternalConnectionAcceptor(
             grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD, credentials)});
  }
}
LocalUsers::~LocalUsers() = default;

LocalUsers::Grpc& LocalUsers::acceptorOf(int fd) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return *slots_.back().grpc;
  auto const end = slots_.begin() + static_cast<std::ptrdiff_t>(known_);
  auto const found =
      std::find_if(slots_.begin(), end, [&peer](Slot const& one) { return one.user == peer.uid; });
  if (found == end) {
    if (known_ == kUsersMax) return *slots_.back().grpc;
    ++known_;
    found->user = peer.uid;
    found->teller->nameIs(nameOf(peer.uid));
  }
  return *found->grpc;
}

std::string LocalUsers::nameIn(grpc::AuthContext const* context) {
  std::string name = kPrefix;
  if (context == nullptr) return name;
  auto const told = context->FindPropertyValues(kProperty);
  return told.empty() ? name : name.append(told.front().data(), told.front().size());
}

} // namespace Agent
