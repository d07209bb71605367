// What a store holds, carried out on a model that has what the machine gives.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/store/ConfigRecord.h"

namespace Agent {

class SetRuns;

// Drives the scheduler, whose thread does not run yet, until it is done. Whatever the types or the machine
// refuse now is left out; the answer has a line for each.
[[nodiscard]] std::vector<std::string> restore(SetRuns& sets, ConfigMap const& map);

// Brings the machine's links to what is wanted of them, all together or, where it refuses that, each by
// itself. What is refused is wanted all the same; the answer has a line for each link.
[[nodiscard]] std::vector<std::string> carryLinks(SetRuns& sets, std::set<std::string> const& links);

// Carries out a request as a provisional change has it, that leads back. The error is a text.
[[nodiscard]] Kstd::Result<void, std::string> goBack(SetRuns& sets, std::string const& request);

} // namespace Agent
