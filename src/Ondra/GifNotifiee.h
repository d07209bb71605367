// The watching of published objects: one notifiee per published path, and the registry of all of them.
//
// Invariants
// 1. At most one notifiee per path, and its object is alive: removal of the object from its parent ends the path (`retire`),
//    whoever still holds the object.
// 2. An object may be published under several paths; the oldest is the one that references to it are rendered as.
// 3. What is retired is gone whole: notifiees at and below the path, parked walkers there, `pathTypes` entries; at most one delete
//    is sent for it.
// 4. No notification walk runs inside another walk: changes told meanwhile wait, each once, until the walks have unwound.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "Kel/GenericIf.h"
#include "Kel/Notifiee.h"
#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/Path.h"
#include "Ondra/WalkTask.h"

namespace Ondra {

// Watches the object at one path: turns each attribute notification into a walk of that attribute, run at once, and the object's end
// into a delete of the path. Held by the registry; a walk that uses it holds it too. Scheduler thread only.
class KTD_EXPORT GifGnmiNotifiee final : public Kel::PtrInterface::NotifieeConst {
public:
  // REQUIRES a path with elements (asserted). Registers itself; delivery is switched on by `hasNotificationActiveIs(true)`.
  GifGnmiNotifiee(Kel::PtrInterface const* notifier, Kel::Ptr<Path const> prefixPath, BaseRouter& router,
                  bool first, bool second);
  explicit GifGnmiNotifiee(std::shared_ptr<WalkInfo>& walkInfo);
  ~GifGnmiNotifiee() override;

  void onZeroReferences() override;
  void onAttribute(Kel::AttributeId id, void const* key) override;

  [[nodiscard]] Kel::Ptr<Path const> const& prefixPath() const noexcept { return prefixPath_; }
  [[nodiscard]] BaseRouter& router() const noexcept { return router_; }
  // The watched object; null once it has gone.
  [[nodiscard]] Kel::Ptr<Kel::GenericIf const> object() const;
  [[nodiscard]] AttrStateMap& attrStates() noexcept { return attrStates_; }
  [[nodiscard]] AttrStateMap const& attrStates() const noexcept { return attrStates_; }
  // The flags of the notification walks.
  [[nodiscard]] WalkerFlags notifFlags() const noexcept;

  static void clearAllGnmiNotifiees();
  [[nodiscard]] static std::string dumpGnmiNotifieeMap();
  [[nodiscard]] static std::string dumpNotifieePathMap();
  [[nodiscard]] static std::string dumpPathTypesMap();
  [[nodiscard]] static std::size_t notifieeMapSize();

private:
  AttrStateMap attrStates_;
  Kel::Ptr<Path const> const prefixPath_;
  BaseRouter& router_;
  bool const first_;
  bool const second_;
};

// The notifiee of the walk's path, made and switched on when there is none; when there is one of another object, the path is retired
// first. None is made for a walk that takes notifiees down (flagInstantiatingOnly). Returns the notifiee that the path has now, or null.
KTD_EXPORT Kel::Ptr<GifGnmiNotifiee> setUpGifNotifiee(std::shared_ptr<WalkInfo>& walkInfo);

// A walk is running while one of these lives. When the outermost ends, the notifications that waited for it are run.
class KTD_EXPORT WalkScope {
public:
  WalkScope() noexcept { ++depth_; }
  ~WalkScope();
  WalkScope(WalkScope const&) = delete;
  WalkScope& operator=(WalkScope const&) = delete;
  [[nodiscard]] static int depth() noexcept { return depth_; }

private:
  static int depth_;
};

} // namespace Ondra
