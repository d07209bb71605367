// The client's commands, one function each: arguments after the command's name in, exit code out. They print
// to standard output, and what went wrong to standard error.
#pragma once

#include <string>
#include <vector>

namespace Agent {

[[nodiscard]] int watchCommand(std::vector<std::string> const& arguments);
[[nodiscard]] int getCommand(std::vector<std::string> const& arguments);
[[nodiscard]] int setCommand(std::vector<std::string> const& arguments);
[[nodiscard]] int topCommand(std::vector<std::string> const& arguments);
[[nodiscard]] int capabilitiesCommand(std::vector<std::string> const& arguments);

} // namespace Agent
