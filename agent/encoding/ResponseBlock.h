// Agent::ResponseBlock: the memory in which a response is written and from which it is sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include <grpcpp/support/slice.h>

namespace Agent {

// Owns one block. Those of full size come from a cache for the whole process; what the cache has no room for
// goes back to the kernel at once. From the general heap, what a thousand snapshots needed at one time would
// stay with the process for good. A value; any thread. docs/decisions.md: "Where do the bytes of a response
// lie?"
class ResponseBlock {
public:
  static constexpr std::size_t kBytes = 64 * 1024; // the full size
  static constexpr std::size_t kSmallBytes = 4 * 1024;
  static constexpr std::size_t kCachedBlocksMax = 128;

  // None.
  ResponseBlock() noexcept = default;
  // Small, of full size, or as large as is asked for.
  explicit ResponseBlock(std::size_t bytes);
  ResponseBlock(ResponseBlock&& other) noexcept
      : data_(std::exchange(other.data_, nullptr))
      , size_(std::exchange(other.size_, 0)) {}
  ResponseBlock& operator=(ResponseBlock&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~ResponseBlock();

  [[nodiscard]] std::uint8_t* data() const noexcept { return data_; }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  // A part of the block as a slice, which owns the block from now on.
  [[nodiscard]] grpc::Slice slice(std::span<std::uint8_t> part) &&;

private:
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

} // namespace Agent
