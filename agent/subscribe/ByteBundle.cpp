// Takes the library's bytes apart field by field and hands the updates on as they are; nothing is parsed into
// messages.
#include "agent/subscribe/ByteBundle.h"

#include <span>
#include <string_view>

#include "Ondra/ByteRouter.h"
#include "Ondra/Path.h"
#include "Tovak/Assert.h"
#include "Tovak/DebugHandler.h"
#include "agent/encoding/LeafEncoding.h"
#include "agent/paths/TypeTree.h"
#include "agent/subscribe/WireJson.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr char kUpdate = 4 << 3 | 2; // of a Notification

// The elements between the data root and `end`.
gnmi::Path elemsOf(Ondra::Path const& path, std::size_t end) {
  Kel::Ptr<Ondra::Path> const part = Ondra::Path::PathIs();
  for (std::size_t i = 1; i < end; ++i)
    part->push(path.elems()[i]);
  gnmi::Path out;
  part->copyToGnmiPath(&out);
  return out;
}

// Takes one field with a length off; what is in it.
inline std::string_view takeField(std::string_view& bytes) {
  std::size_t size = 0;
  std::size_t begin = 1; // behind the tag
  for (unsigned shift = 0;; shift += 7) {
    auto const byte = static_cast<unsigned char>(bytes[begin++]);
    size |= static_cast<std::size_t>(byte & 0x7f) << shift;
    if (byte < 0x80) [[likely]]
      break;
  }
  std::string_view const field(bytes.data() + begin, size);
  bytes.remove_prefix(begin + size);
  return field;
}

std::string_view textOf(std::span<std::uint8_t const> bytes) {
  return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

// The value of an update: a `leaflist_val` of nothing. Such a leaf-list is not there.
constexpr std::string_view kEmptyList("\x1a\x02\x42\x00", 4);
constexpr char kUpdateVal = 3 << 3 | 2;
constexpr char kText = 1 << 3 | 2; // of a TypedValue
constexpr char kList = 8 << 3 | 2;

// Whether an encoded update may be of a leaf that is told as something else than it is held as.
bool mayBeToldOtherwise(EncodedUpdate const& update) {
  std::string_view field = update.value;
  std::string_view const value = field.empty() || field.front() != kUpdateVal ? field : takeField(field);
  if (value.empty() || (value.front() != kText && value.front() != kList)) return false;
  std::string_view path = update.path;
  std::string_view last;
  while (!path.empty())
    last = takeField(path);
  return !last.empty() && Impl::mayBeToldOtherwise(takeField(last));
}

// The leaf at the end of an update's path.
LeafInfo const* leafOf(Ondra::Path const& prefix, gnmi::Path const& path) {
  auto const above = TypeNode::root().descendant(elemsOf(prefix, prefix.elems().size()), 0);
  auto const node = above ? above->descendant(path, 0) : above;
  return node ? node->leaf() : nullptr;
}

} // namespace

void ByteBundle::add(Ondra::WireResponse const& response, LeafVerdicts* access) {
  std::size_t const depth = 1 + frame_->prefixDepth;
  if (!body_) body_.emplace(*frame_, timestamp_, elemsOf(*response.prefix, depth), limit_);
  leaves_ += response.updates;
  std::string_view above = textOf(response.prefixElems);
  for (std::size_t i = 0; i < depth; ++i) {
    TOVAK_ASSERT(!above.empty(), Tovak::Platform::getDebugHandler("OndraAgent", false),
                 "what was walked lies above what all of it shares");
    static_cast<void>(takeField(above));
  }
  if (json_ != nullptr) json_->prefixIs(*response.prefix);
  std::string_view left = textOf(response.changes);
  while (!left.empty() && left.front() == kUpdate) { // deletes come behind the updates; a walk has none
    std::string_view const bytes = takeField(left);
    std::string_view value = bytes;
    std::string_view const path = takeField(value);
    EncodedUpdate const update{path, value};
    if (value == kEmptyList || (access != nullptr && !access->permits(path))) continue;
    if (json_ != nullptr) {
      body_->jsonUpdate(above, path, json_->isIetf(), json_->text(path, takeField(value)));
      continue;
    }
    if (!mayBeToldOtherwise(update)) {
      body_->encodedUpdate(above, update);
      continue;
    }
    gnmi::Update parsed;
    LeafInfo const* const leaf = parsed.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))
                                     ? leafOf(*response.prefix, parsed.path())
                                     : nullptr;
    if (leaf == nullptr) {
      body_->encodedUpdate(above, update);
    } else {
      leafEncodingIs(*parsed.mutable_val(), *leaf, gnmi::PROTO);
      body_->update(above, parsed.path(), parsed.val(), 0);
    }
  }
}

std::vector<grpc::Slice> ByteBundle::take() { return body_ ? body_->take() : std::vector<grpc::Slice>(); }

} // namespace Agent
