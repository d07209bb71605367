// The users that may call the agent, with the hashes of their passwords.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Kstd/Result.h"

namespace Agent {

// Names with the crypt(5) hashes of their passwords. An immutable value.
class Users {
public:
  // Lines "name:hash", of which further fields after another ':' are left alone; empty lines and those that
  // begin with '#' say nothing. Hashes of methods that are weak by today's measure are refused. Errors name
  // the line, never its hash.
  [[nodiscard]] static Kstd::Result<Users, std::string> parse(std::string_view text);
  [[nodiscard]] static Kstd::Result<Users, std::string> fromFile(std::string const& path);

  [[nodiscard]] std::size_t size() const noexcept { return hashes_.size(); }
  // Whether a user is there, with the hash that he has among the others.
  [[nodiscard]] bool hasSame(Users const& others, std::string_view name) const;
  // Whether that is the user's password. Takes as long for every name, known or not: one hash of each kind
  // and cost that users have is computed, milliseconds to a second. Any thread.
  [[nodiscard]] bool accepts(std::string_view name, std::string_view password) const;

private:
  std::map<std::string, std::string, std::less<>> hashes_;
  std::vector<std::string> kinds_; // one hash of each kind and cost
};

} // namespace Agent
