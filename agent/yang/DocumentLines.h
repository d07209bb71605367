// In which line of an instance document a node stands that was read from it: the schema library keeps none.
// For complaints; the document is gone through once for each question. Pure: any thread.
#pragma once

#include <cstddef>
#include <string_view>

struct lyd_node;

namespace Agent {

// From 1: where its name stands, or where an entry or an instance of a leaf-list begins. 0 where that cannot
// be told. The tree is as it was read from the text, XML or else JSON.
[[nodiscard]] std::size_t lineOf(lyd_node const& node, std::string_view document, bool isXml);

} // namespace Agent
