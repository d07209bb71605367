// Small objects, as real trees have them: the agent's own /openconfig/interfaces/interface[name=...] as a
// client makes them, with a name, a description and an MTU.
//
// An interface has 11 leaves: its key, 5 of its configuration, 1 of its state, 2 and 2 of its hold times.
// They lie in 7 objects, of which 5 have leaves and send a response each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <fmt/format.h>

#include "agent/model/Interface.h"
#include "agent/model/Tree.h"

namespace Bench {

inline constexpr std::size_t kLeavesPerInterface = 11;
inline constexpr std::size_t kObjectsPerInterface = 7;
inline constexpr std::size_t kResponsesPerInterface = 5;
inline constexpr std::int64_t kTime = 1'700'000'000'000'000'000;
inline constexpr char const* kDescription = "to the second spine";

inline std::string interfaceName(std::size_t i) { return fmt::format("ethernet{:06}", i); }

// So many leaves of them.
inline void makeInterfaces(Agent::Tree const& tree, std::size_t leaves) {
  for (std::size_t i = 0; i < leaves / kLeavesPerInterface; ++i) {
    auto const made = tree.interfaces->entryIs(&Agent::Interfaces::interface, Kel::String(interfaceName(i)));
    made->config->leafIs(&Agent::InterfaceConfig::description, Kel::String(kDescription));
    made->config->leafIs(&Agent::InterfaceConfig::mtu, std::uint16_t{9000});
  }
}

} // namespace Bench
