// Singular attributes, then collections: what is new is walked as a full walk does it, what has gone becomes
// a delete that comes first.
#include "Ondra/live/KelTypeNotifWalker.h"

#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "Kel/ActivityClock.h"
#include "Kel/Entity.h"
#include "Ondra/IR.h"
#include "Ondra/KelGnmiUtils.h"
#include "Ondra/PathFormat.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/live/EmittedLeaves.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/Pending.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/live/Sender.h"
#include "Ondra/live/Unsent.h"
#include "Ondra/rules/KeyText.h"
#include "Tovak/Trace.h"

namespace Ondra {
namespace {

constexpr char const* kCategory = "KelTypeNotifWalker";
constexpr WalkerFlags kPurgeFlags = flagInstantiatingOnly | flagNoPause | flagNoPush;

Tovak::DebugHandler& trace() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraKelTypeNotifWalker", false);
  return handler;
}

// One change follows the other: the storage that the last one has warmed up serves the next.
std::shared_ptr<Ir>& spareIr() {
  static std::shared_ptr<Ir> ir;
  return ir;
}

std::shared_ptr<Ir> takeIr() {
  std::shared_ptr<Ir> ir = std::move(spareIr());
  spareIr().reset();
  return ir ? ir : Ir::IrIs();
}

void advanceClock() { Kel::activityManagerStatus()->activityLoopExecNsTimeInc(1); }

} // namespace

KelTypeNotifWalker::KelTypeNotifWalker(Kel::Ptr<Path const> const& prefixPath, GifGnmiNotifiee& notifiee,
                                       Handle object, Kel::Ptr<Path> leafPath, BaseRouter& router,
                                       Kel::AttributeId id, Handle key, WalkerFlags flags)
    : FullKelTypeWalker(prefixPath, takeIr(), std::move(object), std::move(leafPath), router, nullptr, flags,
                        KelKey::ofLeaves(), false, 0)
    , notifiee_(notifiee)
    , id_(id)
    , key_(std::move(key))
    , nested_(false) {}

KelTypeNotifWalker::KelTypeNotifWalker(KelTypeNotifWalker& parent, Handle value,
                                       std::shared_ptr<Ir> const& ir, Kel::Ptr<Path> const& leafPath,
                                       KelKey& key, long timestamp)
    : FullKelTypeWalker(parent.prefixPath_, ir, std::move(value), leafPath, parent.router_, nullptr,
                        parent.flags_, key, false, timestamp)
    , notifiee_(parent.notifiee_)
    , id_(parent.id_)
    , nested_(true) {}

KelTypeNotifWalker::~KelTypeNotifWalker() {
  if (!nested_) {
    ir_->clear();
    spareIr() = std::move(ir_);
  }
}

WalkResult KelTypeNotifWalker::walk() {
  Kel::KelAttr const attr = objType_.attr(absoluteId(id_));
  if (!attr) return WalkResult::Success;
  Plan const& plan = WalkRules::typePlan(objType_).attrs[attr.desc().index];
  Unsent const unsent(*this, ir_, &notifiee_);
  try {
    walkAttr(plan);
  } catch (...) { // not even that it has gone could be told
    traceFault(plan);
  }
  return routerPush(ir_);
}

void KelTypeNotifWalker::walkAttr(Plan const& plan) {
  switch (plan.road) {
  case WalkRules::Road::Skip: return;
  case WalkRules::Road::Unsupported:
    TOVAK_TRACE(trace(), 9, kCategory, "{} {}", debugString(), WalkRules::whyUnsupported(plan.attr));
    return;
  case WalkRules::Road::Singleton: return walkWhole(plan);
  case WalkRules::Road::Collection: return key_ ? walkMember(plan, key_) : walkMembers(plan);
  }
}

