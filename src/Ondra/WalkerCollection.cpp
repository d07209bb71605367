// The walk of one member of a collection attribute.

#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {

WalkResult FullKelTypeWalker::walkCollectionAttr(Kel::KelAttr attr,
                                                 Kel::Ptr<Kel::GenericIf const> const& memberKey,
                                                 Kel::Ptr<Kel::GenericIf const> const& memberValue,
                                                 GifGnmiNotifiee* notifiee, std::shared_ptr<Ir>& ir) {
  // The state entry is made even when nothing is sent: the member's deletion is told by it.
  long const timestamp = attrTimestamp(attr, memberKey, notifiee);
  if (!(flags_ & flagSnapshot) && !attr.isInstantiating() && valueMode()) {
    return yieldResult();
  }
  KelKey memberKeyState;
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} extract the key", debugString());
  extractKeyInfo(memberKey, attr, memberKeyState);
  if (!valueMode()) {
    encodeMemberIntoKey(attr, memberValue, memberKeyState);
    return WalkResult::Success;
  }
  if (!memberKeyState.isEncodable()) [[unlikely]] {
    TOVAK_TRACE(walkerTrace(), 1, kWalkerCategory,
                "left out member {} of {} below {}{}: its key is not UTF-8", memberKey->strRep(),
                attr.name().view(), prefixPath_, leafPath_);
    return WalkResult::Success;
  }
  if (!ir) {
    ir = makeIr();
  }
  Kel::Ptr<Path> path = Path::makePath(leafPath_);
  WalkRules::AttrPlan const& plan = WalkRules::typePlan(objType_).attrs[attr.desc().index];
  path->push(plan.elem);
  memberKeyState.updateAndStorePrefix(path, WalkRules::isDirEntries(attr), attr);
  if (plan.keyHoldsReference && notifiee != nullptr && !objType_.isValueType()) {
    // The text of the reference may be another one when the member is to be deleted.
    Kel::Ptr<Path> const sent = Path::makePath(leafPath_);
    sent->push(path->elems()[leafPath_->elemSize()]);
    GifGnmiNotifiee::MemberPlace const place = notifiee->memberPathIs(attr.id(), memberKey, sent);
    if (place.before) {
      Kel::Ptr<Path const> const ended = Path::joinPath(notifiee->prefixPath(), place.before);
      retire(ended);
      forceDelete(notifiee->router(), ended);
    }
    if (!place.isLast && !plan.canLoseLeaves) {
      return yieldResult(); // covered by another member at the same path
    }
  }
  if (attr.isInstantiating()) {
    memberKeyState.prefixIs(Path::PathIs()); // the member is walked under a prefix of its own
  }
  if (attr.isKeyScalarNode()) {
    return walkKeyScalarNode(memberKeyState, timestamp, ir);
  }
  return walkSingletonAttr(attr, memberValue, notifiee, timestamp, path, &memberKeyState, ir);
}

// A member that its key tells whole.
WalkResult FullKelTypeWalker::walkKeyScalarNode(KelKey& memberKey, long timestamp, std::shared_ptr<Ir>& ir) {
  if (memberKey.inKeyMode() && !memberKey.escapeMark() && !memberKey.scalars().empty()) {
    memberKey.copyScalars(ir->addNode(timestamp, prefixPath_));
  }
  if (objType_.isValueType()) {
    return WalkResult::Success;
  }
  TOVAK_TRACE(walkerTrace(), 8, kWalkerCategory, "{} push key scalar message", debugString());
  return pushCollected(WalkResult::Success, ir);
}

// The collection lies inside a value that is being turned into key text: member and value become one more field of that key.
void FullKelTypeWalker::encodeMemberIntoKey(Kel::KelAttr const& attr,
                                            Kel::Ptr<Kel::GenericIf const> const& value,
                                            KelKey const& memberKey) {
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} call nextWalker for the value, then stringify kelKey:{}",
              debugString(), KelKey::toString(memberKey));
  Kel::Ptr<Path> const attrPath = Path::makePath(leafPath_);
  attrPath->push(WalkRules::typePlan(objType_).attrs[attr.desc().index].elem);
  Kel::Ptr<Path> const path = Path::PathIs();
  path->push(PathElem::PathElemIs(Kel::String(memberKey.gnmiKeyName(attrPath))));
  if (isScalarType(attr.memberType())) {
    extractScalar(value, path, *keyName_, nullptr);
  } else {
    nextWalker(value, ir_, path, *keyName_, timestamp_, nullptr);
  }
}

} // namespace Ondra
