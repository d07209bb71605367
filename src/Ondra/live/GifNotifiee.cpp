// From being made to being told: registration, the walk that a change starts, members that share a path, the
// end of the object.
#include "Ondra/GifNotifiee.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <memory>
#include <utility>

#include "Fleck/Timer.h"
#include "Kel/Attr.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/NotifieeMaps.h"
#include "Ondra/PathTypes.h"
#include "Ondra/live/EmittedLeaves.h"
#include "Ondra/live/Fault.h"
#include "Ondra/live/KelTypeNotifWalker.h"
#include "Ondra/live/NotifieeTrace.h"
#include "Ondra/live/Pending.h"
#include "Ondra/live/Referrers.h"
#include "Ondra/live/Sharers.h"
#include "Ondra/live/StandIns.h"
#include "Ondra/live/Watch.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {
namespace {

constexpr WalkerFlags kMuteFlags{0x23};
constexpr WalkerFlags kNotifFlags{0x2e};

std::uint64_t& madeSoFar() {
  static std::uint64_t count = 0;
  return count;
}

// What somebody stands in for is older.
std::uint64_t nextSerial(Kel::PtrInterface const& notifier) {
  if (Kel::NotifieeList* const list = notifier.notifieeList()) list->haveMade(notifier);
  return ++madeSoFar();
}

// Few have any. Never destroyed: notifiees may be dropped by whatever ends later.
auto& emittedByNotifiee() {
  static auto& all = *new absl::flat_hash_map<GifGnmiNotifiee const*, std::unique_ptr<EmittedLeaves>>();
  return all;
}

} // namespace

GifGnmiNotifiee::GifGnmiNotifiee(Kel::PtrInterface const* notifier, Kel::Ptr<Path const> prefixPath,
                                 BaseRouter& router, bool first, bool second)
    : attrStates_(this)
    , prefixPath_(std::move(prefixPath))
    , type_(notifier->fwkType())
    , router_(router)
    , serial_(nextSerial(*notifier))
    , meetsKeyFields_(WalkRules::meetsKeyFields(type_, *prefixPath_))
    , first_(first)
    , second_(second) {
  TOVAK_TRACE(notifieeTrace(), 5, kNotifieeCategory, "prefixPath_:{}", prefixPath_);
  TOVAK_ASSERT(!prefixPath_->empty(), notifieeTrace(), "prefixPath_ cannot be empty!");
  ref(); // whoever observes the types may take it out of the registry again
  try {
    watch(*notifier);
  } catch (...) {
    notifieeMaps->erase(Kel::Ptr<GifGnmiNotifiee>(this));
    throw;
  }
  unrefInConstructor();
}

GifGnmiNotifiee::GifGnmiNotifiee(std::shared_ptr<WalkInfo>& walkInfo)
    : GifGnmiNotifiee(walkInfo->obj, walkInfo->path, walkInfo->router, false, false) {}

GifGnmiNotifiee::~GifGnmiNotifiee() {
  if (hasEmitted_) emittedByNotifiee().erase(this);
}

// What has ended will never be told of: it is not watched.
void GifGnmiNotifiee::watch(Kel::PtrInterface const& notifier) {
  auto const* const entity = type_.isEntity() ? static_cast<Kel::Entity const*>(&notifier) : nullptr;
  if (entity != nullptr && entity->isOrphan()) return;
  notifieeMaps->notifieeMapsInsert(Kel::Ptr<GifGnmiNotifiee>(this));
  isWeakReferenceIs(true);
  isRegisteredNotifieeIs(true);
  notifierIs(&notifier);
  recordType(notifier);
  if (entity != nullptr && (this->notifier() == nullptr || entity->isOrphan()))
    notifieeMaps->erase(Kel::Ptr<GifGnmiNotifiee>(this));
}

// Directories hold the entities that are recorded and are not recorded themselves. The entry comes last, when
// all is in order: those who observe the types may do anything. A notifiee that was there before has left its
// entry to this one.
void GifGnmiNotifiee::recordType(Kel::PtrInterface const& notifier) {
  Kel::Ptr<PathToType> const types = pathTypesMap;
  if (!types) return;
  bool const candidate = type_.isEntity() && !type_.isDir();
  Kel::Entity const* const parent = candidate ? static_cast<Kel::Entity const&>(notifier).parent() : nullptr;
  bool const isRecorded = parent != nullptr && parent->fwkType().isDir();
  bool const wasRecorded = recordedType_;
  recordedType_ = isRecorded;
  if (wasRecorded || isRecorded) {
    Kel::String const path(prefixPath_->toString());
    isRecorded ? types->pathTypesIs(path, type_.name()) : static_cast<void>(types->pathTypesDel(path));
  }
}

