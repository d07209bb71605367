// Agent::WireFields: the fields of an encoded message, one after the other, where they lie.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Agent {

// Takes less than the encoding allows: fields with numbers up to 15, no groups, nothing longer than 256 MiB.
// What it takes means what the parser of messages reads in it. The bytes outlive it, and what it gives.
class WireFields {
public:
  enum Type : std::uint8_t { kVarint = 0, kFixed64 = 1, kLength = 2, kFixed32 = 5 };
  // What stands before a field.
  [[nodiscard]] static constexpr std::uint8_t tagOf(unsigned number, Type type) {
    return static_cast<std::uint8_t>(number << 3 | type);
  }

  explicit WireFields(std::string_view bytes)
      : at_(reinterpret_cast<std::uint8_t const*>(bytes.data()))
      , end_(at_ + bytes.size()) {}

  // Goes on to the next field: false at the end, and where it does not take what comes.
  [[nodiscard]] bool next() {
    if (at_ == end_) return false;
    tag_ = *at_++;
    isWhole_ = tag_ >= tagOf(1, kVarint) && tag_ < 0x80 && takeBody();
    return isWhole_;
  }
  // REQUIRES that next() has said false: all of it has been taken.
  [[nodiscard]] bool isWhole() const { return isWhole_; }

  // Of the field that next() has come to:
  [[nodiscard]] std::uint8_t tag() const { return tag_; }
  [[nodiscard]] std::string_view bytes() const { return bytes_; } // of one with a length
  [[nodiscard]] std::uint64_t number() const { return number_; }  // of a varint

private:
  bool takeBody() {
    switch (tag_ & 7) {
    case kVarint: return takeVarint();
    case kFixed64: return take(sizeof(std::uint64_t));
    case kFixed32: return take(sizeof(std::uint32_t));
    case kLength: return takeLength();
    default: return false;
    }
  }
  bool take(std::size_t size) {
    if (size > static_cast<std::size_t>(end_ - at_)) return false;
    bytes_ = {reinterpret_cast<char const*>(at_), size};
    at_ += size;
    return true;
  }
  bool takeLength() {
    if (at_ != end_ && *at_ < 0x80) return take(*at_++);
    std::size_t size = 0;
    for (unsigned shift = 0; shift < 28 && at_ != end_; shift += 7) {
      std::uint8_t const byte = *at_++;
      size |= static_cast<std::size_t>(byte & 0x7f) << shift;
      if (byte < 0x80) return take(size);
    }
    return false;
  }
  bool takeVarint() {
    number_ = 0;
    for (unsigned shift = 0; shift < 63 && at_ != end_; shift += 7) {
      std::uint8_t const byte = *at_++;
      number_ |= static_cast<std::uint64_t>(byte & 0x7f) << shift;
      if (byte < 0x80) return true;
    }
    if (at_ == end_ || *at_ > 1) return false;
    number_ |= static_cast<std::uint64_t>(*at_++) << 63;
    return true;
  }

  std::uint8_t const* at_;
  std::uint8_t const* end_;
  std::uint8_t tag_ = 0;
  bool isWhole_ = true;
  std::uint64_t number_ = 0;
  std::string_view bytes_;
};

} // namespace Agent
