// Texts without anything to escape are copied as they are, which is found out eight bytes at a time.
#include "agent/encoding/JsonBuffer.h"

#include <algorithm>
#include <string>
#include <utility>

#include "Kstd/Utf8.h"
#include "agent/encoding/LeafEncoding.h"

namespace Agent {
namespace {

constexpr std::size_t kSettledBytes = ResponseBlock::kBytes / 4;

} // namespace

bool JsonBuffer::putString(std::string_view text) {
  if (isPlainJsonText(text)) [[likely]] {
    char* at = room(text.size() + 2);
    *at++ = '"';
    if (!text.empty()) std::memcpy(at, text.data(), text.size());
    at += text.size();
    *at++ = '"';
    at_ = at;
    return true;
  }
  if (!Kstd::isUtf8(text)) return false;
  std::string escaped;
  appendJsonString(escaped, text);
  put(escaped);
  return true;
}

void JsonBuffer::settle() {
  if (used() < kSettledBytes) return;
  settled_ += rest().substr(0, used() - 1);
  begin_[0] = last();
  at_ = begin_.get() + 1;
}

std::vector<grpc::Slice> JsonBuffer::take() {
  settled_ += rest();
  at_ = begin_.get();
  return settled_.take();
}

void JsonBuffer::grow(std::size_t size) {
  std::size_t const kept = used();
  std::size_t const capacity = std::max(2 * (kept + size), 2 * kSettledBytes);
  auto larger = std::make_unique_for_overwrite<char[]>(capacity);
  if (kept > 0) std::memcpy(larger.get(), begin_.get(), kept);
  begin_ = std::move(larger);
  at_ = begin_.get() + kept;
  end_ = begin_.get() + capacity;
}

} // namespace Agent