// What is raised by the model's code while `tell` tells an attribute or member costs that attribute or
// member: a full walk leaves it out, so it has gone. When parts of it were left out, what the subscriber has
// of them goes with all the rest, which is told anew.
template <class Tell, class Gone>
void KelTypeNotifWalker::tellOrGone(Plan const& plan, Handle const& key, Tell const& tell, Gone const& gone) {
  std::uint64_t const interruptions = Unsent::interruptions();
  try {
    leftOut_ = false;
    tell(false);
    if (leftOut_ && !plan.canLoseLeaves) {
      ir_->clear();
      tell(true);
    }
    if (plan.canLoseLeaves && interruptions != Unsent::interruptions()) {
      // Part of its leaves has gone out already: nobody has them all.
      notifiee_.emitted().get(plan.attr.id(), key).leavesKnown = false;
      notifiee_.changed(plan.attr.id(), key);
    }
  } catch (...) {
    traceFault(plan);
    ir_->clear();
    gone();
  }
}

// --- singular attributes -------------------------------------------------------------------------------

void KelTypeNotifWalker::walkWhole(Plan const& plan) {
  Kel::Ptr<Path> const leafPath = WalkRules::attrLeafPath(leafPath_, plan);
  tellOrGone(
      plan, nullptr, [&](bool clears) { tellWhole(plan, leafPath, clears); },
      [&] { wholeGone(plan, leafPath); });
}

void KelTypeNotifWalker::tellWhole(Plan const& plan, Kel::Ptr<Path> const& leafPath, bool clears) {
  Handle const value = plan.readsValue ? plan.attr.genericIfGet(gif_) : nullptr;
  RenderScope const rendering(plan.rendersReferences, &notifiee_, plan.attr.id(), nullptr,
                              RenderScope::Mode::Replace);
  if (isAbsent(plan, value)) {
    wholeGone(plan, leafPath);
    return;
  }
  bool const isNew = plan.canLoseLeaves && !notifiee_.attrStates().has(id_, nullptr);
  long timestamp = stamp(plan.attr.id(), nullptr);
  if (clears || clearsFirst(plan, nullptr, isNew)) {
    addDelete(timestamp, leafPath);
    timestamp = stamp(plan.attr.id(), nullptr);
  }
  traceKind(plan, false);
  walkSingletonAttr(plan.attr, value, &notifiee_, timestamp, leafPath, nullptr, ir_);
  settle(plan, nullptr, timestamp);
}

// Whether a full walk says nothing of the attribute. A reference always has a text.
bool KelTypeNotifWalker::isAbsent(Plan const& plan, Handle const& value) const {
  if (plan.attr.isGnmiJsonString()) return !plan.attr.genericIfGnmiJsonString(gif_);
  if (plan.attr.isPointer() || plan.attr.isScalarArray()) return false;
  return !value || (plan.isEntityName && isEmptyText(value));
}

void KelTypeNotifWalker::wholeGone(Plan const& plan, Kel::Ptr<Path> leafPath) {
  if (!plan.isScalarLeaf) {
    Kel::Ptr<Path const> const path = absolute(leafPath);
    TOVAK_TRACE(trace(), 4, kCategory, "{}", path);
    endEntityAt(path);
    if (EmittedLeaves* const sent = notifiee_.emittedSoFar()) sent->del(plan.attr.id(), nullptr);
    advanceClock(); // later than what the parts were stamped with
  }
  if (WalkRules::MetKeyField met = WalkRules::metKeyField(objType_, plan.attr, *prefixPath_, leafPath_))
    leafPath = std::move(met.leafPath); // the key field stays
  TOVAK_TRACE(trace(), 5, kCategory, "{} push delete message", debugString());
  addDelete(stamp(plan.attr.id(), nullptr), leafPath);
}

// The entity that was published there has been removed, or is another one now: its watching ends, silently.
void KelTypeNotifWalker::endEntityAt(Kel::Ptr<Path const> const& path) {
  FullKelTypeWalker::delFromWalkQ(path);
  if (Kel::Ptr<GifGnmiNotifiee> const ending = KelGnmiUtils::lookupGnmiNotifieeMap(path)) {
    TOVAK_TRACE(trace(), 4, kCategory, "{} Purging GifGnmiNotifiee under path:{}", debugString(), path);
    if (Handle const object = ending->object()) {
      KelKey key;
      FullKelTypeWalker purge(path, Ir::IrIs(), object, Path::PathIs(), router_, nullptr, kPurgeFlags, key,
                              true, Kel::activityManagerStatus()->activityLoopExecNsTime());
      purge.walk(nullptr);
    }
  }
  retire(path); // what the object does not lead to any more
}

// --- collections ---------------------------------------------------------------------------------------

