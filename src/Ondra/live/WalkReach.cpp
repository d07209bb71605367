// The deepest parked walker above the path decides, by the attribute it stands at, then by the key from which
// it goes on.
#include "Ondra/WalkReach.h"

#include <memory>

#include "Ondra/live/ParkedWalks.h"
#include "Ondra/rules/KeyText.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Ondra {
namespace {

using Elems = std::span<gnmi::PathElem const* const>;

bool isSame(PathElem const& elem, gnmi::PathElem const& other) {
  if (elem.name().view() != other.name() || elem.key().size() != static_cast<std::size_t>(other.key_size()))
    return false;
  for (auto const& [name, value] : elem.key()) {
    auto const found = other.key().find(std::string(name.view()));
    if (found == other.key().end() || value.view() != found->second) return false;
  }
  return true;
}

bool beginsWith(Elems path, Path const& prefix) {
  if (prefix.elemSize() > path.size()) return false;
  for (std::size_t i = prefix.elemSize(); i-- > 0;) // paths of one tree differ towards their ends
    if (!isSame(*prefix.elems()[i], *path[i])) return false;
  return true;
}

} // namespace

WalkReach ParkedWalks::reachOf(Walker const& parked, Elems below) {
  if (parked.flags_.has(flagSkipWalk)) return WalkReach::Passed;
  if (parked.leafPath_->elemSize() != 0 || below.empty()) return WalkReach::Unknown;
  gnmi::PathElem const& elem = *below.front();
  bool const isDir = parked.objType_.isDir();
  Kel::KelAttr const attr = parked.objType_.attr(isDir ? std::string_view("entityPtr") : elem.name());
  if (!attr) return WalkReach::Unknown;
  if (attr.desc().index != parked.attrQ_.position())
    return attr.desc().index < parked.attrQ_.position() ? WalkReach::Passed : WalkReach::Ahead;
  Kel::GenericIf const* const next = parked.resumeKey_.get();
  if (!attr.isKeyed() || next == nullptr) return WalkReach::Ahead;
  if (!isDir && elem.key_size() != 1) return WalkReach::Unknown;
  auto const key = keyOfText(attr.keyType(), isDir ? elem.name() : elem.key().begin()->second);
  if (!key.ok() || !(key.value()->type() == next->type())) return WalkReach::Unknown;
  return key.value()->compare(*next) < 0 ? WalkReach::Passed : WalkReach::Ahead;
}

std::optional<WalkReach> ParkedWalks::reach(WalkInfo const& walkInfo, Elems path) const {
  if (!beginsWith(path, *walkInfo.path)) return std::nullopt;
  auto const queue = queues_.find(walkInfo.syncWalkId.second);
  if (queue == queues_.end()) return WalkReach::Passed;
  Walker const* deepest = nullptr;
  std::size_t depth = 0;
  for (std::unique_ptr<Walker> const& walker : queue->second.walkers) {
    std::size_t const prefix = walker->prefixPath_->elemSize();
    std::size_t const own = prefix + walker->leafPath_->elemSize();
    if (own <= path.size() && (deepest == nullptr || own > depth) && beginsWith(path, *walker->prefixPath_) &&
        beginsWith(path.subspan(prefix), *walker->leafPath_)) {
      deepest = walker.get();
      depth = own;
    }
  }
  return deepest == nullptr ? WalkReach::Passed : reachOf(*deepest, path.subspan(depth));
}

std::optional<WalkReach> walkReach(WalkInfo const& walkInfo, Elems path) {
  return ParkedWalks::instance().reach(walkInfo, path);
}

} // namespace Ondra
