#include "Ondra/WalkReach.h"

#include <memory>

#include "Ondra/KelTypeWalker.h"
#include "Ondra/KeyDecoder.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

using Elems = std::span<gnmi::PathElem const* const>;

bool isSame(PathElem const& elem, gnmi::PathElem const& other) {
  if (elem.name().view() != other.name() || elem.key().size() != static_cast<std::size_t>(other.key_size())) {
    return false;
  }
  for (auto const& [name, value] : elem.key()) {
    auto const found = other.key().find(std::string(name.view()));
    if (found == other.key().end() || value.view() != found->second) {
      return false;
    }
  }
  return true;
}

bool beginsWith(Elems path, Path const& prefix) {
  if (prefix.elemSize() > path.size()) {
    return false;
  }
  for (std::size_t i = prefix.elemSize(); i-- > 0;) { // paths of one tree differ towards their ends
    if (!isSame(*prefix.elems()[i], *path[i])) {
      return false;
    }
  }
  return true;
}

// What a parked walker keeps, to be read here.
struct Parked final : FullKelTypeWalker {
  static Path const& prefix(FullKelTypeWalker const& walker) { return *(walker.*&Parked::prefixPath_); }
  static Path const& leafPath(FullKelTypeWalker const& walker) { return *(walker.*&Parked::leafPath_); }
  static Kel::KelType type(FullKelTypeWalker const& walker) { return walker.*&Parked::objType_; }
  static bool isDone(FullKelTypeWalker const& walker) { return (walker.*&Parked::flags_).has(flagSkipWalk); }
  static std::size_t position(FullKelTypeWalker const& walker) {
    return (walker.*&Parked::attrQ_).position();
  }
  static Kel::GenericIf const* nextKey(FullKelTypeWalker const& walker) {
    return (walker.*&Parked::resumeKey_).get();
  }
};

// Of a place at or below the object of a parked walker, and not of one that is parked below it.
WalkReach reachOf(FullKelTypeWalker const& walker, Elems below) {
  if (Parked::isDone(walker)) {
    return WalkReach::Passed;
  }
  if (Parked::leafPath(walker).elemSize() != 0 || below.empty()) {
    return WalkReach::Unknown;
  }
  gnmi::PathElem const& elem = *below.front();
  bool const isDir = Parked::type(walker).isDir();
  Kel::KelAttr const attr = Parked::type(walker).attr(isDir ? std::string_view("entityPtr") : elem.name());
  if (!attr) {
    return WalkReach::Unknown;
  }
  if (attr.desc().index != Parked::position(walker)) {
    return attr.desc().index < Parked::position(walker) ? WalkReach::Passed : WalkReach::Ahead;
  }
  Kel::GenericIf const* const next = Parked::nextKey(walker);
  if (!attr.isKeyed() || next == nullptr) {
    return WalkReach::Ahead;
  }
  if (!isDir && elem.key_size() != 1) {
    return WalkReach::Unknown;
  }
  auto const key = KelGnmiSet::AttrTree::KeyDecoder::createScalarKey(
      attr.keyType(), isDir ? elem.name() : elem.key().begin()->second);
  if (!key.ok() || !(key.value()->type() == next->type())) {
    return WalkReach::Unknown;
  }
  return key.value()->compare(*next) < 0 ? WalkReach::Passed : WalkReach::Ahead;
}

} // namespace

std::optional<WalkReach> walkReach(WalkInfo const& walkInfo, Elems path) {
  if (!beginsWith(path, *walkInfo.path)) {
    return std::nullopt;
  }
  auto const queue = FullKelTypeWalker::walkMap().find(walkInfo.syncWalkId.second);
  if (queue == FullKelTypeWalker::walkMap().end()) {
    return WalkReach::Passed;
  }
  FullKelTypeWalker const* deepest = nullptr;
  std::size_t depth = 0;
  for (std::unique_ptr<FullKelTypeWalker> const& walker : queue->second.walkers) {
    std::size_t const prefix = Parked::prefix(*walker).elemSize();
    std::size_t const own = prefix + Parked::leafPath(*walker).elemSize();
    if (own <= path.size() && (deepest == nullptr || own > depth) &&
        beginsWith(path, Parked::prefix(*walker)) &&
        beginsWith(path.subspan(prefix), Parked::leafPath(*walker))) {
      deepest = walker.get();
      depth = own;
    }
  }
  return deepest == nullptr ? WalkReach::Passed : reachOf(*deepest, path.subspan(depth));
}

} // namespace Ondra
