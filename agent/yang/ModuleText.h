// What a file of YANG says of itself before anybody compiles it: its name, its revisions, what it imports and
// which identities it adds to others. Pure: any thread.
#pragma once

#include <cstddef>
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

// The line, from 1, of the statement that a path in the schema leads to, or of the last one above it that is
// found: "/a:b/c", "/a:{augment='/b'}/c", "/a:b/{uses='g'}/c". 0: of none.
[[nodiscard]] std::size_t lineOf(std::string_view text, std::string_view path);

} // namespace Agent
