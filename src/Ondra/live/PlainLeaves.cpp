// The pass over an object's members, with texts fetched ahead and printed values made before; then ordered by
// time.
#include "Ondra/live/PlainLeaves.h"

#include <algorithm>

#include "Ondra/GifNotifiee.h"
#include "Ondra/IR.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/live/WatchedPlace.h"

namespace Ondra {

PlainLeaves& PlainLeaves::shared() {
  static auto* const leaves = new PlainLeaves();
  leaves->clear();
  return *leaves;
}

void PlainLeaves::prefetch(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object) {
  for (std::uint32_t const at : plan.plainTexts) {
    void const* const text = WalkRules::plainValue(plan.attrs[at], object);
    if (text != nullptr) __builtin_prefetch(static_cast<Kel::String const*>(text)->data());
  }
}

// In place: copied from the stack, its words would be read back before they are in the cache.
[[gnu::always_inline]] inline bool PlainLeaves::read(Of const& of, std::size_t at, PlainLeaf& leaf) const {
  WalkRules::AttrPlan const& attr = of.plan->attrs[at];
  void const* const value = WalkRules::plainValue(attr, *of.object);
  if (attr.isText && value != nullptr) {
    Kel::String const& text = *static_cast<Kel::String const*>(value);
    if (attr.isEntityName && text.empty()) return false;
    __builtin_prefetch(text.data());
  }
  long timestamp = of.common != 0 ? of.common : of.states->singularTimestamp(at);
  if (timestamp == 0) [[unlikely]] // the entry is made even when nothing is sent
    timestamp = of.states->timestampOf(attr.attr.id(), nullptr);
  if (value == nullptr) return false;
  leaf.timestamp = timestamp;
  leaf.plan = &attr;
  leaf.type = attr.valueType;
  leaf.value = value;
  return !attr.isPrinted || takePrinted(leaf);
}

[[gnu::noinline]] void PlainLeaves::makeRoom(std::size_t forMore) {
  capacity_ = std::max(size_ + forMore, capacity_ * 2);
  auto room = std::make_unique_for_overwrite<PlainLeaf[]>(capacity_);
  std::copy_n(leaves_.get(), size_, room.get());
  leaves_ = std::move(room);
}

// With room for all of its leaves.
[[gnu::always_inline]] inline void PlainLeaves::fill(Of& of, WalkRules::TypePlan const& plan,
                                                     Kel::PtrInterface const& object, WatchedPlace& place) {
  of.plan = &plan;
  of.object = &object;
  of.states = place.notifiee() == nullptr ? nullptr : &place.notifiee()->attrStates();
  of.common = 0;
  if (of.states == nullptr)
    of.common = place.standIn()->attrStates().keptTime();
  else if (plan.plainMask != 0)
    of.common = of.states->commonTimestamp(plan.plainMask);
  if (size_ + plan.attrs.size() > capacity_) [[unlikely]]
    makeRoom(plan.attrs.size());
  sources_.push_back({&place, size_, of.common != 0});
}

void PlainLeaves::collect(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                          WatchedPlace& place) {
  Of of;
  fill(of, plan, object, place);
  PlainLeaf* to = leaves_.get() + size_;
  for (std::size_t at = plan.plainFrom; at < plan.attrs.size(); ++at)
    if (plan.attrs[at].isPlainLeaf) to += read(of, at, *to) ? 1 : 0;
  size_ = static_cast<std::size_t>(to - leaves_.get());
}

void PlainLeaves::begin(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                        WatchedPlace& place) {
  fill(of_, plan, object, place);
}

void PlainLeaves::add(std::size_t at) { size_ += read(of_, at, leaves_[size_]) ? 1 : 0; }

void PlainLeaves::drop(WatchedPlace const& place) noexcept {
  for (; !sources_.empty() && sources_.back().place == &place; sources_.pop_back())
    size_ = sources_.back().first;
}

Kel::Ptr<Kel::GenericIf const> PlainLeaves::printedValue(WalkRules::AttrPlan const& plan,
                                                         Kel::PtrInterface const& object) {
  void const* const value = plan.attr.valueAt(object);
  return value == nullptr
             ? nullptr
             : printed(Kel::Ptr<Kel::GenericIf const>(Kel::GenericIf::copyOf(*plan.valueType, value)));
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

PlainNode PlainLeaves::Node::plain() const { return {timestamp, place->path, place->wire(), leaves}; }

// They are in the order of the attributes.
void PlainLeaves::addNodes(Source const& source, std::span<PlainLeaf> leaves) {
  auto const isEarlier = [](PlainLeaf const& a, PlainLeaf const& b) { return a.timestamp < b.timestamp; };
  bool sorted = false;
  while (!leaves.empty()) {
    long const timestamp = leaves.front().timestamp;
    std::size_t size = source.isOfOneTime ? leaves.size() : 1;
    while (size < leaves.size() && leaves[size].timestamp == timestamp)
      ++size;
    if (size < leaves.size() && !sorted) {
      sorted = true;
      std::stable_sort(leaves.begin(), leaves.end(), isEarlier);
      continue;
    }
    nodes_.push_back({timestamp, source.place, leaves.first(size)});
    leaves = leaves.subspan(size);
  }
}

std::span<PlainLeaves::Node const> PlainLeaves::nodes() {
  nodes_.clear();
  for (std::size_t i = 0; i < sources_.size(); ++i) { // some may have added nothing
    std::size_t const end = i + 1 < sources_.size() ? sources_[i + 1].first : size_;
    addNodes(sources_[i], std::span(leaves_.get() + sources_[i].first, end - sources_[i].first));
  }
  auto const isEarlier = [](Node const& a, Node const& b) { return a.timestamp < b.timestamp; };
  if (nodes_.size() > 1 && !std::is_sorted(nodes_.begin(), nodes_.end(), isEarlier))
    std::stable_sort(nodes_.begin(), nodes_.end(), isEarlier);
  return nodes_;
}

void PlainLeaves::moveTo(Ir& ir) {
  for (Node const& node : nodes()) {
    IrNode& to = ir.addNode(node.timestamp, node.place->path.get());
    for (PlainLeaf const& leaf : node.leaves)
      to.addLeaf(leaf.plan->leafPath, Kel::GenericIf::copyOf(*leaf.type, leaf.value));
  }
  clear();
}

} // namespace Ondra
