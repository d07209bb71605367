// A text for a parser, and how many lines of it have been read.
#pragma once

#include <cstddef>
#include <iterator>

namespace Agent {

struct LinesRead {
  std::size_t count = 0;
  bool isAtBreak = false; // the last character read was one

  // Of the end of a number a parser learns by the character behind it.
  [[nodiscard]] std::size_t beforeNumber() const { return count - (isAtBreak ? 1 : 0); }
};

class CountingLines {
public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = char const*;
  using reference = char const&;

  CountingLines(char const* at, LinesRead& read) : at_(at), read_(&read) {}

  reference operator*() const { return *at_; }
  CountingLines& operator++() {
    read_->isAtBreak = *at_++ == '\n';
    read_->count += read_->isAtBreak ? 1 : 0;
    return *this;
  }
  CountingLines operator++(int) {
    CountingLines const before = *this;
    ++*this;
    return before;
  }
  bool operator==(CountingLines const& other) const { return at_ == other.at_; }

private:
  char const* at_;
  LinesRead* read_;
};

} // namespace Agent
