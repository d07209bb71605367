#include "agent/subscribe/ResponseWriter.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "agent/data/LeafEncoding.h"
#include "agent/paths/SchemaPath.h"
#include "agent/subscribe/Message.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using google::protobuf::io::CodedOutputStream;

// Field numbers and wire types of gnmi.proto.
constexpr char kResponseUpdate = 1 << 3 | 2;
constexpr char kResponseSync = 3 << 3 | 0;
constexpr char kTimestamp = 1 << 3 | 0;
constexpr char kPrefix = 2 << 3 | 2;
constexpr char kUpdate = 4 << 3 | 2;
constexpr char kDelete = 5 << 3 | 2;
constexpr char kUpdatePath = 1 << 3 | 2;
constexpr char kUpdateVal = 3 << 3 | 2;
constexpr char kUpdateDuplicates = 4 << 3 | 0;

std::size_t varintSize(std::size_t value) { return CodedOutputStream::VarintSize64(value); }
std::size_t fieldSize(std::size_t size) { return 1 + varintSize(size) + size; }

void appendVarint(std::string& to, std::uint64_t value) {
  std::uint8_t bytes[10];
  std::uint8_t const* const end = CodedOutputStream::WriteVarint64ToArray(value, bytes);
  to.append(reinterpret_cast<char const*>(bytes), static_cast<std::size_t>(end - bytes));
}

// The elements of a path from `first` to before `last`, encoded as fields of a Path.
std::string elemBytes(gnmi::Path const& path, int first, int last) {
  gnmi::Path part;
  for (int i = first; i < last; ++i)
    *part.add_elem() = path.elem(i);
  return part.SerializeAsString();
}

// Gathers updates and deletes into responses that share their head: time and prefix.
class Writer {
public:
  Writer(Message const& message, gnmi::Path prefix, std::size_t limit) : limit_(limit) {
    prefix.set_origin(message.frame()->origin);
    prefix.set_target(message.frame()->target);
    head_ += kTimestamp;
    appendVarint(head_, static_cast<std::uint64_t>(message.timestamp()));
    head_ += kPrefix;
    appendVarint(head_, prefix.ByteSizeLong());
    prefix.AppendToString(&head_);
  }

  // The path of the update begins with the elements of `above`.
  void update(std::string const& above, gnmi::Path const& path, gnmi::TypedValue const& val,
              std::uint32_t duplicates) {
    std::size_t const pathSize = path.ByteSizeLong();
    std::size_t const valSize = val.ByteSizeLong();
    std::size_t const size = fieldSize(above.size() + pathSize) + fieldSize(valSize) +
                             (duplicates > 0 ? 1 + varintSize(duplicates) : 0);
    std::uint8_t* at = grow(fieldSize(size));
    at = head(kUpdate, size, at);
    at = head(kUpdatePath, above.size() + pathSize, at);
    at = CodedOutputStream::WriteRawToArray(above.data(), static_cast<int>(above.size()), at);
    at = path.SerializeWithCachedSizesToArray(at);
    at = head(kUpdateVal, valSize, at);
    at = val.SerializeWithCachedSizesToArray(at);
    if (duplicates == 0) return;
    *at++ = kUpdateDuplicates;
    CodedOutputStream::WriteVarint64ToArray(duplicates, at);
  }
  void del(gnmi::Path const& path) {
    std::size_t const size = path.ByteSizeLong();
    path.SerializeWithCachedSizesToArray(head(kDelete, size, grow(fieldSize(size))));
  }
  [[nodiscard]] std::vector<grpc::Slice> take() {
    if (size_ > 0) flush();
    return std::move(slices_);
  }

private:
  static std::uint8_t* head(char tag, std::size_t size, std::uint8_t* at) {
    *at++ = static_cast<std::uint8_t>(tag);
    return CodedOutputStream::WriteVarint64ToArray(size, at);
  }
  // Room for so many bytes more, in a new response where this one would become too long.
  std::uint8_t* grow(std::size_t size) {
    if (size_ > 0 && head_.size() + size_ + size > limit_) flush();
    if (body_.size() < size_ + size) body_.resize(std::max(2 * body_.size(), size_ + size + 1024));
    std::uint8_t* const at = reinterpret_cast<std::uint8_t*>(body_.data()) + size_;
    size_ += size;
    return at;
  }
  void flush() {
    std::size_t const inner = head_.size() + size_;
    grpc::Slice slice(fieldSize(inner));
    std::uint8_t* at = head(kResponseUpdate, inner, const_cast<std::uint8_t*>(slice.begin()));
    at = CodedOutputStream::WriteRawToArray(head_.data(), static_cast<int>(head_.size()), at);
    std::memcpy(at, body_.data(), size_);
    slices_.push_back(std::move(slice));
    size_ = 0;
  }

