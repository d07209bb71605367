// Times of singular attributes, all the same or in an array; nodes of members, and of whoever is asked for,
// in a hash set. A time that is taken moves the clock on.
#include "Ondra/AttrStateMap.h"

#include <cstddef>
#include <memory>
#include <new>
#include <tuple>

#include "Kel/ActivityClock.h"
#include "Kel/Allocator.h"
#include "Kel/Attr.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/PathFormat.h"
#include "Ondra/PtrResolution.h"
#include "Ondra/live/AttrStateNodes.h"
#include "Tovak/Trace.h"

namespace Ondra {
namespace {

constexpr char const* kCategory = "AttrStateMap";

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("Ondra", false);
  return handler;
}

long loopTime() { return Kel::activityManagerStatus()->activityLoopExecNsTime(); }

// The loop's time, which is moved on when it is this one.
long laterThan(long timestamp) {
  Kel::ActivityManagerStatus& clock = *Kel::activityManagerStatus();
  if (timestamp == clock.activityLoopExecNsTime()) clock.activityLoopExecNsTimeInc(1);
  return clock.activityLoopExecNsTime();
}

bool sameKey(Kel::Ptr<Kel::GenericIf const> const& a, Kel::Ptr<Kel::GenericIf const> const& b) {
  return a == b || (a && b && a->equals(*b));
}

} // namespace

// --- AttrStateNode -----------------------------------------------------------------------------------

AttrStateNode::AttrStateNode(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key)
    : timestamp_(loopTime())
    , id_(absoluteId(id))
    , key_(resolveGifKeyPtr(key)) {
  if (key_) key_ = key_->detachedKey();
}

long AttrStateNode::advanceTimestamp() const { return timestamp_ = laterThan(timestamp_); }

long AttrStateNode::updatedTimestamp() const {
  advanceTimestamp();
  TOVAK_TRACE(trace(), 9, kCategory, "{}: timestamp updated to {}", keyString(nullptr), timestamp_);
  return timestamp_;
}

long AttrStateNode::effectiveTimestamp() const {
  TOVAK_TRACE(trace(), 9, kCategory, "{}: timestamp fetched as {}", keyString(nullptr), timestamp_);
  return timestamp_;
}

std::string AttrStateNode::keyString(GifGnmiNotifiee const* notifiee) const {
  std::string const key = key_ ? key_->strRep() : "nullptr";
  if (notifiee == nullptr)
    return fmt::format("[AttrStateNode for notifiee: ?, attrId: {}, gifKey: {}]", id_, key);
  Kel::KelAttr const attr = notifiee->objectType().attr(id_);
  return fmt::format("[AttrStateNode for notifiee: {}, attr: {}, gifKey: {}]", notifiee->prefixPath(),
                     attr ? attr.name().view() : std::string_view("?"), key);
}

std::string AttrStateNode::stateString(GifGnmiNotifiee const* notifiee) const {
  return fmt::format("{}: timestamp={}", keyString(notifiee), timestamp_);
}

bool operator==(AttrStateNode const& a, AttrStateNode const& b) {
  return a.id_ == b.id_ && sameKey(a.key_, b.key_);
}

bool operator<(AttrStateNode const& a, AttrStateNode const& b) {
  if (a.id_ != b.id_) return a.id_ < b.id_;
  return a.key_ && b.key_ && a.key_->compare(*b.key_) < 0;
}

// --- AttrStateMap ------------------------------------------------------------------------------------

std::uint32_t AttrStateMap::traceMask() { return trace().mask(); }

namespace {

std::size_t attrCountOf(GifGnmiNotifiee const* owner) {
  return owner == nullptr || !owner->objectType() ? 0 : owner->objectType().attrCount();
}

using Storage = Kel::MemAllocator<std::max_align_t, AttrStateMap>;

std::size_t unitsOf(std::size_t bytes) {
  return (bytes + sizeof(std::max_align_t) - 1) / sizeof(std::max_align_t);
}

} // namespace

AttrStateMap::~AttrStateMap() {
  if (hasBlock()) {
    std::size_t const units = unitsOf(sizeof(Block) + rest_.block->count * sizeof(long));
    std::destroy_at(rest_.block);
    Storage().deallocate(reinterpret_cast<std::max_align_t*>(rest_.block), units);
  }
}

