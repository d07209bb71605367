#include "agent/subscribe/ByteBundle.h"

#include <string_view>

#include "Ondra/ByteRouter.h"
#include "Ondra/Path.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

constexpr char kUpdate = 4 << 3 | 2; // of a Notification

// The elements from `first` to before `last`, below each other.
gnmi::Path elemsOf(Ondra::Path const& path, std::size_t first, std::size_t last) {
  Kel::Ptr<Ondra::Path> const part = Ondra::Path::PathIs();
  for (std::size_t i = first; i < last; ++i)
    part->push(path.elems()[i]);
  gnmi::Path out;
  part->copyToGnmiPath(&out);
  return out;
}

std::size_t takeVarint(std::string_view& bytes) {
  std::size_t value = 0;
  for (unsigned shift = 0;; shift += 7) {
    auto const byte = static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(1);
    value |= static_cast<std::size_t>(byte & 0x7f) << shift;
    if (byte < 0x80) return value;
  }
}

} // namespace

void ByteBundle::add(Ondra::WireResponse const& response) {
  std::size_t const depth = 1 + frame_->prefixDepth;
  if (!body_) body_.emplace(*frame_, timestamp_, elemsOf(*response.prefix, 1, depth), limit_);
  above_ = elemsOf(*response.prefix, depth, response.prefix->elemSize()).SerializeAsString();
  std::string_view left(reinterpret_cast<char const*>(response.changes.data()), response.changes.size());
  while (!left.empty() && left.front() == kUpdate) { // deletes come behind the updates; a walk has none
    left.remove_prefix(1);
    std::size_t const size = takeVarint(left);
    body_->encodedUpdate(above_, left.substr(0, size));
    left.remove_prefix(size);
  }
}

std::vector<grpc::Slice> ByteBundle::take() { return body_ ? body_->take() : std::vector<grpc::Slice>(); }

} // namespace Agent