void KelTypeNotifWalker::sendSoFar() {
  routerPush(ir_);
  ir_->clear();
}

void KelTypeNotifWalker::walkMembers(Plan const& plan) {
  for (Handle const& key : notifiee_.attrStates().keysOf(plan.attr.id())) {
    Handle const own = memberKey(plan, key);
    if (key && (!own || !plan.attr.genericIfExist(gif_, own))) {
      memberGone(plan, key);
      sendSoFar();
    }
  }
  for (auto member = plan.attr.genericIfIteratorConst(gif_); member; ++member) {
    walkMember(plan, member.key());
    sendSoFar();
  }
}

// The collection's own key of a state's key, which stands for the reference that a key wraps. Null for one to
// an object that has gone.
KelTypeNotifWalker::Handle KelTypeNotifWalker::memberKey(Plan const& plan, Handle const& stateKey) {
  Kel::KelType const keyType = plan.attr.keyType();
  if (!keyType || !keyType.isKeyPtrWrapper()) return stateKey;
  if (!stateKey) return keyType.genericIf(nullptr);
  Kel::PtrInterface* const target = stateKey->object();
  return target == nullptr ? nullptr : keyType.genericIf(Kel::ArgList{Kel::GenericIf::toObject(target)});
}

void KelTypeNotifWalker::walkMember(Plan const& plan, Handle const& key) {
  if (!plan.attr.genericIfExist(gif_, key)) {
    memberGone(plan, key);
    return;
  }
  tellOrGone(
      plan, key, [&](bool clears) { tellMember(plan, key, clears); }, [&] { memberGone(plan, key); });
}

void KelTypeNotifWalker::tellMember(Plan const& plan, Handle const& key, bool clears) {
  Kel::AttributeId const id = plan.attr.id();
  RenderScope const rendering(plan.rendersReferences, &notifiee_, id, key, RenderScope::Mode::Replace);
  bool const isNew = !notifiee_.attrStates().has(id, key);
  long timestamp = stamp(id, key);
  if (!plan.keyHoldsReference || takesPlaceAlone(plan, key, timestamp))
    sendMember(plan, key, clears || clearsFirst(plan, key, isNew), timestamp);
}

// Its path holds the text of a reference, which may have become another one. False where others have that
// path too: what is to be seen there is sent when no other change waits.
bool KelTypeNotifWalker::takesPlaceAlone(Plan const& plan, Handle const& key, long& timestamp) {
  Kel::AttributeId const id = plan.attr.id();
  Kel::Ptr<Path const> const path = memberPath(plan, key);
  GifGnmiNotifiee::MemberPlace const place = notifiee_.memberPathIs(id, key, path);
  if (place.before) {
    if (plan.attr.isInstantiating()) retire(absolute(place.before));
    advanceClock(); // later than what the parts were stamped with
    addDelete(stamp(id, key), place.before);
    timestamp = stamp(id, key);
  }
  if (!Sharers::isShared(*path)) return true;
  if (place.isLast || plan.canLoseLeaves) Pending::instance().addSharers(notifiee_, id, path);
  return false;
}

WalkResult KelTypeNotifWalker::walkSharers(Kel::Ptr<Path const> const& path) {
  Plan const& plan = WalkRules::typePlan(objType_).attrs[objType_.attr(id_).desc().index];
  Unsent const unsent(*this, ir_, &notifiee_);
  try {
    tellSharers(plan, path);
  } catch (...) {
    traceFault(plan);
  }
  return routerPush(ir_);
}

void KelTypeNotifWalker::tellSharers(Plan const& plan, Kel::Ptr<Path const> const& path) {
  Sharers& sharers = notifiee_.emitted().sharers();
  std::vector<Handle> seen;
  if (plan.canLoseLeaves)
    seen = sharers.all(id_, path);
  else if (std::optional<Handle> const last = sharers.last(id_, path))
    seen.push_back(*last);
  if (plan.canLoseLeaves && !seen.empty()) {
    advanceClock();
    addDelete(Kel::activityManagerStatus()->activityLoopExecNsTime(), path);
  }
  for (Handle const& stateKey : seen) {
    Handle const key = memberKey(plan, stateKey);
    if (!key || !plan.attr.genericIfExist(gif_, key))
      continue;  // what waits for it has gone by already, or it has gone unnoticed
    sendSoFar(); // each by itself: they are sent over each other
    advanceClock();
    EmittedLeaves::Record& record = notifiee_.emitted().get(id_, key);
    record.leaves.clear(); // deleted by now, or covered
    record.leavesKnown = true;
    auto const tell = [&](bool clears) {
      RenderScope const rendering(plan.rendersReferences, &notifiee_, id_, key, RenderScope::Mode::Replace);
      sendMember(plan, key, clears, stamp(id_, key));
    };
    tellOrGone(plan, key, tell, [&] { memberGone(plan, key); });
  }
}

