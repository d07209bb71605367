// What the schema library complains of: its words, and where.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

struct ly_ctx;
struct lyd_node;

namespace Agent {

// As the schema library writes it.
[[nodiscard]] std::string placeOf(lyd_node const& node);

struct Complaint {
  std::string words;
  std::string place;    // in the data, or in the schema when it is of the modules; empty: it has none
  std::size_t line = 0; // of the text that was read, from 1; 0: of none

  // From the two texts that the library gives.
  [[nodiscard]] static Complaint of(char const* words, char const* where);
  // "PLACE: WORDS".
  [[nodiscard]] std::string text() const;
  // "FILE:LINE: PLACE: WORDS", as compilers say it.
  [[nodiscard]] std::string textIn(std::string_view file) const;
};

// The last one on this thread. Of what is missing the library names the schema alone: where `data` is given,
// the siblings at the top, it is sought in there.
[[nodiscard]] Complaint lastComplaint(ly_ctx const& context, lyd_node const* data = nullptr);

} // namespace Agent
