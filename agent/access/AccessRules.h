// Agent::AccessRules: who may read and write what, as a file says it. docs/serving.md: "Access".
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Kstd/Result.h"
#include "agent/access/RuleTree.h"

namespace Agent {

enum class AccessMode : std::uint8_t { Read, Write };

struct AccessRule {
  std::string principal; // a user, or a group; "*": everybody
  bool isGroup = false;
  std::shared_ptr<Pattern const> path;
  AccessMode mode = AccessMode::Read;
  bool permits = false;
  std::size_t line = 0; // in the file
  std::string id = {};  // as the file names it; may be empty

  [[nodiscard]] std::string text() const;
};

// What one caller may do. Null: everything.
struct Rights {
  std::shared_ptr<RuleTree const> reads = nullptr;
  std::shared_ptr<RuleTree const> writes = nullptr;
};

// Immutable once made; any thread. docs/decisions.md: "Which access rule counts?"
class AccessRules {
public:
  using OrError = Kstd::Result<AccessRules, std::string>;
  // JSON: {"groups": {NAME: [USER...]}, "rules": [{"user" or "group", "path", "mode", "action"}...]}. Errors
  // name the line. The types must be declared: paths are checked against them.
  [[nodiscard]] static OrError parse(std::string_view text);
  [[nodiscard]] static OrError fromFile(std::string const& path);

  // Never null. Rules that mean the same are one tree, whoever's they are; callers that the file does not
  // name have everybody's.
  [[nodiscard]] Rights rightsOf(std::string_view user) const;
  // Takes over the trees that mean what they meant.
  void keepFrom(AccessRules const& before);

  [[nodiscard]] std::vector<AccessRule> const& rules() const noexcept { return rules_; }
  [[nodiscard]] bool concerns(AccessRule const& rule, std::string_view user) const;
  // Those that match a path or what is above it, the strongest first.
  [[nodiscard]] std::vector<AccessRule const*> matching(std::string_view user, AccessMode mode,
                                                        PathView const& path) const;

private:
  AccessRules() = default;
  struct Meaning { // of a caller's rules: keys of the trees
    std::string reads;
    std::string writes;
  };
  void treesMake();
  [[nodiscard]] Meaning treesMake(std::string_view user);

  std::map<std::string, std::set<std::string, std::less<>>, std::less<>> groups_; // and their users
  std::vector<AccessRule> rules_;
  std::map<std::string, Meaning, std::less<>> meanings_; // for users
  Meaning others_;
  std::map<std::string, std::shared_ptr<RuleTree const>> trees_;
};

// Why the first of two rules that match a path is the stronger one: "longer", "explicit earlier", "of a
// user", "denies"; empty when it is not.
[[nodiscard]] std::string_view strongerBy(AccessRule const& rule, AccessRule const& other);

} // namespace Agent
