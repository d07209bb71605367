// Ondra::Ir: what a walk has found, before it becomes messages.
//
// Invariants
// 1. A prefix stands in `insertionOrder_` exactly once for each node of the node map, in the order in which
//    the nodes were first asked for. That order, under ascending timestamps, is the order of the
//    notifications.
// 2. Nodes and leaves stay where they are until `clear`: references to them survive further additions.
// 3. `lastNode_` is null or the node of (`lastTimestamp_`, `lastPrefix_`).
// 4. What is kept spare holds neither leaves nor paths: clearing lets go of every object of the model.
#pragma once

#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/Path.h"
#include "Tovak/String.h"

namespace Ondra {

class ArenaRespMsg;
class Ir;
class IrNode;

// One leaf: a path relative to the prefix of its node, and what is there.
struct KTD_EXPORT IrLeaf {
  using Handle = Kel::Ptr<Kel::GenericIf const>;
  // The elements of a leaf list, in order; none is null.
  using LeafList = std::vector<Handle, Kel::MemAllocator<Handle, IrLeaf>>;
  // One scalar, where null says that the leaf was deleted; or a leaf list.
  using Value = std::variant<Handle, LeafList>;

  // "leafPath:/mtu val:1500"; the value is "nullptr" for a deleted leaf, "[1 2]" for a leaf list.
  [[nodiscard]] Tovak::String toString() const;

  Kel::Ptr<Path const> leafPath;
  Value value;
};

// The leaves below one prefix at one time.
class KTD_EXPORT IrNode {
public:
  // Blocks of the size that the model's free lists hand out.
  using LeafQueue = std::deque<IrLeaf, Kel::MemAllocator<IrLeaf>>;

  // Appends a leaf with one value (null: deleted). That a path is there already is not looked at: added
  // twice, it is sent twice. The leaf stays valid until the Ir is cleared.
  IrLeaf& addLeaf(Kel::Ptr<Path const> leafPath, Kel::Ptr<Kel::GenericIf const> value) {
    return leaves.emplace_back(IrLeaf{std::move(leafPath), IrLeaf::Value(std::move(value))});
  }

  // In the order added. Leaf lists are appended here directly.
  LeafQueue leaves;
};

// The nodes of one time, by prefix.
struct KTD_EXPORT OrderedPrefixNodeMap {
  using PrefixPtr = Kel::Ptr<Path const>;
  using PrefixToNodeType =
      std::unordered_map<PrefixPtr, IrNode, std::hash<PrefixPtr>, std::equal_to<PrefixPtr>,
                         Kel::MemAllocator<std::pair<PrefixPtr const, IrNode>, IrNode>>;

  PrefixToNodeType prefixToNode_;
  std::vector<PrefixPtr, Kel::MemAllocator<PrefixPtr, IrNode>> insertionOrder_;
};

// Makes something out of an Ir, node by node: see `Ir::encode`. Responses are one such thing (RespEncoder).
class KTD_EXPORT IrEncoder {
public:
  virtual ~IrEncoder() = default;
  // The node may be without leaves. The references are valid during the call.
  virtual void encodeNode(long timestamp, Kel::Ptr<Path const> const& prefix, IrNode const& node) = 0;

  // The leaves that were left out, as deletes, or null: no message can hold their values. A subscriber's tree
  // holds nothing in their place when it is sent these too. The encoder begins anew.
  [[nodiscard]] std::shared_ptr<Ir> takeLeftOut() noexcept { return std::exchange(leftOut_, nullptr); }

protected:
  void leaveOut(long timestamp, Kel::Ptr<Path const> const& prefix, Kel::Ptr<Path const> const& leafPath);
  void forgetLeftOut() noexcept { leftOut_.reset(); }

private:
  std::shared_ptr<Ir> leftOut_;
};

// Collects leaves by time and prefix. Made with `std::allocate_shared<Ir>(Tovak::Allocator<Ir>())` (IrIs),
// shared by the walkers of one walk, on the scheduler thread. Emptied after each push and filled again: then
// it keeps some storage, so that further objects cost no call of the general heap. Until it is cleared it
// keeps paths and values alive.
class KTD_EXPORT Ir {
public:
  using TimestampToPrefixNodeType =
      std::map<long, OrderedPrefixNodeMap, std::less<>,
               Kel::MemAllocator<std::pair<long const, OrderedPrefixNodeMap>, Ir>>;

  Ir() = default;
  Ir(Ir const&) = delete;
  Ir& operator=(Ir const&) = delete;
  [[nodiscard]] static std::shared_ptr<Ir> IrIs();

  // The node of that time (nanoseconds since the Unix epoch) and prefix, made when it is missing. A node is
  // sent even when no leaf is added to it.
  IrNode& addNode(long timestamp, Kel::Ptr<Path const> const& prefix) {
    if (lastNode_ != nullptr && timestamp == lastTimestamp_ && prefix.get() == lastPrefix_.get()) [[likely]]
      return *lastNode_;
    return findNode(timestamp, prefix);
  }

  // Whether any node was added since the last `clear`.
  [[nodiscard]] bool empty() const noexcept { return timestampToPrefixNode_.empty(); }
  // Lets go of all content. Keeps the storage of a few nodes.
  void clear();
  // Lets go of the nodes at and below that prefix.
  void drop(Path const& prefix);

  // The content, in ascending order of time. Valid until the next non-const call.
  [[nodiscard]] TimestampToPrefixNodeType const& timestampToPrefixNode() const noexcept {
    return timestampToPrefixNode_;
  }

  // Hands every node to `encoder`: by ascending time, within one time in the order of addition. REQUIRES
  // content (a fatal assertion).
  void encode(IrEncoder& encoder) const;

  // The responses, at most 1000 leaves in each. They do not depend on this Ir, whose content stays. REQUIRES
  // content (a fatal assertion), and of every leaf a scalar type (likewise).
  [[nodiscard]] std::vector<std::shared_ptr<ArenaRespMsg>> toSubResp() const;

  // All content over several lines, for traces; the empty text when there is none.
  [[nodiscard]] Tovak::String toString() const;

private:
  using NodeHandle = OrderedPrefixNodeMap::PrefixToNodeType::node_type;
  using TimeHandle = TimestampToPrefixNodeType::node_type;

  // What a cleared Ir keeps for the next object: an object has few nodes, and a walk few objects in one Ir.
  static constexpr std::size_t kSpareNodesMax = 16;

  IrNode& findNode(long timestamp, Kel::Ptr<Path const> const& prefix);
  OrderedPrefixNodeMap& findTime(long timestamp);
  OrderedPrefixNodeMap::PrefixToNodeType::iterator addTo(OrderedPrefixNodeMap& nodes,
                                                         Kel::Ptr<Path const> const& prefix);
  void recycle(OrderedPrefixNodeMap& nodes);

  long lastTimestamp_ = 0;
  Kel::Ptr<Path const> lastPrefix_;
  IrNode* lastNode_ = nullptr;
  TimestampToPrefixNodeType timestampToPrefixNode_;
  TimeHandle spareTime_;
  absl::InlinedVector<NodeHandle, kSpareNodesMax> spareNodes_;
};

} // namespace Ondra
