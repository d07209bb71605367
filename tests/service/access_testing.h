// Access rules in tests: random ones, and a second reading of them, rule by rule, to compare with.
#pragma once

#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "agent/access/AccessRules.h"
#include "agent/service/Gate.h"

namespace ServiceTesting {

struct TestRule {
  std::string principal; // "group NAME" or "user NAME"
  std::string path;
  bool writes;
  bool permits;
};

// Of paths around the interfaces of the law tests.
[[nodiscard]] std::vector<TestRule> randomRules(std::mt19937& random, std::size_t count,
                                                std::vector<std::string> const& principals);
[[nodiscard]] std::string accessFile(std::vector<TestRule> const& rules, std::string_view groups = "{}");
[[nodiscard]] Agent::AccessRules accessRules(std::string const& file);
// Lets everybody in, and asks nobody for anything.
[[nodiscard]] std::shared_ptr<Agent::Gate> gateOf(std::shared_ptr<Agent::AccessRules const> rules);

// Whether the strongest rule of these principals that matches the path, or one above it, permits it.
[[nodiscard]] bool isPermitted(std::vector<TestRule> const& rules, std::vector<std::string> const& principals,
                               bool writes, std::string_view path);

} // namespace ServiceTesting
