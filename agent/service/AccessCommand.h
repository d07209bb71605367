// `ondra-agent access check`: what the rules of a file say, and why.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Kstd/Result.h"

namespace Agent {

// Declares the types of modules before paths are looked up; the error is a text.
using ModulesIs = std::function<Kstd::Result<void, std::string>(std::vector<std::string> const& folders,
                                                                std::vector<std::string> const& modules)>;

// With the arguments behind "access". Ends with `ExitCode::ok` where it is permitted, `failed` where it is
// not.
[[nodiscard]] int accessCommand(std::vector<std::string> const& arguments, ModulesIs const& modulesIs);

} // namespace Agent
