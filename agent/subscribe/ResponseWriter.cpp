#include "agent/subscribe/ResponseWriter.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>

#include <optional>
#include <string>
#include <utility>

#include "agent/data/LeafEncoding.h"
#include "agent/paths/OutPath.h"
#include "agent/paths/SchemaPath.h"
#include "agent/subscribe/Message.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

using google::protobuf::MessageLite;
using google::protobuf::io::CodedOutputStream;

// Field numbers and wire types of gnmi.proto.
constexpr std::uint8_t kResponseUpdate = 1 << 3 | 2;
constexpr std::uint8_t kResponseSync = 3 << 3 | 0;
constexpr std::uint8_t kTimestamp = 1 << 3 | 0;
constexpr std::uint8_t kPrefix = 2 << 3 | 2;
constexpr std::uint8_t kUpdate = 4 << 3 | 2;
constexpr std::uint8_t kDelete = 5 << 3 | 2;

std::size_t fieldSize(std::size_t size) { return 1 + CodedOutputStream::VarintSize64(size) + size; }

// A message that is written as a field; its size is the one that it had when it was added.
struct Field {
  std::uint8_t tag;
  MessageLite const* message;
  std::size_t size;
};

// Collects the fields of one response after the other.
class Writer {
public:
  Writer(Message const& message, std::size_t limit) : limit_(limit) {
    gnmi::Path prefix = message.notification().prefix();
    outPrefixIs(prefix, message.frame()->origin, message.frame()->target);
    head_ += static_cast<char>(kTimestamp);
    appendVarint(static_cast<std::uint64_t>(message.timestamp()));
    head_ += static_cast<char>(kPrefix);
    appendVarint(prefix.ByteSizeLong());
    prefix.AppendToString(&head_);
  }

  void add(std::uint8_t tag, MessageLite const& field) {
    std::size_t const size = field.ByteSizeLong();
    if (!fields_.empty() && head_.size() + body_ + fieldSize(size) > limit_) flush();
    fields_.push_back({tag, &field, size});
    body_ += fieldSize(size);
  }
  std::vector<grpc::Slice> take() {
    if (!fields_.empty()) flush();
    return std::move(slices_);
  }

private:
  void appendVarint(std::uint64_t value) {
    std::uint8_t bytes[10];
    std::uint8_t const* const end = CodedOutputStream::WriteVarint64ToArray(value, bytes);
    head_.append(reinterpret_cast<char const*>(bytes), static_cast<std::size_t>(end - bytes));
  }
  void flush() {
    std::size_t const inner = head_.size() + body_;
    grpc::Slice slice(fieldSize(inner));
    auto* at = const_cast<std::uint8_t*>(slice.begin());
    *at++ = kResponseUpdate;
    at = CodedOutputStream::WriteVarint64ToArray(inner, at);
    at = CodedOutputStream::WriteRawToArray(head_.data(), static_cast<int>(head_.size()), at);
    for (Field const& field : fields_) {
      *at++ = field.tag;
      at = CodedOutputStream::WriteVarint64ToArray(field.size, at);
      at = field.message->SerializeWithCachedSizesToArray(at);
    }
    slices_.push_back(std::move(slice));
    fields_.clear();
    body_ = 0;
  }

  std::size_t const limit_;
  std::string head_; // time and prefix, the same for each response
  std::vector<Field> fields_;
  std::size_t body_ = 0;
  std::vector<grpc::Slice> slices_;
};

// Finds what is published of the leaves below one prefix.
class Leaves {
public:
  explicit Leaves(gnmi::Path const& prefix)
      : below_(schemaPlace(prefix, 1))
      , hasRoot_(prefix.elem_size() > 0) {}

  [[nodiscard]] LeafInfo const* find(gnmi::Path const& path) const {
    std::optional<SchemaPlace> place = below_;
    for (int i = hasRoot_ ? 0 : 1; i < path.elem_size() && place; ++i)
      place = place->child(path.elem(i).name());
    return place ? place->leaf() : nullptr;
  }

private:
  std::optional<SchemaPlace> below_;
  bool hasRoot_;
};

gnmi::Path withoutRoot(gnmi::Path path) {
  if (path.elem_size() > 0) path.mutable_elem()->DeleteSubrange(0, 1);
  return path;
}

std::vector<grpc::Slice> syncSlices() {
  std::uint8_t const bytes[] = {kResponseSync, 1};
  return {grpc::Slice(bytes, sizeof bytes)};
}

} // namespace

std::vector<grpc::Slice> responseSlices(Message const& message, std::size_t limit) {
  if (message.isSync()) return syncSlices();
  gnmi::Notification const& notification = message.notification();
  auto const encoding = static_cast<gnmi::Encoding>(message.frame()->encoding);
  bool const rootInPaths = notification.prefix().elem_size() == 0;
  bool const asIs = encoding == gnmi::PROTO && !rootInPaths;
  google::protobuf::Arena scratch;
  std::optional<Leaves> leaves;
  if (encoding != gnmi::PROTO) leaves.emplace(notification.prefix());
  Writer writer(message, limit);

  if (message.tellsDeletes()) {
    for (gnmi::Path const& path : notification.delete_()) {
      if (!rootInPaths) {
        writer.add(kDelete, path);
        continue;
      }
      auto* const copy = google::protobuf::Arena::CreateMessage<gnmi::Path>(&scratch);
      *copy = withoutRoot(path);
      writer.add(kDelete, *copy);
    }
  }
  auto const addUpdate = [&](gnmi::Update const& update) {
    if (asIs) {
      writer.add(kUpdate, update);
      return;
    }
    auto* const copy = google::protobuf::Arena::CreateMessage<gnmi::Update>(&scratch);
    *copy = update;
    if (leaves) {
      LeafInfo const* const leaf = leaves->find(update.path());
      leafEncodingIs(*copy->mutable_val(), leaf != nullptr ? *leaf : LeafInfo(), encoding);
    }
    if (rootInPaths) *copy->mutable_path() = withoutRoot(update.path());
    writer.add(kUpdate, *copy);
  };
  if (message.updates()) {
    for (std::uint32_t const at : *message.updates())
      addUpdate(notification.update(static_cast<int>(at)));
  } else {
    for (gnmi::Update const& update : notification.update())
      addUpdate(update);
  }
  return writer.take();
}

} // namespace Agent
