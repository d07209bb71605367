// Reading users; hashing takes as long for names that are not there.
#include "agent/service/Users.h"

#include <crypt.h>
#include <fmt/format.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

namespace Agent {
namespace {

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

// What of a hash says how it is computed and at which cost: all before the salt, "$6$rounds=5000", "$y$j9T",
// "$2b$12".
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

bool Users::hasSame(Users const& others, std::string_view name) const {
  auto const own = hashes_.find(name);
  auto const other = others.hashes_.find(name);
  return own != hashes_.end() && other != others.hashes_.end() && own->second == other->second;
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

} // namespace Agent
