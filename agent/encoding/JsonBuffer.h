// Agent::JsonBuffer: JSON on its way into a response, appended a few bytes at a time.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include <grpcpp/support/slice.h>

#include "agent/encoding/SliceWriter.h"

namespace Agent {

// What is behind the last `settle` may be taken back. Any one thread at a time.
class JsonBuffer {
public:
  JsonBuffer() = default;
  JsonBuffer(JsonBuffer const&) = delete;
  JsonBuffer& operator=(JsonBuffer const&) = delete;

  // All that has been appended and not been taken back.
  [[nodiscard]] std::size_t size() const noexcept { return settled_.size() + used(); }

  void put(char c) {
    *room(1) = c;
    ++at_;
  }
  void put(std::string_view text) {
    if (text.empty()) return;
    std::memcpy(room(text.size()), text.data(), text.size());
    at_ += text.size();
  }
  // The same of at most N bytes, behind which there are others up to N.
  template <std::size_t N>
  void putPadded(char const (&text)[N], std::size_t size) {
    std::memcpy(room(N), text, N);
    at_ += size;
  }
  template <class Number>
  void putNumber(Number number) {
    constexpr std::size_t kDigits = 20; // and a sign is in them
    char* const at = room(kDigits);
    at_ = std::to_chars(at, at + kDigits, number).ptr;
  }
  // A JSON string. False, and nothing is appended, for what is no UTF-8.
  [[nodiscard]] bool putString(std::string_view text);

  // Takes back what is behind that size; nothing that has been settled.
  void truncate(std::size_t size) noexcept { at_ = begin_.get() + (size - settled_.size()); }
  // The last byte, unless it has been settled.
  [[nodiscard]] char& last() noexcept { return at_[-1]; }
  // Moves what has come together, but for the last byte, to where it will be sent from, when that is worth
  // it.
  void settle();

  // Whether `rest` is all of it.
  [[nodiscard]] bool isShort() const noexcept { return settled_.size() == 0; }
  [[nodiscard]] std::string_view rest() const noexcept { return {begin_.get(), used()}; }
  // All of it, in order; then it is empty.
  [[nodiscard]] std::vector<grpc::Slice> take();
  void clear() noexcept { at_ = begin_.get(); } // REQUIRES that it is short

private:
  [[nodiscard]] std::size_t used() const noexcept { return static_cast<std::size_t>(at_ - begin_.get()); }
  [[nodiscard]] char* room(std::size_t size) {
    if (static_cast<std::size_t>(end_ - at_) < size) [[unlikely]]
      grow(size);
    return at_;
  }
  void grow(std::size_t size);

  SliceWriter settled_;
  std::unique_ptr<char[]> begin_;
  char* at_ = nullptr;
  char* end_ = nullptr;
};

} // namespace Agent
