// `ondra-agent paths`: what a set of modules would be served as.
#pragma once

#include <string>
#include <vector>

namespace Agent {

// The process's exit code.
int pathsCommand(std::vector<std::string> const& arguments);

} // namespace Agent
