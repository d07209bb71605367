// Singular attributes have a place each in one array, members a node in a hash set; a time that is taken
// moves the clock on.
#include "Ondra/AttrStateMap.h"

#include <absl/hash/hash.h>

#include "Kel/ActivityClock.h"
#include "Kel/Attr.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/PathFormat.h"
#include "Ondra/PtrResolution.h"
#include "Tovak/Trace.h"

namespace Ondra {
namespace {

constexpr char const* kCategory = "AttrStateMap";

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("Ondra", false);
  return handler;
}

long loopTime() { return Kel::activityManagerStatus()->activityLoopExecNsTime(); }

bool sameKey(Kel::Ptr<Kel::GenericIf const> const& a, Kel::Ptr<Kel::GenericIf const> const& b) {
  return a == b || (a && b && a->equals(*b));
}

} // namespace

// --- AttrStateNode -----------------------------------------------------------------------------------

AttrStateNode::AttrStateNode(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key)
    : timestamp_(loopTime())
    , id_(absoluteId(id))
    , key_(resolveGifKeyPtr(key)) {
  if (key_) {
    key_ = key_->detachedKey();
  }
}

long AttrStateNode::advanceTimestamp() const {
  if (timestamp_ == loopTime()) {
    Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1);
  }
  timestamp_ = loopTime();
  return timestamp_;
}

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
  if (notifiee == nullptr) {
    return fmt::format("[AttrStateNode for notifiee: ?, attrId: {}, gifKey: {}]", id_, key);
  }
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
  if (a.id_ != b.id_) {
    return a.id_ < b.id_;
  }
  return a.key_ && b.key_ && a.key_->compare(*b.key_) < 0;
}

// --- AttrStateMap ------------------------------------------------------------------------------------

std::size_t AttrStateMap::Hash::operator()(Probe const& probe) const {
  return absl::HashOf(probe.id, probe.key ? probe.key->hash() : 0);
}

bool AttrStateMap::Equal::operator()(AttrStateNode const& a, Probe const& b) const {
  return a.id_ == b.id && sameKey(a.key_, b.key);
}

std::uint32_t AttrStateMap::traceMask() { return trace().mask(); }

AttrStateMap::~AttrStateMap() {
  if (singular_ != nullptr) {
    std::destroy_n(singular_, places_);
    Kel::MemAllocator<AttrStateNode, AttrStateMap>().deallocate(singular_, places_);
  }
}

AttrStateNode* AttrStateMap::singularPlace(Kel::AttributeId id) const noexcept {
  if (singular_ == nullptr) {
    return nullptr;
  }
  auto const& byId = owner_->objectType().desc().byId;
  auto const at = static_cast<std::size_t>(id);
  return at < byId.size() && byId[at] != nullptr ? singular_ + byId[at]->index : nullptr;
}

AttrStateNode* AttrStateMap::makeSingularPlace(Kel::AttributeId id) {
  if (singular_ == nullptr && owner_ != nullptr && owner_->objectType()) {
    places_ = static_cast<std::uint32_t>(owner_->objectType().attrCount());
    if (places_ > 0) {
      singular_ = Kel::MemAllocator<AttrStateNode, AttrStateMap>().allocate(places_);
      for (std::uint32_t i = 0; i < places_; ++i) {
        ::new (static_cast<void*>(singular_ + i)) AttrStateNode();
      }
    }
  }
  return singularPlace(id);
}

AttrStateNode const& AttrStateMap::getAttrState(Kel::AttributeId rawId, Key const& rawKey) {
  Kel::AttributeId const id = absoluteId(rawId);
  Key const key = resolveGifKeyPtr(rawKey);
  AttrStateNode const* node = nullptr;
  bool made = false;
  if (AttrStateNode* const place = key ? nullptr : makeSingularPlace(id)) {
    made = place->timestamp_ == 0;
    if (made) {
      place->id_ = id;
      place->timestamp_ = loopTime();
      ++singularCount_;
    }
    node = place;
  } else {
    if (!keyed_) {
      keyed_ = std::make_unique<AttrStateMapType>();
    }
    auto found = keyed_->find(Probe{id, key});
    made = found == keyed_->end();
    if (made) {
      found = keyed_->emplace(id, key).first;
    }
    node = &*found;
  }
  if (made) {
    TOVAK_TRACE(trace(), 9, kCategory, "{} created", node->keyString(owner_));
  } else {
    TOVAK_TRACE(trace(), 9, kCategory, "found {}", node->stateString(owner_));
  }
  return *node;
}

AttrStateNode const* AttrStateMap::queryAttrState(Kel::AttributeId rawId, Key const& rawKey) const {
  Kel::AttributeId const id = absoluteId(rawId);
  Key const key = resolveGifKeyPtr(rawKey);
  AttrStateNode const* node = nullptr;
  if (AttrStateNode const* const place = key ? nullptr : singularPlace(id)) {
    node = place->timestamp_ == 0 ? nullptr : place;
  } else if (keyed_) {
    auto const found = keyed_->find(Probe{id, key});
    node = found == keyed_->end() ? nullptr : &*found;
  }
  if (node != nullptr) {
    TOVAK_TRACE(trace(), 9, kCategory, "found {}", node->stateString(owner_));
  } else {
    TOVAK_TRACE(trace(), 9, kCategory, "{} does not exist", AttrStateNode(id, key).keyString(owner_));
  }
  return node;
}

std::optional<long> AttrStateMap::delAttrState(Kel::AttributeId rawId, Key const& rawKey) {
  Kel::AttributeId const id = absoluteId(rawId);
  Key const key = resolveGifKeyPtr(rawKey);
  bool erased = false;
  if (AttrStateNode* const place = key ? nullptr : singularPlace(id)) {
    erased = place->timestamp_ != 0;
    if (erased) {
      *place = AttrStateNode();
      --singularCount_;
    }
  } else if (keyed_) {
    auto const found = keyed_->find(Probe{id, key});
    erased = found != keyed_->end();
    if (erased) {
      keyed_->erase(found);
    }
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
  for (std::uint32_t i = 0; i < places_; ++i) {
    if (singular_[i].timestamp_ != 0) {
      visit(singular_[i]);
    }
  }
  if (keyed_) {
    for (AttrStateNode const& node : *keyed_) {
      visit(node);
    }
  }
}

std::vector<Kel::Ptr<Kel::GenericIf const>> AttrStateMap::keysOf(Kel::AttributeId id) const {
  std::vector<Key> keys;
  forEach([&](AttrStateNode const& node) {
    if (node.id_ == id) {
      keys.push_back(node.key_);
    }
  });
  return keys;
}

std::size_t AttrStateMap::size() const noexcept { return singularCount_ + (keyed_ ? keyed_->size() : 0); }

std::string AttrStateMap::dumpState() const {
  std::string text;
  forEach([&](AttrStateNode const& node) { text += fmt::format("\n {}", node.stateString(owner_)); });
  return text;
}

} // namespace Ondra
