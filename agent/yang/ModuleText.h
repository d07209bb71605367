// What a file of YANG says of itself before anybody compiles it: its name, its revisions, what it imports and
// which identities it adds to others. Pure: any thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

struct ModuleText {
  struct Identity {
    std::string name;
    std::vector<std::string> bases; // as written, with their prefix or without
  };

  std::string name; // empty: this is no module
  bool isSubmodule = false;
  std::string revision; // the newest; empty: it names none
  std::string prefix;
  std::vector<std::pair<std::string, std::string>> imports; // prefix, module
  std::vector<Identity> identities;

  // Reads what the statements at the top say. A text that breaks off gives what it said until then: the
  // compiler will find out.
  [[nodiscard]] static ModuleText of(std::string_view text);
};

} // namespace Agent
