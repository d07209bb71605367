// Numbers as in protobuf, seven bits a byte; the checksum is CRC-32C (RFC 3720, B.4).
#include "agent/store/ConfigRecord.h"

#include <algorithm>
#include <array>

namespace Agent {
namespace {

constexpr std::size_t kFrameHead = 8; // length and checksum, the low byte first

constexpr std::array<std::uint32_t, 256> kCrcTable = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t rest = byte;
    for (int bit = 0; bit < 8; ++bit)
      rest = (rest >> 1) ^ ((rest & 1) != 0 ? 0x82f63b78U : 0U);
    table[byte] = rest;
  }
  return table;
}();

// Of the length and what it is the length of.
std::uint32_t crcOf(std::string_view length, std::string_view records) {
  std::uint32_t crc = ~0U;
  for (std::string_view const bytes : {length, records})
    for (char const byte : bytes)
      crc = (crc >> 8) ^ kCrcTable[(crc ^ static_cast<unsigned char>(byte)) & 0xff];
  return ~crc;
}

void appendFixed(std::string& to, std::uint32_t number) {
  for (int i = 0; i < 4; ++i, number >>= 8)
    to += static_cast<char>(number & 0xff);
}
std::uint32_t fixedAt(std::string_view bytes, std::size_t at) {
  std::uint32_t number = 0;
  for (std::size_t i = 4; i-- > 0;)
    number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
  return number;
}

void appendNumber(std::string& to, std::uint64_t number) {
  for (; number > 0x7f; number >>= 7)
    to += static_cast<char>(number | 0x80);
  to += static_cast<char>(number);
}
bool takeNumber(std::string_view& from, std::uint64_t& number) {
  number = 0;
  for (unsigned shift = 0; shift < 64 && !from.empty(); shift += 7) {
    auto const byte = static_cast<unsigned char>(from.front());
    from.remove_prefix(1);
    number |= static_cast<std::uint64_t>(byte & 0x7f) << shift;
    if (byte < 0x80) return true;
  }
  return false;
}

void appendText(std::string& to, std::string_view text) {
  appendNumber(to, text.size());
  to += text;
}
bool takeText(std::string_view& from, std::string& text) {
  std::uint64_t size = 0;
  if (!takeNumber(from, size) || size > from.size()) return false;
  text = from.substr(0, size);
  from.remove_prefix(size);
  return true;
}

bool isKind(char byte) { return std::string_view("wcpk").find(byte) != std::string_view::npos; }

} // namespace

ConfigChange ConfigChange::applyTo(ConfigMap& map) && {
  ConfigChange back;
  for (std::string const& place : gone) {
    auto at = map.lower_bound(place);
    if (at != map.end() && at->first == place && at->second.empty()) ++at;
    while (at != map.end() && at->first.starts_with(place)) {
      auto taken = map.extract(at++);
      back.values.emplace_back(std::move(taken.key()), std::move(taken.mapped()));
    }
  }
  for (auto& [place, value] : values) {
    auto taken = map.extract(place);
    back.values.emplace_back(place, taken ? std::optional(std::move(taken.mapped())) : std::nullopt);
    if (value) map.emplace(std::move(place), std::move(*value));
  }
  // Of two that a place has had, the older one is to hold in the end.
  std::ranges::reverse(back.values);
  return back;
}

void ConfigRecord::appendTo(std::string& bytes) const {
  bytes += static_cast<char>(kind);
  appendNumber(bytes, number);
  appendNumber(bytes, change.gone.size());
  for (std::string const& place : change.gone)
    appendText(bytes, place);
  appendNumber(bytes, change.values.size());
  for (auto const& [place, value] : change.values) {
    appendText(bytes, place);
    appendNumber(bytes, value ? 1 : 0);
    if (value) appendText(bytes, *value);
  }
}

std::optional<ConfigRecord> ConfigRecord::takeFrom(std::string_view& bytes) {
  if (bytes.empty() || !isKind(bytes.front())) return std::nullopt;
  ConfigRecord record{.kind = static_cast<Kind>(bytes.front())};
  bytes.remove_prefix(1);
  std::uint64_t count = 0;
  if (!takeNumber(bytes, record.number) || !takeNumber(bytes, count)) return std::nullopt;
  for (std::string place; count > 0; --count) {
    if (!takeText(bytes, place)) return std::nullopt;
    record.change.gone.push_back(std::move(place));
  }
  if (!takeNumber(bytes, count)) return std::nullopt;
  for (std::uint64_t hasValue = 0; count > 0; --count) {
    auto& [place, value] = record.change.values.emplace_back();
    if (!takeText(bytes, place) || !takeNumber(bytes, hasValue)) return std::nullopt;
    if (hasValue != 0 && !takeText(bytes, value.emplace())) return std::nullopt;
  }
  return record;
}

std::string frameOf(std::string_view records) {
  std::string frame;
  frame.reserve(kFrameHead + records.size());
  appendFixed(frame, static_cast<std::uint32_t>(records.size()));
  appendFixed(frame, crcOf(frame, records));
  frame += records;
  return frame;
}

std::optional<ConfigFrame> frameAt(std::string_view bytes) {
  std::size_t const size = frameEnd(bytes);
  if (bytes.size() < kFrameHead || size > bytes.size()) return std::nullopt;
  std::string_view const records = bytes.substr(kFrameHead, size - kFrameHead);
  if (crcOf(bytes.substr(0, 4), records) != fixedAt(bytes, 4)) return std::nullopt;
  return ConfigFrame{records, size};
}

std::size_t frameEnd(std::string_view bytes) {
  return bytes.size() < kFrameHead ? kFrameHead : kFrameHead + fixedAt(bytes, 0);
}

} // namespace Agent
