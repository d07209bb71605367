// Fields go into one block behind room for a head; the head is written in front when the response is as long
// as it may be.
#include "agent/subscribe/ResponseBody.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Kstd/CopyText.h"
#include "agent/subscribe/SubscribePlan.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using google::protobuf::io::CodedOutputStream;

// Field numbers and wire types of gnmi.proto.
constexpr char kResponseUpdate = 1 << 3 | 2;
constexpr char kTimestamp = 1 << 3 | 0;
constexpr char kPrefix = 2 << 3 | 2;
constexpr char kUpdate = 4 << 3 | 2;
constexpr char kDelete = 5 << 3 | 2;
constexpr char kUpdatePath = 1 << 3 | 2;
constexpr char kUpdateVal = 3 << 3 | 2;
constexpr char kUpdateDuplicates = 4 << 3 | 0;
constexpr char kValJson = 10 << 3 | 2;
constexpr char kValJsonIetf = 11 << 3 | 2;
std::size_t varintSize(std::size_t value) { return CodedOutputStream::VarintSize64(value); }
std::size_t fieldSize(std::size_t size) { return 1 + varintSize(size) + size; }

void appendVarint(std::string& to, std::uint64_t value) {
  std::uint8_t bytes[10];
  std::uint8_t const* const end = CodedOutputStream::WriteVarint64ToArray(value, bytes);
  to.append(reinterpret_cast<char const*>(bytes), static_cast<std::size_t>(end - bytes));
}

std::uint8_t* putHead(char tag, std::size_t size, std::uint8_t* at) {
  *at++ = static_cast<std::uint8_t>(tag);
  return CodedOutputStream::WriteVarint64ToArray(size, at);
}

std::uint8_t* putText(std::string_view text, std::uint8_t* at) {
  Kstd::copyText(at, text);
  return at + text.size();
}

} // namespace

ResponseBody::ResponseBody(Frame const& frame, std::int64_t timestamp, gnmi::Path prefix, std::size_t limit) {
  prefix.set_origin(frame.origin);
  prefix.set_target(frame.target);
  head_ += kTimestamp;
  appendVarint(head_, static_cast<std::uint64_t>(timestamp));
  head_ += kPrefix;
  appendVarint(head_, prefix.ByteSizeLong());
  prefix.AppendToString(&head_);
  // No message of protobuf is longer than 2 GiB.
  room_ = 1 + CodedOutputStream::VarintSize64(UINT32_MAX) + head_.size();
  std::size_t const most = std::min(limit, ResponseBlock::kBytes);
  limit_ = most > room_ ? most - room_ : 0;
}

void ResponseBody::update(std::string_view above, gnmi::Path const& path, gnmi::TypedValue const& val,
                          std::uint32_t duplicates) {
  std::size_t const pathSize = path.ByteSizeLong();
  std::size_t const valSize = val.ByteSizeLong();
  std::size_t const size = fieldSize(above.size() + pathSize) + fieldSize(valSize) +
                           (duplicates > 0 ? 1 + varintSize(duplicates) : 0);
  std::uint8_t* at = grow(fieldSize(size));
  at = putHead(kUpdate, size, at);
  at = putHead(kUpdatePath, above.size() + pathSize, at);
  at = putText(above, at);
  at = path.SerializeWithCachedSizesToArray(at);
  at = putHead(kUpdateVal, valSize, at);
  at = val.SerializeWithCachedSizesToArray(at);
  if (duplicates == 0) return;
  *at++ = kUpdateDuplicates;
  CodedOutputStream::WriteVarint64ToArray(duplicates, at);
}

void ResponseBody::encodedUpdate(std::string_view above, EncodedUpdate const& update) {
  std::size_t const pathSize = above.size() + update.path.size();
  std::size_t const size = fieldSize(pathSize) + update.value.size();
  std::uint8_t* at = grow(fieldSize(size));
  at = putHead(kUpdate, size, at);
  at = putHead(kUpdatePath, pathSize, at);
  at = putText(above, at);
  at = putText(update.path, at);
  putText(update.value, at);
}

void ResponseBody::jsonUpdate(std::string_view above, std::string_view path, bool isIetf,
                              std::string_view json) {
  std::size_t const pathSize = above.size() + path.size();
  std::size_t const valSize = fieldSize(json.size());
  std::size_t const size = fieldSize(pathSize) + fieldSize(valSize);
  std::uint8_t* at = grow(fieldSize(size));
  at = putHead(kUpdate, size, at);
  at = putHead(kUpdatePath, pathSize, at);
  at = putText(above, at);
  at = putText(path, at);
  at = putHead(kUpdateVal, valSize, at);
  putText(json, putHead(isIetf ? kValJsonIetf : kValJson, json.size(), at));
}

void ResponseBody::del(gnmi::Path const& path) {
  std::size_t const size = path.ByteSizeLong();
  path.SerializeWithCachedSizesToArray(putHead(kDelete, size, grow(fieldSize(size))));
}

std::vector<grpc::Slice> ResponseBody::take() {
  if (size_ > 0) flush();
  return std::move(slices_);
}

// Room for so many bytes more, in a new response where this one would become too long.
std::uint8_t* ResponseBody::grow(std::size_t size) {
  if (size_ > 0 && size_ + size > limit_) flush();
  if (std::size_t const wanted = room_ + size_ + size; block_.size() < wanted) {
    ResponseBlock larger(wanted);
    if (size_ > 0) std::memcpy(larger.data() + room_, block_.data() + room_, size_);
    block_ = std::move(larger);
  }
  std::uint8_t* const at = block_.data() + room_ + size_;
  size_ += size;
  return at;
}

void ResponseBody::flush() {
  std::size_t const inner = head_.size() + size_;
  std::size_t const size = fieldSize(inner);
  std::uint8_t* const begin = block_.data() + room_ + size_ - size;
  putText(head_, putHead(kResponseUpdate, inner, begin));
  if (size > block_.size() / 2)
    slices_.push_back(std::move(block_).slice({begin, size}));
  else
    slices_.emplace_back(begin, size);
  size_ = 0;
}

} // namespace Agent
