// The walk of one singular attribute, or of one collection member at its keyed path.

#include "Kel/Entity.h"
#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/PtrResolution.h"
#include "Ondra/Referrers.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/WalkerTrace.h"

namespace Ondra {
namespace {

// By the model's own code, since the walk came upon it.
bool hasBeenRemoved(Kel::GenericIf const& value) {
  return value.type().isEntity() && value.object() != nullptr &&
         static_cast<Kel::Entity const*>(value.object())->isOrphan();
}

} // namespace

WalkResult FullKelTypeWalker::walkSingletonAttr(Kel::KelAttr attr,
                                                Kel::Ptr<Kel::GenericIf const> const& attrGif,
                                                GifGnmiNotifiee* notifiee, long timestamp,
                                                Kel::Ptr<Path> leafPath, KelKey* key,
                                                std::shared_ptr<Ir>& ir) {
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} leaf attr:{} type:{} addKeyScalar:{}", debugString(),
              attr.name().view(), attr.type().name().view(), key != nullptr);
  keyName_->escapeMarkIs(!valueMode());
  if (!(flags_ & flagSnapshot) && !attr.isInstantiating() && valueMode()) {
    return yieldResult();
  }
  if (!ir && valueMode()) {
    ir = makeIr(); // nested values add to it; it is sent at the end of the attribute
  }
  if (valueMode()) {
    if (WalkRules::MetKeyField met = WalkRules::metKeyField(objType_, attr, *prefixPath_, leafPath_)) {
      TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} Duplicate colliding entry: {} col attr name: {} ",
                  debugString(), leafPath, attr.name().view());
      addKeyLeaf(*met.field, leafPath, key, timestamp, *ir);
      leafPath = std::move(met.leafPath);
    }
  }
  if (attr.isGnmiJsonString()) {
    return walkJsonAttr(attr, leafPath, timestamp, ir);
  }
  Kel::Ptr<Kel::GenericIf const> const& interest = attr.isScalarArray() ? gif_ : attrGif;
  if (!interest && !attr.isPointer()) {
    return WalkResult::Success; // not set: a snapshot says nothing of it
  }
  WalkResult result = WalkResult::Success;
  if (attr.isInstantiating()) {
    if (hasBeenRemoved(*attrGif)) {
      return WalkResult::Success;
    }
    Kel::Ptr<Path> const path = Path::makePath(prefixPath_);
    path->mergeFrom(leafPath);
    TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory,
                "{} singleton instantiating attr, call handleInstantiating", debugString());
    // The key of a list entry is that entry's own: what hangs below it by a singular attribute has none.
    result = handleInstantiating(attrGif, path, timestamp, attr.isCollection() ? key : nullptr);
    noteHeld(attr, attrGif, path, notifiee);
  } else {
    result = attr.isPointer() ? walkPointerAttr(attrGif, leafPath, timestamp, ir)
                              : walkPlainAttr(attr, interest, leafPath, timestamp, key, ir);
    result = pushCollected(result, ir);
  }
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} walkResult:{}", debugString(), result);
  return result;
}

WalkResult FullKelTypeWalker::walkJsonAttr(Kel::KelAttr const& attr, Kel::Ptr<Path> const& leafPath,
                                           long timestamp, std::shared_ptr<Ir>& ir) {
  if (!valueMode()) {
    extractGnmiJsonStrepAttr(gif_, attr, leafPath, *keyName_, nullptr);
    return WalkResult::Success;
  }
  Kel::Ptr<Kel::GenericIf const> json;
  extractGnmiJsonStrepAttr(gif_, attr, leafPath, *keyName_, &json);
  if (json) {
    ir->addNode(timestamp, prefixPath_).addLeaf(leafPath, json);
  }
  return WalkResult::Success; // sent with what comes next, at the latest at the end of the object
}

WalkResult FullKelTypeWalker::walkPointerAttr(Kel::Ptr<Kel::GenericIf const> const& ref,
                                              Kel::Ptr<Path> const& leafPath, long timestamp,
                                              std::shared_ptr<Ir>& ir) {
  if (!valueMode()) {
    std::string const text = getPtrPathStr(ref, router_);
    keyText(*keyName_, leafPath, text, Kel::handleOf(Kel::String(text)));
    return WalkResult::Success;
  }
  auto const [path, text] = getPtrPath(router_, prefixPath_, ref, leafPath);
  if (toggleOndraSyncBundlingEnabled()) {
    ir->addNode(timestamp, prefixPath_).addLeaf(path, text);
    return WalkResult::Success;
  }
  std::shared_ptr<Ir> single = makeIr();
  single->addNode(timestamp, prefixPath_).addLeaf(path, text);
  return routerPush(single);
}

WalkResult FullKelTypeWalker::walkPlainAttr(Kel::KelAttr const& attr,
                                            Kel::Ptr<Kel::GenericIf const> const& value,
                                            Kel::Ptr<Path> const& leafPath, long timestamp, KelKey* key,
                                            std::shared_ptr<Ir>& ir) {
  TOVAK_TRACE(walkerTrace(), 9, kWalkerCategory, "{} singleton non-value attr", debugString());
  if (attr.isScalarArray()) {
    if (valueMode()) {
      extractScalarArray(value, attr, ir, prefixPath_, leafPath, timestamp);
    }
    return WalkResult::Success;
  }
  if (!isScalarType(attr.memberType())) {
    return nextWalker(value, ir, leafPath, *keyName_, timestamp, key);
  }
  if (!valueMode()) {
    extractScalar(value, leafPath, *keyName_, nullptr);
    return WalkResult::Success;
  }
  extractScalar(value, *keyName_, ir, prefixPath_, leafPath, timestamp);
  return WalkResult::Success;
}

// The leaf of one field of the list entry's key. Whatever the walk began with, its value is the field itself: an entity knows its key, a
// member that is a value is walked with it. An object at a path that is not its own has the text that is there.
void FullKelTypeWalker::addKeyLeaf(PathElem::KeyMapType::Node const& field, Kel::Ptr<Path> const& leafPath,
                                   KelKey const* key, long timestamp, Ir& ir) {
  Kel::Ptr<Kel::GenericIf const> value = key == nullptr ? nullptr : key->scalar(field.key, field.value);
  if (!value && objType_.isEntity()) {
    auto const& entity = static_cast<Kel::Entity const&>(*gif_->object());
    if (Kel::Ptr<Kel::GenericIf const> const memberKey = entity.parentKey()) {
      RenderScope const ofNobody(true, nullptr, 0,
                                 nullptr); // of another text it is another path: all is sent anew
      KelKey own;
      extractKeyInfo(memberKey, entity.parentAttr(), own);
      value = own.scalar(field.key, field.value);
    }
  }
  value = value ? printed(value) : Kel::handleOf(field.value);
  ir.addNode(timestamp, prefixPath_).addLeaf(leafPath, std::move(value));
}

// After each attribute of an object: with bundling, when the walk must yield; without, at once.
WalkResult FullKelTypeWalker::pushCollected(WalkResult result, std::shared_ptr<Ir>& ir) {
  if (objType_.isValueType()) {
    return result;
  }
  if (toggleOndraSyncBundlingEnabled()) {
    return ir_ && !ir_->empty() ? merged(result, routerPush(false)) : result;
  }
  if (!ir_ && ir && !ir->empty()) {
    result = merged(result, routerPush(ir));
    ir.reset();
  }
  return result;
}

} // namespace Ondra
