// PlainLeaves: the leaves of an object that are plain scalars, read where they lie, without handles and
// without an Ir.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Ondra/responses/PlainNode.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {

class AttrStateMap;
class Ir;
class WatchedPlace;

// Collects plain leaves of one object, or of several one after the other, and gives them away node by node,
// as an Ir with the same content does. Its storage stays for the next. Between collecting and giving away
// nothing of the host's may run: the leaves lie in its objects; and their places stay. Scheduler thread.
class PlainLeaves {
public:
  // The leaves of one object and time.
  struct Node {
    long timestamp;
    WatchedPlace* place; // of the object
    std::span<PlainLeaf const> leaves;
    [[nodiscard]] PlainNode plain() const;
  };

  // The one that all walks share: none sends while another collects. Empty.
  [[nodiscard]] static PlainLeaves& shared();
  // Has what the plan's leaves need that does not lie in the object itself on its way into the cache.
  static void prefetch(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object);

  void clear() noexcept {
    size_ = 0;
    sources_.clear();
    printed_.clear();
  }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
  // Prints those of the leaves that the model's code prints, which may change and end the object: before any
  // is collected. Calls `leftOut` in the handler of what is raised, and leaves the leaf out.
  template <class LeftOut>
  void print(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object, LeftOut const& leftOut);
  // Adds the leaves of a watched object with which the plan of its type ends (`plainFrom`); a state is made
  // for each that has none yet.
  void collect(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object, WatchedPlace& place);
  // Adds them one by one, by their positions: of what `begin` was told last, as long as nothing has been sent
  // since.
  void begin(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object, WatchedPlace& place);
  void add(std::size_t at);

  // Lets go of those of an object that were collected last.
  void drop(WatchedPlace const& place) noexcept;

  // The nodes, by ascending time, within one time as collected. Valid until the next change.
  [[nodiscard]] std::span<Node const> nodes();
  // Moves all of it into an Ir.
  void moveTo(Ir& ir);

private:
  struct Source {
    WatchedPlace* place;
    std::size_t first; // of its leaves
    bool isOfOneTime;  // they are
  };
  // What leaves are collected of.
  struct Of {
    WalkRules::TypePlan const* plan;
    Kel::PtrInterface const* object;
    AttrStateMap* states; // of the object; null: not needed
    long common;          // the time of all its plain leaves; 0: they differ
  };
  void fill(Of& of, WalkRules::TypePlan const& plan, Kel::PtrInterface const& object, WatchedPlace& place);
  // Whether it has a value: it lies there then.
  [[nodiscard]] bool read(Of const& of, std::size_t at, PlainLeaf& leaf) const;
  void makeRoom(std::size_t forMore);
  // Adds the nodes of one object.
  void addNodes(Source const& source, std::span<PlainLeaf> leaves);

  // Null when there is no value.
  [[nodiscard]] static Kel::Ptr<Kel::GenericIf const> printedValue(WalkRules::AttrPlan const& plan,
                                                                   Kel::PtrInterface const& object);
  // Gives the leaf its printed value, if it has one.
  [[nodiscard]] bool takePrinted(PlainLeaf& leaf) const;

  Of of_{};                             // what `begin` was told
  std::unique_ptr<PlainLeaf[]> leaves_; // not a vector: room for an object's is made once, and left as it is
  std::size_t size_ = 0;                // of those
  std::size_t capacity_ = 0;            // likewise
  std::vector<Source> sources_;
  std::vector<Node> nodes_;
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

} // namespace Ondra
