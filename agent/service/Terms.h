// What the files of the options say about who may call and do what: all that is read at the start, and anew
// when the agent is told to.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Kstd/Result.h"
#include "agent/access/AccessRules.h"
#include "agent/service/Tls.h"
#include "agent/service/Users.h"

namespace Agent {

struct ServeOptions;

// Immutable once it is shared.
struct Terms {
  using OrError = Kstd::Result<Terms, std::string>;
  // The error names the first file that is wrong, and how. The types must be declared.
  [[nodiscard]] static OrError read(ServeOptions const& options);

  // "certificate, 3 users, 12 access rules"
  [[nodiscard]] std::string text() const;

  std::optional<TlsKeys> keys = std::nullopt;          // none: plaintext
  std::shared_ptr<ClientTrust const> trust = nullptr;  // null: clients need no certificate
  std::shared_ptr<Users const> users = nullptr;        // null: clients need no password
  std::shared_ptr<AccessRules const> access = nullptr; // null: everybody may do everything
};

} // namespace Agent
