// The parser, watched while it works: for depth, and for members that are there twice.
#include "agent/encoding/JsonText.h"

#include <stdexcept>
#include <vector>

#include <absl/container/flat_hash_set.h>
#include <fmt/format.h>

namespace Agent {
namespace {

using nlohmann::json;

// Sees every part of the document as it is parsed. The parser itself keeps the last of two equal members, in
// silence.
class Watcher {
public:
  // Raises std::invalid_argument for what is refused.
  bool operator()(int, json::parse_event_t event, json& parsed) {
    switch (event) {
    case json::parse_event_t::object_start:
    case json::parse_event_t::array_start:
      if (members_.size() == kMaxJsonDepth)
        throw std::invalid_argument(fmt::format("more than {} levels of nesting", kMaxJsonDepth));
      members_.emplace_back();
      break;
    case json::parse_event_t::object_end:
    case json::parse_event_t::array_end: members_.pop_back(); break;
    case json::parse_event_t::key:
      if (!members_.back().insert(parsed.get_ref<std::string const&>()).second)
        throw std::invalid_argument(
            fmt::format("member '{}' is there twice", parsed.get_ref<std::string const&>()));
      break;
    case json::parse_event_t::value: break;
    }
    return true;
  }

private:
  std::vector<absl::flat_hash_set<std::string>> members_; // of the objects that are open; of arrays none
};

} // namespace

Kstd::Result<json, std::string> jsonOf(std::string_view text) {
  try {
    Watcher watcher;
    return json::parse(text, [&watcher](int depth, json::parse_event_t event, json& parsed) {
      return watcher(depth, event, parsed);
    });
  } catch (json::exception const& error) {
    return Kstd::Err(fmt::format("no JSON: {}", error.what()));
  } catch (std::invalid_argument const& error) {
    return Kstd::Err(fmt::format("JSON is refused: {}", error.what()));
  }
}

} // namespace Agent
