// One file after the other; none of them counts unless all are right.
#include "agent/service/Terms.h"

#include <fmt/format.h>

#include <utility>
#include <vector>

#include "agent/service/ServeOptions.h"

namespace Agent {

Terms::OrError Terms::read(ServeOptions const& options) {
  Terms terms;
  if (options.isSecure) {
    auto keys = TlsKeys::of(options.tls);
    if (!keys) return Kstd::Err(keys.error());
    terms.keys = std::move(*keys);
  }
  if (!options.tls.clientCa.empty()) {
    auto trust = ClientTrust::of(options.tls);
    if (!trust) return Kstd::Err(trust.error());
    terms.trust = std::move(*trust);
  }
  if (!options.usersFile.empty()) {
    auto users = Users::fromFile(options.usersFile);
    if (!users) return Kstd::Err(users.error());
    terms.users = std::make_shared<Users const>(std::move(*users));
  }
  if (!options.accessFile.empty()) {
    auto access = AccessRules::fromFile(options.accessFile);
    if (!access) return Kstd::Err(access.error());
    terms.access = std::make_shared<AccessRules const>(std::move(*access));
  }
  return terms;
}

std::string Terms::text() const {
  std::vector<std::string> parts;
  if (keys) parts.emplace_back("certificate");
  if (trust) parts.emplace_back("authorities of clients");
  if (trust && trust->lists() > 0) parts.push_back(fmt::format("{} revocation lists", trust->lists()));
  if (users) parts.push_back(fmt::format("{} users", users->size()));
  if (access) parts.push_back(fmt::format("{} access rules", access->rules().size()));
  return parts.empty() ? "nothing" : fmt::format("{}", fmt::join(parts, ", "));
}

} // namespace Agent
