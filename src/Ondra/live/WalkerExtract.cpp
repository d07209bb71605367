// How walkers turn values into leaves and into key texts.

#include <string>
#include <utility>

#include "Ondra/IR.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/PtrResolution.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/rules/KeyText.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {
namespace {

using Handle = Kel::Ptr<Kel::GenericIf const>;

// Gives the handle out. REQUIRES somebody to take it.
void handOut(Handle const& value, Handle* out) {
  TOVAK_ASSERT(out != nullptr, walkerTrace(), "No IR to extract value");
  if (!(*out == value)) *out = value;
}

void keyText(KelKey& key, Kel::Ptr<Path const> const& path, std::string const& text, Handle const& value) {
  key.mapInsert(path->toKeyString(), text, value);
}

} // namespace

void FullKelTypeWalker::extractScalar(Handle const& value, Kel::Ptr<Path const> const& path, KelKey& key,
                                      Handle* out) const {
  Kel::KelType const type = value->type();
  if (type.isBuiltin() && !type.hasGnmiByteRep()) {
    extractBuiltin(value, path, key, out);
  } else if (type.isEnum()) {
    extractEnum(value, path, key, out);
  } else if (type.hasGnmiStrRep() || type.hasGnmiByteRep()) {
    if (!key.inKeyMode()) {
      handOut(value, out);
    } else if (type.hasGnmiStrRep()) {
      std::string const text = value->gnmiStrRep();
      keyText(key, path, text, Kel::handleOf(Kel::String(text)));
    } else {
      std::string const bytes = value->gnmiByterep();
      keyText(key, path, bytesKeyText(bytes), Kel::handleOf(Kel::Bytes(bytes)));
    }
  } else if (type.isUnion()) {
    extractUnionActiveAlternative(value, path, key, out);
  } else {
    extractValAttr(value, path, key, out);
  }
}

void FullKelTypeWalker::extractBuiltin(Handle const& value, Kel::Ptr<Path const> const& path, KelKey& key,
                                       Handle* out) const {
  if (!key.inKeyMode()) {
    handOut(value, out);
    return;
  }
  keyText(key, path, builtinKeyText(*value, key.escapeMark()), value);
}

void FullKelTypeWalker::extractEnum(Handle const& value, Kel::Ptr<Path const> const& path, KelKey& key,
                                    Handle* out) const {
  Kel::BuiltinKind const underlying = value->type().underlyingKind();
  TOVAK_ASSERT(underlying >= Kel::BuiltinKind::U8 && underlying <= Kel::BuiltinKind::S64, walkerTrace(),
               "Unknown underlying enum type:{}", static_cast<unsigned>(underlying));
  if (!key.inKeyMode()) {
    handOut(value, out);
    return;
  }
  keyText(key, path, value->gnmiStrRep(), value);
}

void FullKelTypeWalker::extractValAttr(Handle const& value, Kel::Ptr<Path const> const& path, KelKey& key,
                                       Handle* out) const {
  Kel::KelAttr const valAttr = value->type().valAttr();
  Handle const inner = valAttr ? valAttr.genericIfGet(value) : nullptr;
  if (inner && inner->type().isEntity()) { // a key that wraps a reference
    std::string const text = getPtrPathStr(inner, router_);
    Handle const rendered = Kel::handleOf(Kel::String(text));
    key.inKeyMode() ? keyText(key, path, text, rendered) : handOut(rendered, out);
  } else if (inner && inner->type().isEnum()) {
    extractEnum(inner, path, key, out);
  } else if (inner) {
    extractBuiltin(inner, path, key, out);
  } else if (key.inKeyMode()) {
    keyText(key, path, "nullptr", nullptr);
  }
}

void FullKelTypeWalker::extractUnionActiveAlternative(Handle const& value, Kel::Ptr<Path const> const& path,
                                                      KelKey& key, Handle* out) const {
  Kel::KelAttr const alternative = Kel::KelAttr::genericIfUnionAlternative(value);
  Handle const active = alternative ? alternative.genericIfGet(value) : nullptr;
  if (active) extractScalar(active, path, key, out);
}

void FullKelTypeWalker::extractGnmiJsonStrepAttr(Handle const& object, Kel::KelAttr const& attr,
                                                 Kel::Ptr<Path const> const& path, KelKey& key,
                                                 Handle* out) const {
  Handle const json = attr.genericIfGnmiJsonString(object);
  if (!json) return;
  if (key.inKeyMode())
    keyText(key, path, json->gnmiStrRep(), json);
  else
    handOut(json, out);
}

void FullKelTypeWalker::extractScalarArray(Handle const& object, Kel::KelAttr const& attr,
                                           std::shared_ptr<Ir>& ir, Kel::Ptr<Path const> const& prefix,
                                           Kel::Ptr<Path const> const& leafPath, long timestamp) const {
  TOVAK_ASSERT(isScalarType(attr.memberType()), walkerTrace(),
               "Only builtins, enums, and split inheritance types are supported");
  IrLeaf::LeafList elements;
  for (auto member = attr.genericIfIteratorConst(object); member; ++member) {
    Handle value;
    extractScalar(member.ptr(), leafPath, *keyName_, &value);
    if (value) elements.push_back(printed(value));
  }
  ir->addNode(timestamp, prefix).leaves.push_back({leafPath, std::move(elements)});
}

void FullKelTypeWalker::extractScalar(Handle const& value, KelKey& key, std::shared_ptr<Ir>& ir,
                                      Kel::Ptr<Path const> const& prefix,
                                      Kel::Ptr<Path const> const& leafPath, long timestamp) const {
  Handle resolved;
  extractScalar(value, leafPath, key, &resolved);
  if (resolved) { // a union may have no alternative
    resolved = printed(resolved);
    ir->addNode(timestamp, prefix).addLeaf(leafPath, std::move(resolved));
  }
}

void FullKelTypeWalker::extractKeyInfo(Handle memberKey, Kel::KelAttr const& attr, KelKey& key) {
  Kel::KelType const keyType = attr.keyType();
  if (keyType.isEntity()) {
    static_cast<void>(key.updateTypeAndGenKeyForPtr(attr, keyType, getPtrPathStr(memberKey, router_)));
    return;
  }
  Kel::Ptr<Path> const path = key.typeIs(attr, keyType);
  if (key.mode() == KelKey::Mode::Scalar) {
    extractScalar(memberKey, path, key, nullptr);
  } else {
    // The key's own attributes, encoded by a walker that makes key texts instead of leaves.
    FullKelTypeWalker::nextWalker(std::move(memberKey), ir_, path, key, timestamp_, nullptr);
  }
}

} // namespace Ondra
