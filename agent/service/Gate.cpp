// Credentials first; then the name that they prove, by which the rules are found. When terms change every
// guest is looked at anew, outside of the lock.
#include "agent/service/Gate.h"

#include <fmt/format.h>
#include <grpc/grpc_security_constants.h>
#include <grpcpp/security/auth_context.h>
#include <grpcpp/server_context.h>

#include <utility>
#include <vector>

#include "agent/service/Authenticator.h"
#include "agent/service/LocalUsers.h"
#include "agent/subscribe/Subscriber.h"

namespace Agent {
namespace {

std::string propertyOf(grpc::AuthContext const& context, char const* name) {
  auto const values = context.FindPropertyValues(name);
  return values.empty() ? std::string() : std::string(values.front().data(), values.front().size());
}

// Of a certificate. No authority makes users of this machine.
std::string nameOf(grpc::AuthContext const& context) {
  std::string name = propertyOf(context, GRPC_PEER_SPIFFE_ID_PROPERTY_NAME);
  if (name.empty()) name = propertyOf(context, GRPC_X509_CN_PROPERTY_NAME);
  return name.starts_with(LocalUsers::kPrefix) ? std::string() : name;
}

// The texts of certificates that are not good any more name no more than why.
grpc::Status notTrusted(std::string const& why) {
  return {grpc::StatusCode::UNAUTHENTICATED, fmt::format("the certificate is not accepted: {}", why)};
}

} // namespace

Gate::Gate(Terms terms, Tovak::Clock& clock)
    : authenticator_(terms.users ? std::make_unique<Authenticator>(terms.users, clock) : nullptr)
    , terms_(std::make_shared<Terms const>(std::move(terms))) {}
Gate::~Gate() = default;

std::shared_ptr<Terms const> Gate::termsNow() {
  std::lock_guard const guard(mutex_);
  return terms_;
}

Gate::Admitted Gate::admit(grpc::CallbackServerContext const& context) {
  Guest guest{.terms = termsNow()};
  auto const proven = context.auth_context();
  if (context.peer().starts_with("unix:")) guest.name = LocalUsers::nameIn(proven.get());
  if (proven && proven->IsPeerAuthenticated()) {
    guest.certificate = propertyOf(*proven, GRPC_X509_PEM_CERT_PROPERTY_NAME);
    guest.chain = propertyOf(*proven, GRPC_X509_PEM_CERT_CHAIN_PROPERTY_NAME);
    if (!guest.certificate.empty()) guest.name = nameOf(*proven);
  }
  if (guest.terms->trust) {
    if (auto const fault = guest.terms->trust->faultOf(guest.certificate, guest.chain))
      return Kstd::Err(notTrusted(*fault));
  }
  if (authenticator_) {
    if (grpc::Status status = authenticator_->check(context.client_metadata(), context.peer()); !status.ok())
      return Kstd::Err(std::move(status));
    auto const name = context.client_metadata().find("username");
    guest.name.assign(name->second.data(), name->second.size());
  }
  if (guest.terms->access) guest.rights = guest.terms->access->rightsOf(guest.name);
  return guest;
}

std::optional<grpc::Status> Gate::ejection(Guest const& guest, Terms const& terms) {
  if (guest.terms.get() == &terms) return std::nullopt;
  if (terms.users && !terms.users->hasSame(*guest.terms->users, guest.name))
    return grpc::Status(grpc::StatusCode::UNAUTHENTICATED, "the user has gone, or has another password");
  if (terms.trust) {
    if (auto const fault = terms.trust->faultOf(guest.certificate, guest.chain)) return notTrusted(*fault);
  }
  if (terms.access && terms.access->rightsOf(guest.name).reads != guest.rights.reads)
    return grpc::Status(grpc::StatusCode::UNAVAILABLE, "the access rules have changed: subscribe again");
  return std::nullopt;
}

void Gate::enter(std::shared_ptr<Subscriber> const& stream, Guest const& guest) {
  std::shared_ptr<Terms const> terms;
  {
    std::lock_guard const guard(mutex_);
    inside_.insert_or_assign(stream.get(), Inside{stream, &guest});
    terms = terms_;
  }
  if (auto const why = ejection(guest, *terms)) stream->end(*why);
}

void Gate::leave(Subscriber& stream) {
  std::lock_guard const guard(mutex_);
  inside_.erase(&stream);
}

std::size_t Gate::termsAre(Terms given) {
  if (given.access) {
    auto access = std::make_shared<AccessRules>(*given.access);
    access->keepFrom(*termsNow()->access);
    given.access = std::move(access);
  }
  if (authenticator_) authenticator_->usersAre(given.users);
  auto const terms = std::make_shared<Terms const>(std::move(given));
  std::vector<Inside> all;
  {
    std::lock_guard const guard(mutex_);
    terms_ = terms;
    for (auto const& [stream, inside] : inside_)
      all.push_back(inside);
  }
  std::size_t ended = 0;
  for (Inside const& one : all) {
    std::shared_ptr<Subscriber> const stream = one.stream.lock();
    auto const why = stream ? ejection(*one.guest, *terms) : std::nullopt;
    if (!why) continue;
    stream->end(*why);
    ++ended;
  }
  return ended;
}

} // namespace Agent