void KelTypeNotifWalker::sendMember(Plan const& plan, Handle const& key, bool clears, long timestamp) {
  if (clears) {
    addDelete(timestamp, memberPath(plan, key));
    timestamp = stamp(plan.attr.id(), key);
  }
  traceKind(plan, true);
  step_ = {plan.attr, key};
  if (plan.attr.isInstantiating()) sendSoFar(); // before what the entity sends by itself
  walkCollectionAttr(plan.attr, key, plan.attr.genericIfGet(gif_, key), &notifiee_, ir_);
  settle(plan, key, timestamp);
}

void KelTypeNotifWalker::memberGone(Plan const& plan, Handle const& key) {
  Kel::AttributeId const id = plan.attr.id();
  Kel::Ptr<Path const> path;
  {
    RenderScope const ofNobody(true, nullptr, id, nullptr);
    EmittedLeaves* const sent = notifiee_.emittedSoFar();
    EmittedLeaves::Record const* const record = sent == nullptr ? nullptr : sent->find(id, key);
    path = record != nullptr && record->memberPath ? record->memberPath : memberPath(plan, key);
  }
  notifiee_.memberGone(id, key);
  std::optional<long> const deleted = notifiee_.attrStates().delAttrState(id, key);
  if (!deleted) {
    TOVAK_TRACE(trace(), 4, kCategory,
                "{} Ignoring delete without prior update for prefixPath_:{} prefix:{} attr:{} gifKey:{}",
                debugString(), prefixPath_, path, plan.attr.name().view(), key->strRep());
    return;
  }
  RenderScope const nothingRendered(plan.rendersReferences, &notifiee_, id, key, RenderScope::Mode::Replace);
  if (plan.attr.isInstantiating()) retire(absolute(path));
  TOVAK_TRACE(trace(), 8, kCategory, "{} push delete message", debugString());
  addDelete(*deleted, path);
}

// The member's element at the end of the walker's own path.
Kel::Ptr<Path const> KelTypeNotifWalker::memberPath(Plan const& plan, Handle const& key) {
  KelKey fields;
  extractKeyInfo(key, plan.attr, fields);
  Kel::Ptr<Path> keyed = Path::makePath(leafPath_);
  keyed->push(plan.elem);
  fields.updateAndStorePrefix(keyed, WalkRules::isDirEntries(plan.attr), plan.attr);
  Kel::Ptr<Path> path = Path::makePath(leafPath_);
  path->push(keyed->elems()[leafPath_->elemSize()]);
  return path;
}

// --- what has changed and what has gone ------------------------------------------------------------------

long KelTypeNotifWalker::stamp(Kel::AttributeId id, Handle const& key) {
  return notifiee_.attrStates().changedTimestamp(id, key);
}

// Without a record of the leaves that were sent, all of them are deleted, to be sent anew at a later time.
bool KelTypeNotifWalker::clearsFirst(Plan const& plan, Handle const& key, bool isNew) {
  if (!plan.canLoseLeaves || isNew) return false;
  EmittedLeaves::Record const* const record = notifiee_.emitted().find(plan.attr.id(), key);
  return record == nullptr || !record->leavesKnown;
}

