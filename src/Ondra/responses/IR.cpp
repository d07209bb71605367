// Filling, emptying and reading. Emptied nodes are kept spare, so that the next walk finds its storage warm.
#include "Ondra/IR.h"

#include <fmt/format.h>

#include <iterator>
#include <stdexcept>
#include <string_view>

#include "Ondra/PathFormat.h"
#include "Ondra/rules/WalkRules.h"
#include "Tovak/Allocator.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"

namespace Ondra {
namespace {

constexpr std::size_t kSpareBucketsMax = 64;

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraIr", false);
  return handler;
}

std::string textOf(IrLeaf::Handle const& value) {
  if (!value) return "nullptr";
  return value->type().hasGnmiStrRep() ? value->gnmiStrRep() : value->strRep();
}

} // namespace

Tovak::String IrLeaf::toString() const {
  if (auto const* const one = std::get_if<Handle>(&value))
    return fmt::format("leafPath:{} val:{}", leafPath, textOf(*one));
  std::vector<std::string> texts;
  for (Handle const& element : std::get<LeafList>(value))
    texts.push_back(textOf(element));
  return fmt::format("leafPath:{} val:[{}]", leafPath, fmt::join(texts, " "));
}

void IrEncoder::leaveOut(long timestamp, Kel::Ptr<Path const> const& prefix,
                         Kel::Ptr<Path const> const& leafPath) {
  TOVAK_TRACE(debugHandler(), 1, "OndraIr", "left out {} below {}: a text that is not UTF-8", leafPath,
              prefix);
  if (!leftOut_) leftOut_ = Ir::IrIs();
  leftOut_->addNode(timestamp, prefix).addLeaf(leafPath, nullptr);
}

std::shared_ptr<Ir> Ir::IrIs() { return std::allocate_shared<Ir>(Tovak::Allocator<Ir>()); }

// --- filling -------------------------------------------------------------------------------------

// The walkers of one object may hold different copies of its prefix: these are compared before the tables are
// searched.
IrNode& Ir::findNode(long timestamp, Kel::Ptr<Path const> const& prefix) {
  if (lastNode_ == nullptr || timestamp != lastTimestamp_ || !lastPrefix_->isEqual(prefix)) {
    OrderedPrefixNodeMap& nodes = findTime(timestamp);
    auto found = nodes.prefixToNode_.find(prefix);
    if (found == nodes.prefixToNode_.end()) {
      nodes.insertionOrder_.push_back(prefix);
      found = addTo(nodes, prefix);
    }
    lastTimestamp_ = timestamp;
    lastNode_ = &found->second;
  }
  lastPrefix_ = prefix;
  return *lastNode_;
}

OrderedPrefixNodeMap::PrefixToNodeType::iterator Ir::addTo(OrderedPrefixNodeMap& nodes,
                                                           Kel::Ptr<Path const> const& prefix) {
  if (spareNodes_.empty()) return nodes.prefixToNode_.try_emplace(prefix).first;
  spareNodes_.back().key() = prefix;
  auto const place = nodes.prefixToNode_.insert(std::move(spareNodes_.back())).position;
  spareNodes_.pop_back();
  return place;
}

OrderedPrefixNodeMap& Ir::findTime(long timestamp) {
  auto const place = timestampToPrefixNode_.lower_bound(timestamp);
  if (place != timestampToPrefixNode_.end() && place->first == timestamp) return place->second;
  if (spareTime_.empty()) return timestampToPrefixNode_.try_emplace(place, timestamp)->second;
  spareTime_.key() = timestamp;
  return timestampToPrefixNode_.insert(place, std::move(spareTime_))->second;
}

// --- emptying ------------------------------------------------------------------------------------

void Ir::clear() {
  lastNode_ = nullptr;
  lastPrefix_.reset();
  for (auto& [timestamp, nodes] : timestampToPrefixNode_)
    recycle(nodes);
  if (spareTime_.empty() && !timestampToPrefixNode_.empty()) {
    TimeHandle spare = timestampToPrefixNode_.extract(timestampToPrefixNode_.begin());
    if (spare.mapped().prefixToNode_.bucket_count() <= kSpareBucketsMax) spareTime_ = std::move(spare);
  }
  timestampToPrefixNode_.clear();
}

void Ir::drop(Path const& prefix) {
  lastNode_ = nullptr;
  lastPrefix_.reset();
  for (auto time = timestampToPrefixNode_.begin(); time != timestampToPrefixNode_.end();) {
    OrderedPrefixNodeMap& nodes = time->second;
    std::erase_if(nodes.insertionOrder_, [&](Kel::Ptr<Path const> const& at) {
      bool const goes = WalkRules::isAtOrBelow(prefix, *at);
      if (goes) nodes.prefixToNode_.erase(Kel::Ptr<Path const>(at));
      return goes;
    });
    time = nodes.insertionOrder_.empty() ? timestampToPrefixNode_.erase(time) : std::next(time);
  }
}

void Ir::recycle(OrderedPrefixNodeMap& nodes) {
  nodes.insertionOrder_.clear();
  while (!nodes.prefixToNode_.empty() && spareNodes_.size() < kSpareNodesMax) {
    NodeHandle spare = nodes.prefixToNode_.extract(nodes.prefixToNode_.begin());
    spare.mapped().leaves.clear();
    spare.key().reset();
    spareNodes_.push_back(std::move(spare));
  }
  nodes.prefixToNode_.clear();
}

// --- reading -------------------------------------------------------------------------------------

void Ir::encode(IrEncoder& encoder) const {
  TOVAK_ASSERT(!empty(), debugHandler(), "empty input map");
  for (auto const& [timestamp, nodes] : timestampToPrefixNode_) {
    for (Kel::Ptr<Path const> const& prefix : nodes.insertionOrder_) {
      auto const found = nodes.prefixToNode_.find(prefix);
      if (found == nodes.prefixToNode_.end())
        throw std::out_of_range("_Map_base::at"); // of one text, whatever the standard library's own is
      encoder.encodeNode(timestamp, prefix, found->second);
    }
  }
}

Tovak::String Ir::toString() const {
  Tovak::String text;
  auto const out = std::back_inserter(text);
  for (auto const& [timestamp, nodes] : timestampToPrefixNode_) {
    fmt::format_to(out, "ts:{}\n", timestamp);
    fmt::format_to(out, "{}insertionOrder_:<{}>\n", "   ", fmt::join(nodes.insertionOrder_, ", "));
    for (auto const& [prefix, node] : nodes.prefixToNode_) {
      fmt::format_to(out, "{}prefixPath:{}\n", "      ", prefix);
      for (IrLeaf const& leaf : node.leaves)
        fmt::format_to(out, "{}{}\n", "         ", leaf.toString());
    }
  }
  return text;
}

} // namespace Ondra
