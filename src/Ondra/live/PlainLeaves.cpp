// The pass over an object's members, with texts fetched ahead and printed values made before; then ordered by
// time.
#include "Ondra/live/PlainLeaves.h"

#include <algorithm>

#include "Ondra/GifNotifiee.h"
#include "Ondra/IR.h"
#include "Ondra/ScalarEncode.h"

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

[[gnu::always_inline]] inline void PlainLeaves::append(WalkRules::AttrPlan const& attr, std::size_t at,
                                                       Kel::PtrInterface const& object, AttrStateMap& states,
                                                       long common) {
  void const* const value = WalkRules::plainValue(attr, object);
  if (attr.isText && value != nullptr) {
    Kel::String const& text = *static_cast<Kel::String const*>(value);
    if (attr.isEntityName && text.empty()) return;
    __builtin_prefetch(text.data());
  }
  long timestamp = common != 0 ? common : states.singularTimestamp(at);
  if (timestamp == 0) [[unlikely]] // the entry is made even when nothing is sent
    timestamp = states.timestampOf(attr.attr.id(), nullptr);
  if (value == nullptr) return;
  // In place: copied from the stack, its words would be read back before they are in the cache.
  PlainLeaf& leaf = leaves_.emplace_back();
  leaf.timestamp = timestamp;
  leaf.plan = &attr;
  leaf.type = attr.valueType;
  leaf.value = value;
  if (attr.isPrinted && !takePrinted(leaf)) [[unlikely]]
    leaves_.pop_back();
}

void PlainLeaves::collect(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                          GifGnmiNotifiee& notifiee) {
  Collecting const of = begin(plan, object, notifiee);
  for (std::size_t at = plan.plainFrom; at < plan.attrs.size(); ++at)
    if (plan.attrs[at].isPlainLeaf) append(plan.attrs[at], at, object, notifiee.attrStates(), of.common);
}

void PlainLeaves::add(Collecting const& of, std::size_t at) {
  append(of.plan.attrs[at], at, of.object, of.notifiee.attrStates(), of.common);
}

PlainLeaves::Collecting PlainLeaves::begin(WalkRules::TypePlan const& plan, Kel::PtrInterface const& object,
                                           GifGnmiNotifiee& notifiee) {
  long const common = plan.plainMask == 0 ? 0 : notifiee.attrStates().commonTimestamp(plan.plainMask);
  sources_.push_back({&notifiee, leaves_.size(), common != 0});
  return {plan, object, notifiee, common};
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

PlainNode PlainLeaves::Node::plain() const {
  return {timestamp, notifiee->prefixPath(), notifiee->wirePrefix(), leaves};
}

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
    nodes_.push_back({timestamp, source.notifiee, leaves.first(size)});
    leaves = leaves.subspan(size);
  }
}

std::span<PlainLeaves::Node const> PlainLeaves::nodes() {
  nodes_.clear();
  for (std::size_t i = 0; i < sources_.size(); ++i) { // some may have added nothing
    std::size_t const end = i + 1 < sources_.size() ? sources_[i + 1].first : leaves_.size();
    addNodes(sources_[i], std::span(leaves_).subspan(sources_[i].first, end - sources_[i].first));
  }
  auto const isEarlier = [](Node const& a, Node const& b) { return a.timestamp < b.timestamp; };
  if (nodes_.size() > 1 && !std::is_sorted(nodes_.begin(), nodes_.end(), isEarlier))
    std::stable_sort(nodes_.begin(), nodes_.end(), isEarlier);
  return nodes_;
}

void PlainLeaves::moveTo(Ir& ir) {
  for (Node const& node : nodes()) {
    IrNode& to = ir.addNode(node.timestamp, node.notifiee->prefixPath());
    for (PlainLeaf const& leaf : node.leaves)
      to.addLeaf(leaf.plan->leafPath, Kel::GenericIf::copyOf(*leaf.type, leaf.value));
  }
  clear();
}

} // namespace Ondra
