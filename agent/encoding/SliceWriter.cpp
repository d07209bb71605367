// The first block is a small one, the others are full; a block becomes a slice when it is full or the bytes
// are taken.
#include "agent/encoding/SliceWriter.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Agent {

SliceWriter& SliceWriter::operator+=(std::string_view bytes) {
  while (!bytes.empty()) {
    if (used_ == block_.size()) {
      flush();
      block_ = ResponseBlock(slices_.empty() ? ResponseBlock::kSmallBytes : ResponseBlock::kBytes);
    }
    std::size_t const part = std::min(bytes.size(), block_.size() - used_);
    std::memcpy(block_.data() + used_, bytes.data(), part);
    used_ += part;
    bytes.remove_prefix(part);
  }
  return *this;
}

void SliceWriter::flush() {
  if (used_ == 0) return;
  slices_.push_back(std::move(block_).slice({block_.data(), used_}));
  block_ = ResponseBlock();
  written_ += std::exchange(used_, 0);
}

std::vector<grpc::Slice> SliceWriter::take() {
  flush();
  written_ = 0;
  return std::exchange(slices_, {});
}

} // namespace Agent
