// The walk of one item of an object: a singular attribute, or one member of a collection at its keyed path.

#include <string>
#include <utility>

#include "Kel/Entity.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/PtrResolution.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/live/ShortRoads.h"
#include "Ondra/live/WalkResults.h"
#include "Ondra/rules/WalkRules.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {

// An item on its way into the Ir or, in a key mode, into the walker's key.
class FullKelTypeWalker::Item {
public:
  FullKelTypeWalker& walker;
  Kel::KelAttr const& attr;
  Kel::Ptr<Path> leafPath;
  long const timestamp;
  KelKey* const key; // of the list entry that is walked, or null
  std::shared_ptr<Ir>& ir;

  // A leaf that has the name of a key field gives way to it.
  void meetKeyField();
  WalkResult walkEntity(Kel::Ptr<Kel::GenericIf const> const& entity, GifGnmiNotifiee* notifiee) const;
  WalkResult walkJson() const;
  WalkResult walkPointer(Kel::Ptr<Kel::GenericIf const> const& ref) const;
  // Anything else: scalars, arrays, nested values.
  WalkResult walkPlain(Kel::Ptr<Kel::GenericIf const> const& value) const;
  // A member that its key tells whole.
  WalkResult walkKeyScalars(KelKey& memberKey) const;
  // A member of a collection inside a value that is being turned into key text: member and value become one
  // more field of that key.
  void encodeIntoKey(Kel::Ptr<Kel::GenericIf const> const& value, KelKey const& memberKey) const;
  // Takes the place of a member whose key holds a reference, and says whether the member is to be seen there.
  [[nodiscard]] bool takePlace(GifGnmiNotifiee& notifiee, Kel::Ptr<Kel::GenericIf const> const& memberKey,
                               bool canLoseLeaves) const;
  // After each attribute of an object: with bundling, when the walk must yield; without, at once.
  WalkResult pushCollected(WalkResult result) const;

private:
  void addKeyLeaf(PathElem::KeyMapType::Node const& field) const;
};

namespace {

// By the model's own code, since the walk came upon it.
bool hasBeenRemoved(Kel::GenericIf const& value) {
  return value.type().isEntity() && value.object() != nullptr &&
         static_cast<Kel::Entity const*>(value.object())->isOrphan();
}

} // namespace

// --- singular attributes, and members at their paths -----------------------------------------------------

WalkResult FullKelTypeWalker::walkSingletonAttr(Kel::KelAttr attr,
                                                Kel::Ptr<Kel::GenericIf const> const& attrGif,
                                                GifGnmiNotifiee* notifiee, long timestamp,
                                                Kel::Ptr<Path> leafPath, KelKey* key,
                                                std::shared_ptr<Ir>& ir) {
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} leaf attr:{} type:{} addKeyScalar:{}", debugString(),
              attr.name().view(), attr.type().name().view(), key != nullptr);
  keyName_->escapeMarkIs(!valueMode());
  if (!(flags_ & flagSnapshot) && !attr.isInstantiating() && valueMode()) return yieldResult();
  if (!ir && valueMode()) ir = Ir::IrIs(); // nested values add to it; it is sent at the end of the attribute
  Item item{*this, attr, std::move(leafPath), timestamp, key, ir};
  if (valueMode()) item.meetKeyField();
  if (attr.isGnmiJsonString()) return item.walkJson();
  Kel::Ptr<Kel::GenericIf const> const& interest = attr.isScalarArray() ? gif_ : attrGif;
  if (!interest && !attr.isPointer()) return WalkResult::Success; // not set: a snapshot says nothing of it
  WalkResult result = WalkResult::Success;
  if (attr.isInstantiating()) {
    if (hasBeenRemoved(*attrGif)) return WalkResult::Success;
    result = item.walkEntity(attrGif, notifiee);
  } else {
    result = item.pushCollected(attr.isPointer() ? item.walkPointer(attrGif) : item.walkPlain(interest));
  }
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} walkResult:{}", debugString(), result);
  return result;
}

void FullKelTypeWalker::Item::meetKeyField() {
  WalkRules::MetKeyField met =
      WalkRules::metKeyField(walker.objType_, attr, *walker.prefixPath_, walker.leafPath_);
  if (met) {
    TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} Duplicate colliding entry: {} col attr name: {} ",
                walker.debugString(), leafPath, attr.name().view());
    addKeyLeaf(*met.field);
    leafPath = std::move(met.leafPath);
  }
}

