// Agent::ResponseBody: updates and deletes as the bytes of SubscribeResponses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <grpcpp/support/slice.h>

#include "agent/encoding/ResponseBlock.h"

namespace gnmi {
class Path;
class TypedValue;
} // namespace gnmi

namespace Agent {

struct Frame;

// The parts of an Update that the library has encoded.
struct EncodedUpdate {
  std::string_view path;  // its elements
  std::string_view value; // the field of the value, with its tag
};

// Gathers updates and deletes into responses that share their head: time and prefix. None is longer than
// `limit`, nor than a block, unless a single leaf is. Each is written where it will be sent from. Any thread.
class ResponseBody {
public:
  // `prefix` as clients are to see it, but for origin and target, which are the frame's.
  ResponseBody(Frame const& frame, std::int64_t timestamp, gnmi::Path prefix, std::size_t limit);

  // The path of the update begins with the elements of `above`, encoded as fields of a Path.
  void update(std::string_view above, gnmi::Path const& path, gnmi::TypedValue const& val,
              std::uint32_t duplicates);
  // The same of an update that is encoded already.
  void encodedUpdate(std::string_view above, EncodedUpdate const& update);
  // The same of a path that is encoded and a value that is JSON.
  void jsonUpdate(std::string_view above, std::string_view path, bool isIetf, std::string_view json);
  void del(gnmi::Path const& path);

  // What has been gathered; none when nothing has.
  [[nodiscard]] std::vector<grpc::Slice> take();

private:
  [[nodiscard]] std::uint8_t* grow(std::size_t size);
  void flush();

  std::size_t limit_; // of what is gathered
  std::string head_;
  ResponseBlock block_; // room for the head and its length, then what has been gathered
  std::size_t room_;
  std::size_t size_ = 0;
  std::vector<grpc::Slice> slices_;
};

} // namespace Agent