void KelTypeNotifWalker::settle(Plan const& plan, Handle const& key, long timestamp) {
  if (!plan.canLoseLeaves) return;
  EmittedLeaves::Paths now;
  for (IrLeaf const& leaf : ir_->addNode(timestamp, prefixPath_).leaves)
    now.push_back(leaf.leafPath);
  EmittedLeaves::Record& record = notifiee_.emitted().get(plan.attr.id(), key);
  absl::flat_hash_set<Kel::Ptr<Path const>, std::hash<Kel::Ptr<Path const>>,
                      std::equal_to<Kel::Ptr<Path const>>, Kel::EndingAllocator<Kel::Ptr<Path const>>> const
      there(now.begin(), now.end());
  for (Kel::Ptr<Path const> const& before : record.leaves)
    if (!there.contains(before)) addDelete(timestamp, before);
  record.leaves = std::move(now);
  record.leavesKnown = true;
}

void KelTypeNotifWalker::addDelete(long timestamp, Kel::Ptr<Path const> const& path) {
  if (WalkRules::isEncodable(*path)) [[likely]] // else it was never sent
    ir_->addNode(timestamp, prefixPath_).addLeaf(path, nullptr);
}

Kel::Ptr<Path const> KelTypeNotifWalker::absolute(Kel::Ptr<Path const> const& path) const {
  return Path::joinPath(prefixPath_, path);
}

// REQUIRES to be called in a handler.
void KelTypeNotifWalker::traceFault(Plan const& plan) const {
  std::string const text = faultText();
  TOVAK_TRACE(trace(), Tovak::traceLevelError, kCategory, "{} skipping {}: {}", debugString(),
              plan.attr.name().view(), text);
}

void KelTypeNotifWalker::traceKind(Plan const& plan, bool member) const {
  if (plan.attr.isGnmiJsonString())
    TOVAK_TRACE(trace(), 8, kCategory, "{} push toGnmiJsonString message", debugString());
  else if (plan.attr.isPointer())
    TOVAK_TRACE(trace(), 8, kCategory, "{} push ptr message", debugString());
  else if (!isScalarType(plan.attr.memberType()))
    TOVAK_TRACE(trace(), 8, kCategory, "{} walk non-scalar type", debugString());
  else if (member)
    TOVAK_TRACE(trace(), 8, kCategory, "{} push scalar collection message", debugString());
}

// --- descending and sending ------------------------------------------------------------------------------

WalkResult KelTypeNotifWalker::handleInstantiating(Handle gif, Kel::Ptr<Path const> const& path,
                                                   long timestamp, KelKey* key) {
  TOVAK_ASSERT(!flags_.has(flagInstantiatingOnly), trace(),
               "Uninstalling a GifGnmiNotifiee should not trigger a new walk");
  auto const* const object = static_cast<Kel::PtrInterface const*>(gif->voidPtrIs(gif->type()));
  std::shared_ptr<WalkInfo> walkInfo = WalkInfo::WalkInfoIs(router_, SyncWalkId(), path, object, flags_);
  walkInfo->timeStampToUse = timestamp;
  return walkObjectInternal(walkInfo, nullptr, key, nullptr);
}

WalkResult KelTypeNotifWalker::nextWalker(Handle attrGif, std::shared_ptr<Ir> const& ir,
                                          Kel::Ptr<Path> const& leafPath, KelKey& key, long timestamp,
                                          KelKey* keyArg) {
  KelTypeNotifWalker child(*this, std::move(attrGif), ir, leafPath, key,
                           timestamp == 0 ? timestamp_ : timestamp);
  WalkResult const result = child.FullKelTypeWalker::walk(keyArg);
  leftOut_ |= child.leftOut_;
  return result;
}

WalkResult KelTypeNotifWalker::routerPush(std::shared_ptr<Ir>& ir) const {
  if (flags_.has(flagNoPush) || !ir || ir->empty() || (nested_ && ir == ir_)) return WalkResult::Success;
  if (ir != ir_ || nested_) { // of a part: it goes with the rest
    for (auto const& [timestamp, nodes] : ir->timestampToPrefixNode()) {
      for (auto const& prefix : nodes.insertionOrder_)
        for (IrLeaf const& leaf : nodes.prefixToNode_.at(prefix).leaves)
          ir_->addNode(timestamp, prefix).leaves.push_back(leaf);
    }
    return WalkResult::Success;
  }
  Unsent::dropEnded();
  if (ir->empty()) return WalkResult::Success;
  return Sender(*this, Sender::What::Change).send(*ir); // a full pipe does not hold a notification up
}

} // namespace Ondra
