// A table from texts to positions.
#include "Kel/TextIndex.h"

#include <absl/container/flat_hash_map.h>

#include <functional>
#include <utility>

#include "Kel/Allocator.h"

namespace Kel::Impl {

struct TextIndex::Table {
  absl::flat_hash_map<std::string_view, std::size_t, absl::Hash<std::string_view>, std::equal_to<>,
                      EndingAllocator<std::pair<std::string_view const, std::size_t>>>
      positions;
};

TextIndex::TextIndex() : table_(std::make_unique<Table>()) {}
TextIndex::~TextIndex() = default;

std::size_t TextIndex::position(std::string_view text) const {
  auto const found = table_->positions.find(text);
  return found == table_->positions.end() ? kNowhere : found->second;
}

void TextIndex::positionIs(std::string_view text, std::size_t position) {
  table_->positions[text] = position;
}

void TextIndex::del(std::string_view text) { table_->positions.erase(text); }

} // namespace Kel::Impl
