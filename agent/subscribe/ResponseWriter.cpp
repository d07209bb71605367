// Which prefix the updates share, and each value in the encoding that was asked for; the fields are written
// by ResponseBody.cpp.
#include "agent/subscribe/ResponseWriter.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "Ondra/GnmiPath.h"
#include "agent/encoding/LeafEncoding.h"
#include "agent/paths/TypeTree.h"
#include "agent/subscribe/Message.h"
#include "agent/subscribe/ResponseBody.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

// The field number and wire type of gnmi.proto.
constexpr char kResponseSync = 3 << 3 | 0;

// The elements of a path from `first` to before `last`, encoded as fields of a Path.
std::string elemBytes(gnmi::Path const& path, int first, int last) {
  gnmi::Path part;
  for (int i = first; i < last; ++i)
    *part.add_elem() = path.elem(i);
  return part.SerializeAsString();
}

// How many elements both paths begin with, at most `most`.
int commonElems(gnmi::Path const& a, gnmi::Path const& b, int most) {
  int common = 0;
  while (common < std::min(most, b.elem_size()) && a.elem(common) == b.elem(common))
    ++common;
  return common;
}

// Writes values in the encoding that was asked for, by what is published of the leaves below one prefix.
class Values {
public:
  explicit Values(int encoding) : encoding_(static_cast<gnmi::Encoding>(encoding)) {}

  [[nodiscard]] gnmi::TypedValue const& of(gnmi::Path const& prefix, gnmi::Update const& update) {
    if (encoding_ == gnmi::PROTO && !mayBeToldOtherwise(update)) return update.val();
    if (&prefix != prefix_) {
      prefix_ = &prefix;
      below_ = TypeNode::root().descendant(prefix, 1);
    }
    auto const node = below_ ? below_->descendant(update.path(), prefix.elem_size() > 0 ? 0 : 1) : below_;
    LeafInfo const* const leaf = node ? node->leaf() : nullptr;
    scratch_ = update.val();
    leafEncodingIs(scratch_, leaf != nullptr ? *leaf : LeafInfo(), encoding_);
    return scratch_;
  }

private:
  static bool mayBeToldOtherwise(gnmi::Update const& update) {
    bool const isText = update.val().has_string_val() || update.val().has_leaflist_val();
    return isText && !update.path().elem().empty() &&
           Impl::mayBeToldOtherwise(update.path().elem().rbegin()->name());
  }

  gnmi::Encoding const encoding_;
  gnmi::Path const* prefix_ = nullptr;
  std::optional<TypeNode> below_;
  gnmi::TypedValue scratch_;
};

gnmi::Path withoutRoot(gnmi::Path path) {
  if (path.elem_size() > 0) path.mutable_elem()->DeleteSubrange(0, 1);
  return path;
}

// Of the agent's own: whole paths below an empty prefix.
std::vector<grpc::Slice> ownSlices(Message const& message, std::size_t limit) {
  ResponseBody writer(*message.frame(), message.timestamp(), gnmi::Path(), limit);
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

  int common = 0;
  gnmi::Path const* first = nullptr;
  gnmi::Path const* last = nullptr;
  message.forEachUpdate([&](gnmi::Path const& prefix, gnmi::Update const&) {
    if (&prefix == last) return;
    last = &prefix;
    common = first == nullptr ? prefix.elem_size() : commonElems(*first, prefix, common);
    if (first == nullptr) first = &prefix;
  });
  gnmi::Path head;
  for (int i = 1; first != nullptr && i < common; ++i)
    *head.add_elem() = first->elem(i);
  ResponseBody writer(*message.frame(), message.timestamp(), std::move(head), limit);
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
