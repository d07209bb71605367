// Agent::ConfigRules: what a configuration is held to as a whole, whoever changes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <absl/functional/any_invocable.h>

#include "agent/store/ConfigRecord.h"

namespace Agent {

// Changes come one at a time: each is kept or taken back before the next one. Scheduler thread; what takes
// long is done on another one. What a change has of models without rules is passed over.
class ConfigRules {
public:
  struct Verdict {
    std::string refusal;           // empty: the configuration holds with it
    std::vector<std::string> gone; // places that go with it, since what they stand under no longer does
  };
  // On any thread.
  using Told = absl::AnyInvocable<void(Verdict verdict)>;
  enum class How : std::uint8_t {
    Checked,
    AsItIs, // it has held before
  };

  virtual ~ConfigRules() = default;
  // Lays a change over the configuration. What is refused has been taken back.
  virtual void changeIs(ConfigChange change, How how, Told told) = 0;
  // What the last change, which was not refused, has become.
  virtual void keep() = 0;
  virtual void takeBack() = 0;
};

} // namespace Agent