AttrStateMap::Block& AttrStateMap::block() const {
  if (!hasBlock()) {
    std::size_t const count = attrCountOf(owner_);
    void* const storage = Storage().allocate(unitsOf(sizeof(Block) + count * sizeof(long)));
    auto* const made = new (storage) Block{count, nullptr};
    for (std::size_t at = 0; at < count; ++at)
      new (made->times() + at) long(timeAt(at));
    rest_.block = made;
    seen_ &= kKept;
    otherIs(kHasBlock);
  }
  return *rest_.block;
}

AttrStateNodes& AttrStateMap::nodes() const {
  std::unique_ptr<AttrStateNodes>& nodes = block().nodes;
  if (!nodes) nodes = std::make_unique<AttrStateNodes>();
  return *nodes;
}

// --- times of singular attributes ----------------------------------------------------------------------

std::size_t AttrStateMap::positionOf(Kel::AttributeId id, Key const& key) const noexcept {
  if (key || owner_ == nullptr || !owner_->objectType()) return kNowhere;
  auto const& byId = owner_->objectType().desc().byId;
  auto const at = static_cast<std::size_t>(id);
  return at < byId.size() && byId[at] != nullptr ? byId[at]->index : kNowhere;
}

std::size_t AttrStateMap::untraced(Kel::AttributeId id, Key const& key) const {
  return trace().isOn(9) ? kNowhere : positionOf(id, key);
}

void AttrStateMap::timeIs(std::size_t position, long time) const {
  std::uint64_t const bit = position < kInMask ? std::uint64_t{1} << position : 0;
  std::uint64_t const others = seen_ & ~(other() == position + 1 ? bit | kOtherMask : bit);
  bool const isCommon = (others & ~kOtherMask) == 0 || time == common_;
  bool const fits = time == 0 || isCommon || (others & kOtherMask) == 0;
  if (hasBlock() || bit == 0 || time == kInNode || !fits) {
    block().times()[position] = time;
    return;
  }
  seen_ = others;
  if (time != 0 && isCommon) {
    common_ = time;
    seen_ |= bit;
  } else if (time != 0) {
    rest_.other = time;
    otherIs(position + 1);
  }
}

bool AttrStateMap::keep(long time) {
  if (keepsTime()) return common_ == time;
  bool const isFree =
      !hasBlock() && ((seen_ & ~kOtherMask) == 0 || common_ == time) && attrCountOf(owner_) < kInMask;
  if (isFree) {
    common_ = time;
    seen_ |= kKept;
  }
  return isFree;
}

long AttrStateMap::makeCommon(std::uint64_t positions) {
  long const now = loopTime();
  bool const isFree = (seen_ & ~kOtherMask) == 0;
  bool const hasAnother = other() != kNone && (hasBlock() || ((positions >> (other() - 1)) & 1) != 0);
  if (hasAnother || (!isFree && common_ != now)) return 0;
  common_ = now;
  seen_ |= positions;
  return now;
}

long AttrStateMap::nodeTime(std::size_t position) const noexcept {
  return nodes().find({owner_->objectType().attrAt(position).id(), nullptr})->timestamp_;
}

AttrStateNode const& AttrStateMap::nodeOf(Kel::AttributeId id, std::size_t position) const {
  long const time = timeAt(position);
  AttrStateNode const& node = *nodes().emplace(id, nullptr).first;
  if (time != kInNode) {
    node.timestamp_ = time;
    timeIs(position, kInNode);
  }
  return node;
}

long AttrStateMap::timestampOf(Kel::AttributeId rawId, Key const& rawKey) {
  Kel::AttributeId const id = absoluteId(rawId);
  std::size_t const position = untraced(id, rawKey);
  if (position == kNowhere) return getAttrState(id, rawKey).effectiveTimestamp();
  if (timeAt(position) == 0) timeIs(position, loopTime());
  return singularTimestamp(position);
}

long AttrStateMap::changedTimestamp(Kel::AttributeId rawId, Key const& rawKey) {
  Kel::AttributeId const id = absoluteId(rawId);
  if (std::size_t const position = untraced(id, rawKey); position != kNowhere)
    return changedSingular(position);
  AttrStateNode const* const known = queryAttrState(id, rawKey);
  return known != nullptr ? known->updatedTimestamp() : getAttrState(id, rawKey).effectiveTimestamp();
}

