// Agent::WireJson: values as the library encodes them, written as JSON. Nothing is parsed into messages but
// what is rare.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <absl/container/node_hash_map.h>

#include "agent/paths/TypeTree.h"

namespace Ondra {
class Path;
} // namespace Ondra

namespace Agent {

// What is published of the leaves that have been met is remembered by the bytes of their paths. Scheduler
// thread.
class WireJson {
public:
  explicit WireJson(bool isIetf) : isIetf_(isIetf) {}

  [[nodiscard]] bool isIetf() const noexcept { return isIetf_; }
  // The updates that follow lie below that internal path.
  void prefixIs(Ondra::Path const& prefix);
  // The JSON of a TypedValue. `path`: of its update. Both as bytes; valid until the next call.
  [[nodiscard]] std::string_view text(std::string_view path, std::string_view value);

private:
  struct Leaf {
    std::string path;
    LeafInfo const* info;
    bool isPlain; // texts and numbers are what they look like
    bool isNumberText;
  };
  struct Place {
    std::vector<Leaf> leaves;
    std::size_t next = 0; // they come in the same order each time
  };
  [[nodiscard]] Leaf const& leafAt(std::string_view path);

  bool const isIetf_;
  std::vector<TypeNode> nodes_; // of the prefix, as far as it is known
  bool isKnown_ = false;        // all of it is
  Place* place_ = nullptr;      // of the last of these
  Place unknown_;
  absl::node_hash_map<Kel::TypeDesc const*, Place> places_; // null: the root
  std::string text_;
};

} // namespace Agent
