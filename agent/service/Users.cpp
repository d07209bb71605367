#include "agent/service/Users.h"

#include <crypt.h>
#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include "Tovak/Clock.h"

namespace Agent {
namespace {

// Longer ones cannot be right; crypt takes no longer phrase.
constexpr std::size_t kLongest = CRYPT_MAX_PASSPHRASE_SIZE - 1;

// What to hash with for a name that is not known and no user is there to copy from.
constexpr char const* kAnySetting = "$6$nobodynobodynobo$";

std::string hashOf(std::string const& password, char const* setting) {
  auto const data = std::make_unique<crypt_data>();
  std::memset(data.get(), 0, sizeof(crypt_data));
  char const* const hash = ::crypt_r(password.c_str(), setting, data.get());
  std::string result = hash == nullptr ? "" : hash;
  OPENSSL_cleanse(data.get(), sizeof(crypt_data));
  return result;
}

std::string faultOf(std::string_view name, std::string const& hash) {
  if (name.empty()) return "no name before ':'";
  switch (::crypt_checksalt(hash.c_str())) {
  case CRYPT_SALT_OK: return {};
  case CRYPT_SALT_METHOD_LEGACY:
  case CRYPT_SALT_TOO_CHEAP: return fmt::format("the hash of '{}' is of a weak kind", name);
  default: return fmt::format("what follows '{}:' is not a crypt hash", name);
  }
}

} // namespace

Kstd::Result<Users, std::string> Users::parse(std::string_view text) {
  Users users;
  for (std::size_t number = 1; !text.empty(); ++number) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.starts_with('#')) continue;
    std::size_t const colon = line.find(':');
    if (colon == std::string_view::npos)
      return Kstd::Err(fmt::format("line {}: not of the form NAME:HASH", number));
    std::string_view const name = line.substr(0, colon);
    std::string_view const rest = line.substr(colon + 1);
    std::string const hash(rest.substr(0, rest.find(':')));
    std::string fault = faultOf(name, hash);
    if (fault.empty() && !users.hashes_.emplace(name, hash).second)
      fault = fmt::format("'{}' is there already", name);
    if (!fault.empty()) return Kstd::Err(fmt::format("line {}: {}", number, fault));
  }
  if (users.hashes_.empty()) return Kstd::Err(std::string("no user"));
  return users;
}

Kstd::Result<Users, std::string> Users::fromFile(std::string const& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) return Kstd::Err(fmt::format("cannot read the users file {}", path));
  auto users = parse(text.str());
  if (!users) return Kstd::Err(fmt::format("{}: {}", path, users.error()));
  return users;
}

bool Users::accepts(std::string_view name, std::string_view password) const {
  auto const user = hashes_.find(name);
  // An unknown name takes as long as a known one.
  char const* const setting = user != hashes_.end() ? user->second.c_str()
                              : hashes_.empty()     ? kAnySetting
                                                    : hashes_.begin()->second.c_str();
  std::string const hash = hashOf(std::string(password), setting);
  return user != hashes_.end() && hash.size() == user->second.size() &&
         CRYPTO_memcmp(hash.data(), user->second.data(), hash.size()) == 0;
}

Authenticator::Authenticator(Users users, Tovak::Clock& clock) : users_(std::move(users)), clock_(clock) {
  if (RAND_bytes(key_.data(), static_cast<int>(key_.size())) != 1) std::abort(); // no randomness, no secrets
}

grpc::Status Authenticator::check(Metadata const& metadata) {
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
    std::unique_lock const hold(hashing_, std::chrono::nanoseconds(patienceNs));
    if (!hold) return {grpc::StatusCode::UNAVAILABLE, "too many passwords at a time; try again later"};
    verdict = known(asked); // meanwhile another call may have found out
    if (verdict == Known::No) {
      if (!mayGuess()) return {grpc::StatusCode::UNAVAILABLE, "too many wrong passwords; try again later"};
      std::int64_t const begin = clock_.monotonicNs();
      bool const isAccepted = users_.accepts(name, password);
      remember(asked, isAccepted, clock_.monotonicNs() - begin);
      verdict = isAccepted ? Known::Accepted : Known::Refused;
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

void Authenticator::remember(Digest const& digest, bool isAccepted, std::int64_t tookNs) {
  std::lock_guard<std::mutex> const hold(lock_);
  std::int64_t const now = clock_.monotonicNs();
  // A right one was no guess. A wrong one that was costly to find out is paid for longer.
  guessesUntilNs_ += isAccepted ? -guessNs : std::max<std::int64_t>(0, costFactor * tookNs - guessNs);
  if (verdicts_.size() >= memory) {
    std::erase_if(verdicts_,
                  [&](auto const& entry) { return entry.second.untilNs <= now || !entry.second.isAccepted; });
  }
  if (verdicts_.size() < memory)
    verdicts_.insert_or_assign(digest, Verdict{isAccepted, now + (isAccepted ? acceptedNs : refusedNs)});
}

bool Authenticator::mayGuess() {
  std::lock_guard<std::mutex> const hold(lock_);
  std::int64_t const now = clock_.monotonicNs();
  if (guessesUntilNs_ > now + (guessBurst - 1) * guessNs) return false;
  guessesUntilNs_ = std::max(guessesUntilNs_, now) + guessNs;
  return true;
}

} // namespace Agent