long AttrStateMap::changedSingular(std::size_t position) {
  long const time = timeAt(position);
  if (time == kInNode) [[unlikely]]
    return nodeOf(owner_->objectType().attrAt(position).id(), position).updatedTimestamp();
  long const now = time == 0 ? loopTime() : laterThan(time);
  timeIs(position, now);
  return now;
}

bool AttrStateMap::has(Kel::AttributeId rawId, Key const& rawKey) const {
  Kel::AttributeId const id = absoluteId(rawId);
  std::size_t const position = untraced(id, rawKey);
  return position != kNowhere ? timeAt(position) != 0 : queryAttrState(id, rawKey) != nullptr;
}

// --- nodes ---------------------------------------------------------------------------------------------

AttrStateNode const& AttrStateMap::getAttrState(Kel::AttributeId rawId, Key const& rawKey) {
  Kel::AttributeId const id = absoluteId(rawId);
  Key const key = resolveGifKeyPtr(rawKey);
  AttrStateNode const* node = nullptr;
  bool made = false;
  if (std::size_t const position = positionOf(id, key); position != kNowhere) {
    made = timeAt(position) == 0;
    if (made) timeIs(position, loopTime());
    node = &nodeOf(id, position);
  } else {
    std::tie(node, made) = nodes().emplace(id, key);
  }
  if (made)
    TOVAK_TRACE(trace(), 9, kCategory, "{} created", node->keyString(owner_));
  else
    TOVAK_TRACE(trace(), 9, kCategory, "found {}", node->stateString(owner_));
  return *node;
}

AttrStateNode const* AttrStateMap::queryAttrState(Kel::AttributeId rawId, Key const& rawKey) const {
  Kel::AttributeId const id = absoluteId(rawId);
  Key const key = resolveGifKeyPtr(rawKey);
  AttrStateNode const* node = nullptr;
  if (std::size_t const position = positionOf(id, key); position != kNowhere)
    node = timeAt(position) == 0 ? nullptr : &nodeOf(id, position);
  else if (AttrStateNodes const* const nodes = nodesSoFar())
    node = nodes->find({id, key});
  if (node != nullptr)
    TOVAK_TRACE(trace(), 9, kCategory, "found {}", node->stateString(owner_));
  else
    TOVAK_TRACE(trace(), 9, kCategory, "{} does not exist", AttrStateNode(id, key).keyString(owner_));
  return node;
}

std::optional<long> AttrStateMap::delAttrState(Kel::AttributeId rawId, Key const& rawKey) {
  Kel::AttributeId const id = absoluteId(rawId);
  Key const key = resolveGifKeyPtr(rawKey);
  AttrStateNodes* const nodes = nodesSoFar();
  bool erased = nodes != nullptr && nodes->erase({id, key});
  if (std::size_t const position = positionOf(id, key); position != kNowhere) {
    erased = timeAt(position) != 0;
    timeIs(position, 0);
  }
  if (!erased) {
    TOVAK_TRACE(trace(), 9, kCategory, "{} does not exist", AttrStateNode(id, key).keyString(owner_));
    return std::nullopt;
  }
  Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1);
  TOVAK_TRACE(trace(), 9, kCategory, "{}: deleted at {}", AttrStateNode(id, key).keyString(owner_),
              loopTime());
  return loopTime();
}

template <typename Visit>
void AttrStateMap::forEach(Visit const& visit) const {
  for (std::size_t at = 0; at < attrCountOf(owner_); ++at) {
    if (long const time = timeAt(at); time != 0 && time != kInNode) {
      AttrStateNode const node(owner_->objectType().attrAt(at).id(), nullptr);
      node.timestamp_ = time;
      visit(node);
    }
  }
  if (AttrStateNodes const* const nodes = nodesSoFar()) nodes->forEach(visit);
}

std::vector<Kel::Ptr<Kel::GenericIf const>> AttrStateMap::keysOf(Kel::AttributeId id) const {
  std::vector<Key> keys;
  forEach([&](AttrStateNode const& node) {
    if (node.id_ == id) keys.push_back(node.key_);
  });
  return keys;
}

std::size_t AttrStateMap::size() const {
  std::size_t count = 0;
  forEach([&count](AttrStateNode const&) { ++count; });
  return count;
}

std::string AttrStateMap::dumpState() const {
  std::string text;
  forEach([&](AttrStateNode const& node) { text += fmt::format("\n {}", node.stateString(owner_)); });
  return text;
}

} // namespace Ondra