Kel::Ptr<Kel::GenericIf const> GifGnmiNotifiee::object() const {
  return notifier() == nullptr ? nullptr : Kel::GenericIf::toObject(notifier());
}

WalkerFlags GifGnmiNotifiee::notifFlags() const noexcept {
  WalkerFlags const flags = first_ ? kMuteFlags : kNotifFlags;
  return second_ ? flags | flagNotifSecond : flags;
}

void GifGnmiNotifiee::onAttribute(Kel::AttributeId id, void const* key) {
  prefetch();
  TOVAK_TRACE(notifieeTrace(), 5, kNotifieeCategory, "prefixPath_:{}", prefixPath_);
  Fleck::message("GifGnmiNotifiee::onAttribute");
  Kel::KelAttr const attr = type_.attr(absoluteId(id));
  if (!attr) return;
  tellOrEnd([&] { changed(id, Kel::GenericIf::NotifieeConst::keyPointerToGif(attr, key)); });
}

void GifGnmiNotifiee::onNeeded(Kel::PtrInterface const& container) {
  StandIns::made(*this, static_cast<Kel::Entity const&>(container));
}

void GifGnmiNotifiee::changed(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key, bool inModel) {
  tellOrEnd([&] {
    if (WalkScope::depth() > 0) {
      Pending::instance().add(*this, id, key, inModel ? Pending::Cause::Model : Pending::Cause::Path);
      return;
    }
    Kel::Ptr<GifGnmiNotifiee> const pin(this); // the walk may end the path
    if (!inRegistry_ || notifier() == nullptr) return;
    WalkScope const scope;
    if (!key && KelTypeNotifWalker::tellOwnLeaf(*this, *notifier(), id)) return;
    KelTypeNotifWalker walker(prefixPath_, *this, object(), Path::PathIs(), router_, id, key, notifFlags());
    static_cast<void>(walker.walk());
  });
}

void GifGnmiNotifiee::heldByIs(GifGnmiNotifiee& holder, Kel::AttributeId attr) {
  holder_ = Kel::Ptr<GifGnmiNotifiee>(&holder);
  holderAttr_ = attr;
}

EmittedLeaves& GifGnmiNotifiee::emitted() {
  std::unique_ptr<EmittedLeaves>& mine = emittedByNotifiee()[this];
  if (!mine) mine = std::make_unique<EmittedLeaves>();
  hasEmitted_ = true;
  return *mine;
}

GifGnmiNotifiee::MemberPlace GifGnmiNotifiee::memberPathIs(Kel::AttributeId id,
                                                           Kel::Ptr<Kel::GenericIf const> const& key,
                                                           Kel::Ptr<Path const> const& path) {
  EmittedLeaves::Record& record = emitted().get(id, key);
  MemberPlace place;
  bool const isElsewhere = record.memberPath && !record.memberPath->isEqual(path.get());
  if (isElsewhere) {
    place.before = record.memberPath;
    record.leaves.clear();
    leavePath(id, key, place.before);
  }
  record.memberPath = path;
  if (Sharers::isShared(*path)) {
    Kel::Ptr<Kel::GenericIf const> const own = AttrStateNode(id, key).key();
    Sharers& sharers = emitted().sharers();
    sharers.add(id, path, own);
    auto const last = sharers.last(id, path);
    place.isLast = *last == own || (*last && own && (*last)->equals(*own));
  }
  return place;
}

void GifGnmiNotifiee::memberGone(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key) {
  EmittedLeaves* const emitted = emittedSoFar();
  if (emitted == nullptr) return;
  EmittedLeaves::Record const* const record = emitted->find(id, key);
  if (record != nullptr && record->memberPath) leavePath(id, key, Kel::Ptr<Path const>(record->memberPath));
  emitted->del(id, key);
}

void GifGnmiNotifiee::leavePath(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key,
                                Kel::Ptr<Path const> const& path) {
  if (Sharers::isShared(*path)) {
    emitted().sharers().del(id, path, AttrStateNode(id, key).key());
    Pending::instance().addSharers(*this, id, path);
  }
}

void GifGnmiNotifiee::sharersChanged(Kel::AttributeId id, Kel::Ptr<Path const> const& path) {
  tellOrEnd([&] {
    Kel::Ptr<GifGnmiNotifiee> const pin(this); // the walk may end the path
    Kel::Ptr<Kel::GenericIf const> object = this->object();
    if (!inRegistry_ || !object) return;
    WalkScope const scope;
    KelTypeNotifWalker walker(prefixPath_, *this, std::move(object), Path::PathIs(), router_, id, nullptr,
                              notifFlags());
    walker.walkSharers(path);
  });
}

