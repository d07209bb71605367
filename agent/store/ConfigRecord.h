// What a store keeps of a configuration, and what is written down of its changes. Places and values are bytes
// here: what they mean is for others to know. Pure: any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

// Values by their places. What lies at and below a place is what begins with its bytes. An empty value is a
// mark: it says that there is nothing at the place, whoever else may think so.
using ConfigMap = std::map<std::string, std::string, std::less<>>;

struct ConfigChange {
  std::vector<std::string> gone; // what lies at and below these goes, first; a mark at such a place stays
  std::vector<std::pair<std::string, std::optional<std::string>>> values; // none: the place alone goes

  [[nodiscard]] bool isEmpty() const noexcept { return gone.empty() && values.empty(); }
  // Changes the map; the answer changes it back.
  ConfigChange applyTo(ConfigMap& map) &&;
};

struct ConfigRecord {
  enum class Kind : std::uint8_t {
    Whole = 'w',       // `change` is all that there is
    Change = 'c',      // holds at once
    Provisional = 'p', // holds once it is confirmed, by the very next record
    Confirm = 'k',     // the one before, and then this
  };
  Kind kind = Kind::Change;
  std::uint64_t number = 0; // of Sets, since the store was made
  ConfigChange change = {};

  void appendTo(std::string& bytes) const;
  // Takes one off the front; none when the bytes are no record.
  [[nodiscard]] static std::optional<ConfigRecord> takeFrom(std::string_view& bytes);
};

// Records that are written together: length, checksum, records. Whole or not at all.
[[nodiscard]] std::string frameOf(std::string_view records);
struct ConfigFrame {
  std::string_view records;
  std::size_t size; // of all of it
};
// None when the bytes do not begin with a frame that is whole.
[[nodiscard]] std::optional<ConfigFrame> frameAt(std::string_view bytes);
// Where one that is not whole would end, as far as its length says so; beyond the end of the bytes when it
// was cut off.
[[nodiscard]] std::size_t frameEnd(std::string_view bytes);

} // namespace Agent