// The leaf of one field of the list entry's key. Whatever the walk began with, its value is the field itself:
// an entity knows its key, a member that is a value is walked with it. An object at a path that is not its
// own has the text that is there.
void FullKelTypeWalker::Item::addKeyLeaf(PathElem::KeyMapType::Node const& field) const {
  Kel::Ptr<Kel::GenericIf const> value = key == nullptr ? nullptr : key->scalar(field.key, field.value);
  if (!value && walker.objType_.isEntity()) {
    auto const& entity = static_cast<Kel::Entity const&>(*walker.gif_->object());
    if (Kel::Ptr<Kel::GenericIf const> const memberKey = entity.parentKey()) {
      RenderScope const ofNobody(true, nullptr, 0,
                                 nullptr); // of another text it is another path: all is sent anew
      KelKey own;
      walker.extractKeyInfo(memberKey, entity.parentAttr(), own);
      value = own.scalar(field.key, field.value);
    }
  }
  value = value ? printed(value) : Kel::handleOf(field.value);
  ir->addNode(timestamp, walker.prefixPath_).addLeaf(leafPath, std::move(value));
}

WalkResult FullKelTypeWalker::Item::walkEntity(Kel::Ptr<Kel::GenericIf const> const& entity,
                                               GifGnmiNotifiee* notifiee) const {
  Kel::Ptr<Path> const path = Path::makePath(walker.prefixPath_);
  path->mergeFrom(leafPath);
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} singleton instantiating attr, call handleInstantiating",
              walker.debugString());
  // The key of a list entry is that entry's own: what hangs below it by a singular attribute has none.
  WalkResult const result =
      walker.handleInstantiating(entity, path, timestamp, attr.isCollection() ? key : nullptr);
  ShortRoads::noteHeld(*walker.gif_, notifiee, attr, entity, path);
  return result;
}

WalkResult FullKelTypeWalker::Item::walkJson() const {
  if (!walker.valueMode()) {
    walker.extractGnmiJsonStrepAttr(walker.gif_, attr, leafPath, *walker.keyName_, nullptr);
    return WalkResult::Success;
  }
  Kel::Ptr<Kel::GenericIf const> json;
  walker.extractGnmiJsonStrepAttr(walker.gif_, attr, leafPath, *walker.keyName_, &json);
  if (json) ir->addNode(timestamp, walker.prefixPath_).addLeaf(leafPath, json);
  return WalkResult::Success; // sent with what comes next, at the latest at the end of the object
}

WalkResult FullKelTypeWalker::Item::walkPointer(Kel::Ptr<Kel::GenericIf const> const& ref) const {
  if (!walker.valueMode()) {
    std::string const text = getPtrPathStr(ref, walker.router_);
    walker.keyName_->mapInsert(leafPath->toKeyString(), text, Kel::handleOf(Kel::String(text)));
    return WalkResult::Success;
  }
  auto const [path, text] = getPtrPath(walker.router_, walker.prefixPath_, ref, leafPath);
  if (toggleOndraSyncBundlingEnabled()) {
    ir->addNode(timestamp, walker.prefixPath_).addLeaf(path, text);
    return WalkResult::Success;
  }
  std::shared_ptr<Ir> single = Ir::IrIs();
  single->addNode(timestamp, walker.prefixPath_).addLeaf(path, text);
  return walker.routerPush(single);
}

WalkResult FullKelTypeWalker::Item::walkPlain(Kel::Ptr<Kel::GenericIf const> const& value) const {
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} singleton non-value attr", walker.debugString());
  if (attr.isScalarArray()) {
    if (walker.valueMode())
      walker.extractScalarArray(value, attr, ir, walker.prefixPath_, leafPath, timestamp);
    return WalkResult::Success;
  }
  if (!isScalarType(attr.memberType()))
    return walker.nextWalker(value, ir, leafPath, *walker.keyName_, timestamp, key);
  if (!walker.valueMode()) {
    walker.extractScalar(value, leafPath, *walker.keyName_, nullptr);
    return WalkResult::Success;
  }
  walker.extractScalar(value, *walker.keyName_, ir, walker.prefixPath_, leafPath, timestamp);
  return WalkResult::Success;
}

WalkResult FullKelTypeWalker::Item::pushCollected(WalkResult result) const {
  if (walker.objType_.isValueType()) return result;
  if (toggleOndraSyncBundlingEnabled())
    return walker.ir_ && !walker.ir_->empty() ? merged(result, walker.routerPush(false)) : result;
  if (!walker.ir_ && ir && !ir->empty()) {
    result = merged(result, walker.routerPush(ir));
    ir.reset();
  }
  return result;
}

