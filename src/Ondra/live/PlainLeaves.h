// PlainLeaves: the leaves of an object that are plain scalars, read where they lie, without handles and
// without an Ir.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Ondra/responses/PlainNode.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {

class GifGnmiNotifiee;

// Collects plain leaves and gives them away node by node. Its storage stays for the next object. Scheduler
// thread.
class PlainLeaves {
public:
  // The one that all walks share: none sends while another collects.
  [[nodiscard]] static PlainLeaves& shared();
  // Has what the plan's leaves need that does not lie in the object itself on its way into the cache.
  static void prefetch(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object);

  void clear() noexcept {
    leaves_.clear();
    printed_.clear();
  }
  // Prints those of the leaves that the model's code prints, which may change and end the object: before any
  // is collected. Calls `leftOut` in the handler of what is raised, and leaves the leaf out.
  template <class LeftOut>
  void print(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object, LeftOut const& leftOut);
  // Adds the leaves of a watched object with which the plan of its type ends (`plainFrom`); a state is made
  // for each that has none yet.
  void collect(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object, GifGnmiNotifiee& notifiee);

  [[nodiscard]] bool areOfOneTime() const {
    return std::all_of(leaves_.begin(), leaves_.end(),
                       [this](PlainLeaf const& leaf) { return leaf.timestamp == leaves_.front().timestamp; });
  }
  // Calls `visit` with the nodes, by ascending time. `notifiee` is the one collected from; the visits must
  // not change its object.
  template <class Visit>
  void forEachNode(GifGnmiNotifiee& notifiee, Visit const& visit);

private:
  // Sorts by time, and within one time as collected.
  void sort();
  [[nodiscard]] static PlainNode nodeOf(GifGnmiNotifiee& notifiee, std::span<PlainLeaf const> leaves);

  // Null when there is no value.
  [[nodiscard]] static Kel::Ptr<Kel::GenericIf const> printedValue(WalkRules::AttrPlan const& plan,
                                                                   Kel::PtrInterface const& object);
  // Gives the leaf its printed value, if it has one.
  [[nodiscard]] bool takePrinted(PlainLeaf& leaf) const;

  std::vector<PlainLeaf> leaves_;
  std::vector<std::pair<WalkRules::AttrPlan const*, Kel::Ptr<Kel::GenericIf const>>> printed_;
};

template <class LeftOut>
void PlainLeaves::print(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                        LeftOut const& leftOut) {
  for (std::size_t at = plan.plainFrom; at < plan.attrs.size(); ++at) {
    if (WalkRules::AttrPlan const& attr = plan.attrs[at]; attr.isPlainLeaf && attr.isPrinted) {
      try {
        printed_.emplace_back(&attr, printedValue(attr, object));
      } catch (...) {
        leftOut(attr.attr);
      }
    }
  }
}

template <class Visit>
void PlainLeaves::forEachNode(GifGnmiNotifiee& notifiee, Visit const& visit) {
  sort();
  std::span<PlainLeaf const> left = leaves_;
  while (!left.empty()) {
    std::size_t size = 1;
    while (size < left.size() && left[size].timestamp == left.front().timestamp) {
      ++size;
    }
    visit(nodeOf(notifiee, left.first(size)));
    left = left.subspan(size);
  }
}

} // namespace Ondra
