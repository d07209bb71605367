// Taking the bytes of a path apart into what is shared and what is not.
#include "Ondra/WirePrefix.h"

#include <limits>
#include <string>

namespace Ondra {

// Of a path with more values than a frame can number, or of one that is too large, all is frame: it is right,
// and shared with none. Most paths have the frame of the one before.
WirePrefix::WirePrefix(std::string_view bytes, std::span<Value const> values) {
  static auto& last = *new WirePrefix();
  if (values.size() > std::numeric_limits<std::uint8_t>::max() ||
      bytes.size() > std::numeric_limits<std::uint32_t>::max() / 2)
    values = {};
  if (!last.frames(bytes, values)) last.frame_ = makeFrame(bytes, values);
  frame_ = last.frame_;
  if (values.size() == 1) [[likely]] {
    values_ = WireValues(bytes.substr(values[0].at, values[0].length));
    return;
  }
  std::string texts;
  for (auto const& [at, length] : values)
    texts.append(bytes.substr(at, length));
  values_ = WireValues(texts);
}

bool WirePrefix::frames(std::string_view bytes, std::span<Value const> values) const noexcept {
  if (!isMade() || gapCount(frame_.view()) != values.size()) return false;
  std::string_view frame = frame_.view();
  for (std::size_t i = values.size(); i-- > 0;) {
    auto const& [at, length] = values[i];
    Gap const gap = gapOf(frame, i);
    if (gap.length != length || frame.substr(gap.at) != bytes.substr(at + length)) return false;
    frame = frame.substr(0, gap.at);
    bytes = bytes.substr(0, at);
  }
  return frame.substr(headSize(values.size())) == bytes;
}

Kel::Bytes WirePrefix::makeFrame(std::string_view bytes, std::span<Value const> values) {
  std::string frame(headSize(values.size()), '\0');
  frame[0] = static_cast<char>(values.size());
  std::size_t from = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    auto const& [at, length] = values[i];
    frame.append(bytes.substr(from, at - from));
    from = at + length;
    Gap const gap{static_cast<std::uint32_t>(frame.size()), static_cast<std::uint32_t>(length)};
    std::memcpy(frame.data() + gapPlace(i), &gap, sizeof gap);
  }
  frame.append(bytes.substr(from));
  return Kel::Bytes::dedup(frame);
}

} // namespace Ondra