void GifGnmiNotifiee::onZeroReferences() {
  // The notifier may be half gone: it is not touched here.
  Kel::Ptr<GifGnmiNotifiee> const pin(this);
  Kel::Ptr<Path const> const path = prefixPath_;
  TOVAK_TRACE(notifieeTrace(), 5, kNotifieeCategory, "prefixPath_:{}", path);
  GifGnmiNotifiee const* const registered = inRegistry_ ? this : notifieeMaps->find(path);
  TOVAK_ASSERT(registered != nullptr, notifieeTrace(), "could not find prefixPath {} in gNmiNotifieeMap",
               path);
  if (registered != this) return;
  WalkScope const unwindFirst; // the delete goes out before what follows from the end
  if (type_.reportsDelete() && !SilentEnds::active()) forceDelete(router_, path);
  if (inRegistry_) // whoever has taken the delete may have ended it, or begun anew
    retire(path);
}

void GifGnmiNotifiee::hasNotificationActiveIs(bool active) {
  bool const was = hasNotificationActive();
  NotifieeConst::hasNotificationActiveIs(active);
  if (was && !active) wasSwitchedOff_ = true;
  if (!active || !wasSwitchedOff_) return;
  wasSwitchedOff_ = false;
  if (!inRegistry_) return;
  if (notifier() == nullptr) {
    onZeroReferences();
    return;
  }
  WalkScope const together;
  for (Kel::KelTypeBase::AttributeQIterator attr(type_); attr; ++attr)
    changed((*attr).id(), nullptr);
}

Kel::Ptr<GifGnmiNotifiee> setUpGifNotifiee(std::shared_ptr<WalkInfo>& walkInfo) {
  Kel::Ptr<GifGnmiNotifiee> const found(notifieeMaps->find(walkInfo->path));
  if ((found && found->notifier() == walkInfo->obj) || walkInfo->walkerFlags.has(flagInstantiatingOnly))
    return found;
  if (found) {
    retire(walkInfo->path);
    forceDelete(found->router(), walkInfo->path);
  }
  return watchAt(*walkInfo->obj, walkInfo->path, walkInfo->router);
}

Kel::Ptr<GifGnmiNotifiee> watchAt(Kel::PtrInterface const& object, Kel::Ptr<Path const> const& path,
                                  BaseRouter& router) {
  bool const isEntity = object.fwkType().isEntity();
  bool const isFirst = isEntity && !notifieeMaps->pathOf(&object);
  Kel::Ptr<GifGnmiNotifiee> made(new GifGnmiNotifiee(&object, path, router, false, false));
  made->hasNotificationActiveIs(true);
  if (isFirst && made->isRegistered() && Referrers::instance().size() > 0)
    tellOrEnd([&] { Referrers::instance().pathChanged(static_cast<Kel::Entity const&>(object).serial()); });
  return made;
}

// --- all of them ---------------------------------------------------------------------------------------

void GifGnmiNotifiee::clearAllGnmiNotifiees() {
  TOVAK_ASSERT(WalkScope::depth() == 0, notifieeTrace(), "notifiees cannot be cleared inside a walk");
  FullKelTypeWalker::flushWalkMap();
  Pending::instance().clear();
  Referrers::instance().clear();
  for (std::size_t left = notifieeMapSize(); left > 0; --left)
    if (Kel::Ptr<GifGnmiNotifiee> const notifiee = notifieeMaps->last()) notifieeMaps->erase(notifiee);
  StandIns::forgetAll();
  TOVAK_ASSERT(notifieeMapSize() == 0, notifieeTrace(), "Expected all GifGnmiNotifiees to be cleared");
}

std::string GifGnmiNotifiee::dumpGnmiNotifieeMap() {
  std::string text;
  notifieeMaps->forEach([&text](GifGnmiNotifiee const& notifiee) {
    text += fmt::format("path:{} notifiee:{}\n", notifiee.prefixPath(), static_cast<void const*>(&notifiee));
  });
  return text;
}

std::string GifGnmiNotifiee::dumpNotifieePathMap() {
  std::string text;
  notifieeMaps->forEach([&text](GifGnmiNotifiee const& notifiee) {
    text += fmt::format("ptrInterface:{} path:{}\n", static_cast<void const*>(notifiee.notifier()),
                        notifiee.prefixPath());
  });
  return text;
}

std::string GifGnmiNotifiee::dumpPathTypesMap() {
  std::string text;
  if (pathTypesMap)
    for (auto const& [path, type] : pathTypesMap->pathTypes())
      text += fmt::format("path:{} typeName:{}\n", path.view(), type.view());
  return text;
}

std::size_t GifGnmiNotifiee::notifieeMapSize() { return notifieeMaps->size(); }

} // namespace Ondra
