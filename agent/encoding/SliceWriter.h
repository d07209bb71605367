// Agent::SliceWriter: bytes of a response, written once into the memory from which they will be sent.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <grpcpp/support/slice.h>

#include "agent/encoding/ResponseBlock.h"

namespace Agent {

// Grows by blocks. Any one thread at a time.
class SliceWriter {
public:
  SliceWriter& operator+=(std::string_view bytes);
  SliceWriter& operator+=(char byte) { return *this += std::string_view(&byte, 1); }

  [[nodiscard]] std::size_t size() const noexcept { return written_ + used_; }
  // All of it, in order; then it is empty again.
  [[nodiscard]] std::vector<grpc::Slice> take();

private:
  void flush();

  ResponseBlock block_;
  std::size_t used_ = 0; // of the block
  std::size_t written_ = 0;
  std::vector<grpc::Slice> slices_;
};

} // namespace Agent