  std::size_t const limit_;
  std::string head_;
  std::string body_; // its first `size_` bytes
  std::size_t size_ = 0;
  std::vector<grpc::Slice> slices_;
};

// Writes values in the encoding that was asked for, by what is published of the leaves below one prefix.
class Values {
public:
  explicit Values(int encoding) : encoding_(static_cast<gnmi::Encoding>(encoding)) {}

  [[nodiscard]] gnmi::TypedValue const& of(gnmi::Path const& prefix, gnmi::Update const& update) {
    if (encoding_ == gnmi::PROTO) return update.val();
    if (&prefix != prefix_) {
      prefix_ = &prefix;
      below_ = schemaPlace(prefix, 1);
    }
    std::optional<SchemaPlace> place = below_;
    for (int i = prefix.elem_size() > 0 ? 0 : 1; i < update.path().elem_size() && place; ++i)
      place = place->child(update.path().elem(i).name());
    LeafInfo const* const leaf = place ? place->leaf() : nullptr;
    scratch_ = update.val();
    leafEncodingIs(scratch_, leaf != nullptr ? *leaf : LeafInfo(), encoding_);
    return scratch_;
  }

private:
  gnmi::Encoding const encoding_;
  gnmi::Path const* prefix_ = nullptr;
  std::optional<SchemaPlace> below_;
  gnmi::TypedValue scratch_;
};

gnmi::Path withoutRoot(gnmi::Path path) {
  if (path.elem_size() > 0) path.mutable_elem()->DeleteSubrange(0, 1);
  return path;
}

// Of the agent's own: whole paths below an empty prefix.
std::vector<grpc::Slice> ownSlices(Message const& message, std::size_t limit) {
  Writer writer(message, gnmi::Path(), limit);
  Values values(message.frame()->encoding);
  for (gnmi::Path const& path : message.own()->delete_())
    writer.del(withoutRoot(path));
  message.forEachUpdate([&](gnmi::Path const& prefix, gnmi::Update const& update) {
    writer.update({}, withoutRoot(update.path()), values.of(prefix, update), update.duplicates());
  });
  return writer.take();
}

} // namespace

std::vector<grpc::Slice> responseSlices(Message const& message, std::size_t limit) {
  if (message.isSync()) {
    char const bytes[] = {kResponseSync, 1};
    return {grpc::Slice(bytes, sizeof bytes)};
  }
  if (message.own() != nullptr) return ownSlices(message, limit);

  int common = 1 + static_cast<int>(message.frame()->prefixDepth);
  gnmi::Path const* first = nullptr;
  gnmi::Path const* last = nullptr;
  message.forEachUpdate([&](gnmi::Path const& prefix, gnmi::Update const&) {
    if (&prefix == last) return;
    last = &prefix;
    if (first == nullptr) first = &prefix;
    common = std::min(common, prefix.elem_size());
  });
  gnmi::Path head;
  for (int i = 1; first != nullptr && i < common; ++i)
    *head.add_elem() = first->elem(i);
  Writer writer(message, std::move(head), limit);
  Values values(message.frame()->encoding);
  std::string above;
  last = nullptr;
  message.forEachUpdate([&](gnmi::Path const& prefix, gnmi::Update const& update) {
    if (&prefix != last) above = elemBytes(prefix, std::max(common, 1), prefix.elem_size());
    last = &prefix;
    writer.update(above, update.path(), values.of(prefix, update), update.duplicates());
  });
  return writer.take();
}

} // namespace Agent
