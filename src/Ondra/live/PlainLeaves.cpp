// The pass over an object's members, with texts fetched ahead and printed values made before; then ordered by
// time.
#include "Ondra/live/PlainLeaves.h"

#include <algorithm>

#include "Ondra/GifNotifiee.h"
#include "Ondra/ScalarEncode.h"

namespace Ondra {

PlainLeaves& PlainLeaves::shared() {
  static auto* const leaves = new PlainLeaves();
  leaves->clear();
  return *leaves;
}

void PlainLeaves::prefetch(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object) {
  for (std::size_t at = plan.plainFrom; at < plan.attrs.size(); ++at) {
    if (!plan.attrs[at].isText) {
      continue;
    }
    if (auto const* const text = static_cast<Kel::String const*>(plan.attrs[at].attr.valueAt(object))) {
      __builtin_prefetch(text->data());
    }
  }
}

void PlainLeaves::collect(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                          GifGnmiNotifiee& notifiee) {
  AttrStateMap& states = notifiee.attrStates();
  for (std::size_t at = plan.plainFrom; at < plan.attrs.size(); ++at) {
    WalkRules::AttrPlan const& attr = plan.attrs[at];
    if (!attr.isPlainLeaf) {
      continue;
    }
    void const* const value = attr.attr.valueAt(object);
    if (attr.isText && value != nullptr) {
      Kel::String const& text = *static_cast<Kel::String const*>(value);
      if (attr.isEntityName && text.empty()) {
        continue;
      }
      __builtin_prefetch(text.data());
    }
    long timestamp = states.singularTimestamp(at);
    if (timestamp == 0) [[unlikely]] { // the entry is made even when nothing is sent
      timestamp = states.getAttrState(attr.attr.id(), nullptr).effectiveTimestamp();
    }
    if (value == nullptr) {
      continue;
    }
    PlainLeaf leaf{timestamp, &attr, &attr.attr.memberType().desc(), value};
    if (!attr.isPrinted || takePrinted(leaf)) [[likely]] {
      leaves_.push_back(leaf);
    }
  }
}

Kel::Ptr<Kel::GenericIf const> PlainLeaves::printedValue(WalkRules::AttrPlan const& plan,
                                                         Kel::PtrInterface const& object) {
  void const* const value = plan.attr.valueAt(object);
  return value == nullptr ? nullptr
                          : printed(Kel::Ptr<Kel::GenericIf const>(
                                Kel::GenericIf::copyOf(plan.attr.memberType().desc(), value)));
}

bool PlainLeaves::takePrinted(PlainLeaf& leaf) const {
  for (auto const& [plan, value] : printed_) {
    if (plan == leaf.plan && value) {
      leaf.type = &value->type().desc();
      leaf.value = value->data();
      return true;
    }
  }
  return false;
}

void PlainLeaves::sort() {
  auto const isEarlier = [](PlainLeaf const& a, PlainLeaf const& b) {
    return a.timestamp != b.timestamp ? a.timestamp < b.timestamp : a.plan < b.plan;
  };
  if (!std::is_sorted(leaves_.begin(), leaves_.end(), isEarlier)) {
    std::sort(leaves_.begin(), leaves_.end(), isEarlier);
  }
}

PlainNode PlainLeaves::nodeOf(GifGnmiNotifiee& notifiee, std::span<PlainLeaf const> leaves) {
  return {leaves.front().timestamp, notifiee.prefixPath(), notifiee.wirePrefix(), leaves};
}

} // namespace Ondra
