// Verdicts are kept for a while under a keyed digest; one hash at a time.
#include "agent/service/Authenticator.h"

#include <crypt.h>
#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <chrono>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "Tovak/Assert.h"
#include "Tovak/Clock.h"
#include "Tovak/DebugHandler.h"
#include "agent/service/Place.h"

namespace Agent {
namespace {

// Longer ones cannot be right; crypt takes no longer phrase.
constexpr std::size_t kLongest = CRYPT_MAX_PASSPHRASE_SIZE - 1;

} // namespace

Authenticator::Authenticator(std::shared_ptr<Users const> users, Tovak::Clock& clock)
    : clock_(clock)
    , users_(std::move(users)) {
  TOVAK_ASSERT(users_->size() > 0, Tovak::Platform::getDebugHandler("OndraAgent", false),
               "nobody could ever call");
  if (RAND_bytes(key_.data(), static_cast<int>(key_.size())) != 1) std::abort(); // no randomness, no secrets
}

void Authenticator::usersAre(std::shared_ptr<Users const> users) {
  Hashing const hashing(hashing_); // nothing of the old ones is found out meanwhile
  std::shared_ptr<Users const> const before = std::exchange(users_, std::move(users));
  std::lock_guard<std::mutex> const hold(lock_);
  std::erase_if(verdicts_, [&](auto const& entry) {
    Verdict const& verdict = entry.second;
    return !verdict.isAccepted || !users_->hasSame(*before, verdict.name);
  });
}

grpc::Status Authenticator::check(Metadata const& metadata, std::string const& peer) {
  auto const one = [&](char const* key) -> std::string_view {
    auto const [first, last] = metadata.equal_range(key);
    bool const isSingle = first != last && std::next(first) == last;
    return isSingle ? std::string_view(first->second.data(), first->second.size()) : std::string_view();
  };
  grpc::Status const refused(grpc::StatusCode::UNAUTHENTICATED, "wrong username or password");
  std::string_view const name = one("username");
  std::string_view const password = one("password");
  if (name.empty())
    return {grpc::StatusCode::UNAUTHENTICATED, "the metadata 'username' and 'password' are required"};
  if (name.size() > kLongest || password.size() > kLongest || password.find('\0') != std::string_view::npos)
    return refused;

  Digest const asked = digest(name, password);
  Known verdict = known(asked);
  if (verdict == Known::No) {
    std::string const place = placeOf(peer);
    grpc::Status const tooMany(grpc::StatusCode::UNAVAILABLE, "too many wrong passwords; try again later");
    if (!mayGuess(place, name)) return tooMany; // the wait is for those who may
    Hashing const hold(hashing_, std::chrono::nanoseconds(patienceNs));
    if (!hold) return {grpc::StatusCode::UNAVAILABLE, "too many passwords at a time; try again later"};
    verdict = known(asked); // meanwhile another call may have found out
    if (verdict == Known::No) {
      if (!mayGuess(place, name)) return tooMany;
      verdict = found(hold, name, password, asked, place);
    }
  }
  return verdict == Known::Accepted ? grpc::Status::OK : refused;
}

Authenticator::Digest Authenticator::digest(std::string_view name, std::string_view password) const {
  std::string text = fmt::format("{}:{}{}", name.size(), name, password);
  Digest result{};
  unsigned size = 0;
  HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
       reinterpret_cast<unsigned char const*>(text.data()), text.size(), result.data(), &size);
  OPENSSL_cleanse(text.data(), text.size());
  return result;
}

Authenticator::Known Authenticator::known(Digest const& digest) {
  std::lock_guard<std::mutex> const hold(lock_);
  auto const found = verdicts_.find(digest);
  if (found == verdicts_.end()) return Known::No;
  if (found->second.untilNs <= clock_.monotonicNs()) {
    verdicts_.erase(found);
    return Known::No;
  }
  return found->second.isAccepted ? Known::Accepted : Known::Refused;
}

bool Authenticator::mayGuess(std::string const& place, std::string_view name) {
  std::lock_guard<std::mutex> const hold(lock_);
  return guesses_.mayGuess(place, name, clock_.monotonicNs());
}

Authenticator::Known Authenticator::found(Hashing const& hashing, std::string_view name,
                                          std::string_view password, Digest const& digest,
                                          std::string const& place) {
  TOVAK_ASSERT(hashing.owns_lock() && hashing.mutex() == &hashing_,
               Tovak::Platform::getDebugHandler("OndraAgent", false), "two passwords are hashed at a time");
  std::int64_t const begin = clock_.monotonicNs();
  bool const isAccepted = users_->accepts(name, password);
  std::int64_t const now = clock_.monotonicNs();
  std::lock_guard<std::mutex> const hold(lock_);
  if (!isAccepted) guesses_.guessed(place, name, now, now - begin);
  if (verdicts_.size() >= memory) {
    std::erase_if(verdicts_,
                  [&](auto const& entry) { return entry.second.untilNs <= now || !entry.second.isAccepted; });
  }
  if (verdicts_.size() < memory)
    verdicts_.insert_or_assign(
        digest, Verdict{isAccepted, now + (isAccepted ? acceptedNs : refusedNs), std::string(name)});
  return isAccepted ? Known::Accepted : Known::Refused;
}

} // namespace Agent