// --- members on the way to their paths -------------------------------------------------------------------

WalkResult FullKelTypeWalker::walkCollectionAttr(Kel::KelAttr attr,
                                                 Kel::Ptr<Kel::GenericIf const> const& memberKey,
                                                 Kel::Ptr<Kel::GenericIf const> const& memberValue,
                                                 GifGnmiNotifiee* notifiee, std::shared_ptr<Ir>& ir) {
  // The state entry is made even when nothing is sent: the member's deletion is told by it.
  long const timestamp = attrTimestamp(attr, memberKey, notifiee);
  if (!(flags_ & flagSnapshot) && !attr.isInstantiating() && valueMode()) return yieldResult();
  KelKey memberKeyState;
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} extract the key", debugString());
  extractKeyInfo(memberKey, attr, memberKeyState);
  WalkRules::AttrPlan const& plan = WalkRules::typePlan(objType_).attrs[attr.desc().index];
  Item item{*this, attr, Path::makePath(leafPath_), timestamp, &memberKeyState, ir};
  item.leafPath->push(plan.elem);
  if (!valueMode()) {
    item.encodeIntoKey(memberValue, memberKeyState);
    return WalkResult::Success;
  }
  if (!memberKeyState.isEncodable()) [[unlikely]] {
    TOVAK_TRACE(walkerTrace(), 1, kWalkerCategory,
                "left out member {} of {} below {}{}: its key is not UTF-8", memberKey->strRep(),
                attr.name().view(), prefixPath_, leafPath_);
    return WalkResult::Success;
  }
  if (!ir) ir = Ir::IrIs();
  memberKeyState.updateAndStorePrefix(item.leafPath, WalkRules::isDirEntries(attr), attr);
  if (plan.keyHoldsReference && notifiee != nullptr && !objType_.isValueType() &&
      !item.takePlace(*notifiee, memberKey, plan.canLoseLeaves))
    return yieldResult(); // covered by another member at the same path
  if (attr.isInstantiating())
    memberKeyState.prefixIs(WalkRules::noPath()); // the member is walked under a prefix of its own
  if (attr.isKeyScalarNode()) return item.walkKeyScalars(memberKeyState);
  return walkSingletonAttr(attr, memberValue, notifiee, timestamp, std::move(item.leafPath), &memberKeyState,
                           ir);
}

// The text of the reference may be another one when the member is to be deleted.
bool FullKelTypeWalker::Item::takePlace(GifGnmiNotifiee& notifiee,
                                        Kel::Ptr<Kel::GenericIf const> const& memberKey,
                                        bool canLoseLeaves) const {
  Kel::Ptr<Path> const sent = Path::makePath(walker.leafPath_);
  sent->push(leafPath->elems()[walker.leafPath_->elemSize()]);
  GifGnmiNotifiee::MemberPlace const place = notifiee.memberPathIs(attr.id(), memberKey, sent);
  if (place.before) {
    Kel::Ptr<Path const> const ended = Path::joinPath(notifiee.prefixPath(), place.before);
    retire(ended);
    forceDelete(notifiee.router(), ended);
  }
  return place.isLast || canLoseLeaves;
}

WalkResult FullKelTypeWalker::Item::walkKeyScalars(KelKey& memberKey) const {
  if (memberKey.inKeyMode() && !memberKey.escapeMark() && !memberKey.scalars().empty())
    memberKey.copyScalars(ir->addNode(timestamp, walker.prefixPath_));
  if (walker.objType_.isValueType()) return WalkResult::Success;
  TOVAK_TRACE(walkerTrace(), 8, kWalkerCategory, "{} push key scalar message", walker.debugString());
  return pushCollected(WalkResult::Success);
}

void FullKelTypeWalker::Item::encodeIntoKey(Kel::Ptr<Kel::GenericIf const> const& value,
                                            KelKey const& memberKey) const {
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} call nextWalker for the value, then stringify kelKey:{}",
              walker.debugString(), KelKey::toString(memberKey));
  Kel::Ptr<Path> const path = Path::PathIs();
  path->push(PathElem::PathElemIs(Kel::String(memberKey.gnmiKeyName(leafPath))));
  if (isScalarType(attr.memberType()))
    walker.extractScalar(value, path, *walker.keyName_, nullptr);
  else
    walker.nextWalker(value, walker.ir_, path, *walker.keyName_, walker.timestamp_, nullptr);
}

} // namespace Ondra
