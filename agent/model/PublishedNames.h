// The names of what the published models have beside what this agent serves: whoever asks for one of these is
// told that it is not offered, and not that there is no such thing. Of what is served nowhere, the top-level
// containers alone are known. docs/decisions.md: "What does the agent know of models that it does not serve?"
#pragma once

#include <span>
#include <string_view>

namespace Agent {

struct PublishedNames {
  std::string_view path;   // of a container or entry that is served, without keys; "/" for the root
  std::string_view module; // whose nodes they are
  std::string_view names;  // with blanks between them
};

// For the process; any thread.
[[nodiscard]] std::span<PublishedNames const> publishedNames();

} // namespace Agent
