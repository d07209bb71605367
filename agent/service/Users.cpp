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

#include "Tovak/Assert.h"
#include "Tovak/Clock.h"
#include "Tovak/DebugHandler.h"
#include "agent/service/Place.h"

namespace Agent {
namespace {

// Longer ones cannot be right; crypt takes no longer phrase.
constexpr std::size_t kLongest = CRYPT_MAX_PASSPHRASE_SIZE - 1;

std::string hashOf(std::string const& password, char const* setting) {
  auto const data = std::make_unique<crypt_data>();
  std::memset(data.get(), 0, sizeof(crypt_data));
  char const* const hash = ::crypt_r(password.c_str(), setting, data.get());
  std::string result = hash == nullptr ? "" : hash;
  OPENSSL_cleanse(data.get(), sizeof(crypt_data));
  return result;
}

Kstd::Result<void, std::string> check(std::string_view name, std::string const& hash) {
  if (name.empty()) return Kstd::Err(std::string("no name before ':'"));
  switch (::crypt_checksalt(hash.c_str())) {
  case CRYPT_SALT_OK: return {};
  case CRYPT_SALT_METHOD_LEGACY:
  case CRYPT_SALT_TOO_CHEAP: return Kstd::Err(fmt::format("the hash of '{}' is of a weak kind", name));
  default: return Kstd::Err(fmt::format("what follows '{}:' is not a crypt hash", name));
  }
}

// What of a hash says how it is computed and at which cost: all before the salt, "$6$rounds=5000", "$y$j9T", "$2b$12".
std::string_view kindOf(std::string_view hash) {
  std::string_view const settings = hash.substr(0, hash.rfind('$'));
  if (hash.starts_with("$2")) return settings;            // whose salt and hash are one field
  if (hash.starts_with("$7$")) return hash.substr(0, 14); // whose cost, of 11 letters, and salt are one field
  return settings.substr(0, settings.rfind('$'));
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
    if (auto const checked = check(name, hash); !checked)
      return Kstd::Err(fmt::format("line {}: {}", number, checked.error()));
    if (!users.hashes_.emplace(name, hash).second)
      return Kstd::Err(fmt::format("line {}: '{}' is there already", number, name));
    bool const isNew = std::ranges::none_of(
        users.kinds_, [&hash](std::string const& kind) { return kindOf(kind) == kindOf(hash); });
    if (isNew) users.kinds_.push_back(hash);
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
  std::string const phrase(password);
  auto const user = hashes_.find(name);
  bool isRight = false;
  for (std::string const& kind : kinds_) {
    bool const isOwn = user != hashes_.end() && kindOf(user->second) == kindOf(kind);
    std::string const& expected = isOwn ? user->second : kind;
    std::string const hash = hashOf(phrase, expected.c_str());
    bool const isSame =
        hash.size() == expected.size() && CRYPTO_memcmp(hash.data(), expected.data(), hash.size()) == 0;
    isRight = isRight || (isOwn && isSame);
  }
  return isRight;
}

Authenticator::Authenticator(Users users, Tovak::Clock& clock) : users_(std::move(users)), clock_(clock) {
  TOVAK_ASSERT(users_.size() > 0, Tovak::Platform::getDebugHandler("OndraAgent", false),
               "nobody could ever call");
  if (RAND_bytes(key_.data(), static_cast<int>(key_.size())) != 1) std::abort(); // no randomness, no secrets
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
  bool const isAccepted = users_.accepts(name, password);
  std::int64_t const now = clock_.monotonicNs();
  std::lock_guard<std::mutex> const hold(lock_);
  if (!isAccepted) guesses_.guessed(place, name, now, now - begin);
  if (verdicts_.size() >= memory) {
    std::erase_if(verdicts_,
                  [&](auto const& entry) { return entry.second.untilNs <= now || !entry.second.isAccepted; });
  }
  if (verdicts_.size() < memory)
    verdicts_.insert_or_assign(digest, Verdict{isAccepted, now + (isAccepted ? acceptedNs : refusedNs)});
  return isAccepted ? Known::Accepted : Known::Refused;
}

} // namespace Agent
