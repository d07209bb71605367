// The watching of published objects: one notifiee per published path. The registry of all of them is in
// NotifieeMaps.h.
//
// Invariants
// 1. At most one notifiee per path, and its object is alive: removal of the object from its parent ends the
//    path (`retire`), whoever still holds the object.
// 2. An object may be published under several paths; the oldest is the one that references to it are rendered
//    as.
// 3. What is retired is gone whole: notifiees at and below the path, parked walkers there, `pathTypes`
//    entries; at most one delete is sent for it.
// 4. No notification walk runs inside another walk: changes told meanwhile wait, each once, until the walks
//    have unwound.
// 5. A delete is stamped later than whatever was sent before it; what is sent after it is not stamped
//    earlier.
// 6. What is watched is alive: whoever observes the types or takes the delete may register another notifiee
//    at the path, end it or end the object, and the last to come stands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <typeinfo>

#include "Kel/Allocator.h"
#include "Kel/GenericIf.h"
#include "Kel/Notifiee.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "Kstd/Export.h"
#include "Ondra/AttrStateMap.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/Path.h"
#include "Ondra/WalkTask.h"
#include "Ondra/WirePrefix.h"

namespace Ondra {

class EmittedLeaves;

// Watches the object at one path: turns each attribute notification into a walk of that attribute, run at
// once, and the object's end into a delete of the path. Held by the registry; a walk that uses it holds it
// too. Scheduler thread only.
class KTD_EXPORT GifGnmiNotifiee final : public Kel::PtrInterface::NotifieeConst,
                                         private Kel::TrackedObject<GifGnmiNotifiee> {
public:
  using Kel::TrackedObject<GifGnmiNotifiee>::operator new;
  using Kel::TrackedObject<GifGnmiNotifiee>::operator delete;

  // REQUIRES a path with elements (asserted). Registers itself, unless the object has been removed from its
  // parent; delivery is switched on by `hasNotificationActiveIs(true)`. `first`: its notification walks send
  // nothing; `second`: they carry flagNotifSecond.
  GifGnmiNotifiee(Kel::PtrInterface const* notifier, Kel::Ptr<Path const> prefixPath, BaseRouter& router,
                  bool first, bool second);
  // Both flags false, whatever the flags of the walk.
  explicit GifGnmiNotifiee(std::shared_ptr<WalkInfo>& walkInfo);
  ~GifGnmiNotifiee() override;

  // The object has ended, or a walk takes its watching down. Does nothing once the path is another
  // notifiee's. REQUIRES a path that is registered (asserted).
  void onZeroReferences() override;
  void onAttribute(Kel::AttributeId id, void const* key) override;
  // Of a container that it stands in for: makes its notifiee.
  void onNeeded(Kel::PtrInterface const& container) override;
  // Switched on again, it first makes good what it has missed.
  void hasNotificationActiveIs(bool active) override;

  [[nodiscard]] Kel::Ptr<Path const> const& prefixPath() const noexcept { return prefixPath_; } // its path
  [[nodiscard]] BaseRouter& router() const noexcept { return router_; }                         // of changes
  // The watched object; null once it has gone.
  [[nodiscard]] Kel::Ptr<Kel::GenericIf const> object() const;
  [[nodiscard]] Kel::KelType objectType() const noexcept { return type_; }  // also when it has gone
  [[nodiscard]] AttrStateMap& attrStates() noexcept { return attrStates_; } // when each changed
  [[nodiscard]] AttrStateMap const& attrStates() const noexcept { return attrStates_; } // likewise
  // What was last sent: of attributes of which that must be known. Made at the first call.
  [[nodiscard]] EmittedLeaves& emitted();
  [[nodiscard]] EmittedLeaves* emittedSoFar() noexcept { // null: nothing is known
    return hasEmitted_ ? &emitted() : nullptr;
  }
  // The flags of the notification walks.
  [[nodiscard]] WalkerFlags notifFlags() const noexcept;
  // An attribute of the object meets a field of the key in the path (`WalkRules::metKeyField`).
  [[nodiscard]] bool meetsKeyFields() const noexcept { return meetsKeyFields_; }
  // The elements of the path as bytes, once an encoder has made them.
  [[nodiscard]] WirePrefix& wirePrefix() noexcept { return wirePrefix_; }
  // Has what walks of the object read of it, beside itself, on its way into the cache.
  void prefetch() const noexcept {
    attrStates_.prefetch();
    wirePrefix_.prefetch();
  }
  // In the order in which notifiees are made.
  [[nodiscard]] std::uint64_t serial() const noexcept { return serial_; }
  // The registry holds it: its path has not ended.
  [[nodiscard]] bool isRegistered() const noexcept { return inRegistry_; }
  // The observer as a notifiee that is registered; null when it is none.
  [[nodiscard]] static GifGnmiNotifiee* registered(NotifieeConst* observer) noexcept {
    auto* const notifiee = observer != nullptr && typeid(*observer) == typeid(GifGnmiNotifiee)
                               ? static_cast<GifGnmiNotifiee*>(observer)
                               : nullptr;
    return notifiee != nullptr && notifiee->inRegistry_ ? notifiee : nullptr;
  }

  // Notes that the path is the holder's with one element more, that of the holder's attribute under which the
  // object, an entity, has its one place: walks of the holder need not work out the path again. Keeps the
  // holder.
  void heldByIs(GifGnmiNotifiee& holder, Kel::AttributeId attr);
  // Whether that has been noted.
  [[nodiscard]] bool isHeldBy(GifGnmiNotifiee const& holder, Kel::AttributeId attr) const noexcept {
    return holder_.get() == &holder && holderAttr_ == attr;
  }

  [[nodiscard]] GifGnmiNotifiee* holder() const noexcept { return holder_.get(); } // null: not noted
  // It stands in for containers, or has done so (live/StandIns.h), which were walked at the time that its
  // states keep.
  [[nodiscard]] bool hasStoodIn() const noexcept { return attrStates_.keepsTime(); }

  // Walks one attribute, or one member of a collection, as after a change: at once, or when the walks that
  // are running have unwound. A null key for a collection: all of it.
  void changed(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key) { changed(id, key, true); }
  // The same for a path that it shows.
  void pathChanged(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key) {
    changed(id, key, false);
  }

  // Where a member whose key holds a reference has its place, relative to the prefix:
  struct MemberPlace {
    Kel::Ptr<Path const>
        before; // the path that it was sent under, when that was another one; to be ended by the caller
    bool isLast = true; // no other member covers it
  };
  MemberPlace memberPathIs(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key,
                           Kel::Ptr<Path const> const& path);
  // The member has gone from its path. What is left there is sent again when the walks that are running have
  // unwound.
  void memberGone(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key);
  // Sends what is to be seen at a path that members share: at once. REQUIRES that no walk is running.
  void sharersChanged(Kel::AttributeId id, Kel::Ptr<Path const> const& path);

  // Ends all watching, silently. What is parked is dropped with it. REQUIRES that no walk is running
  // (asserted).
  static void clearAllGnmiNotifiees();
  [[nodiscard]] static std::string dumpGnmiNotifieeMap(); // a line each
  [[nodiscard]] static std::string dumpNotifieePathMap(); // likewise, by object
  [[nodiscard]] static std::string dumpPathTypesMap();    // likewise, of types
  [[nodiscard]] static std::size_t notifieeMapSize();     // how many

private:
  friend class NotifieeMaps;
  void watch(Kel::PtrInterface const& notifier);
  void recordType(Kel::PtrInterface const& notifier);
  void changed(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key, bool inModel);
  void leavePath(Kel::AttributeId id, Kel::Ptr<Kel::GenericIf const> const& key,
                 Kel::Ptr<Path const> const& path);

  // Many containers of a tree have one: none of its bytes is for what few need. What walks read comes first.
  Kel::AttributeId holderAttr_ = 0;
  Kel::Ptr<GifGnmiNotifiee> holder_; // null: not noted
  AttrStateMap attrStates_;
  Kel::Ptr<Path const> const prefixPath_;
  WirePrefix wirePrefix_;
  Kel::KelType const type_; // of the notifier
  BaseRouter& router_;
  std::uint64_t const serial_ : 56;
  bool const meetsKeyFields_ : 1;
  bool const first_ : 1;
  bool const second_ : 1;
  bool inRegistry_ : 1 = false;
  bool recordedType_ : 1 = false; // the entry in `pathTypesMap` is its own
  bool wasSwitchedOff_ : 1 = false;
  bool hasEmitted_ : 1 = false;
};

static_assert(sizeof(void*) != 8 || sizeof(GifGnmiNotifiee) <= 128);

// The notifiee of the walk's path, made and switched on when there is none; when there is one of another
// object, the path is retired first. None is made for a walk that takes notifiees down
// (flagInstantiatingOnly). Returns the notifiee that the path has now, or null.
KTD_EXPORT Kel::Ptr<GifGnmiNotifiee> setUpGifNotifiee(std::shared_ptr<WalkInfo>& walkInfo);

// Ends a path: nothing at or below it is watched, parked or registered afterwards, but what observers of the
// types register in turn, and references to what was there are rendered anew. Sends nothing. Returns whether
// anything was watched there.
KTD_EXPORT bool retire(Kel::Ptr<Path const> const& path);

// Sends a delete of a whole path, later than everything before it.
KTD_EXPORT void forceDelete(BaseRouter& router, Kel::Ptr<Path const> const& path);

// While one lives, paths end without a delete.
class KTD_EXPORT SilentEnds {
public:
  explicit SilentEnds(bool silent) noexcept : silent_(silent) { depth_ += silent_ ? 1 : 0; } // false: nothing
  ~SilentEnds() { depth_ -= silent_ ? 1 : 0; }
  SilentEnds(SilentEnds const&) = delete;
  SilentEnds& operator=(SilentEnds const&) = delete;
  [[nodiscard]] static bool active() noexcept { return depth_ > 0; } // one lives

private:
  static int depth_;
  bool const silent_;
};

// A walk is running while one of these lives. When the outermost ends, the notifications that waited for it
// are run (unless an exception is passing).
class KTD_EXPORT WalkScope {
public:
  WalkScope() noexcept;
  ~WalkScope() noexcept(false);
  WalkScope(WalkScope const&) = delete;
  WalkScope& operator=(WalkScope const&) = delete;
  [[nodiscard]] static int depth() noexcept { return depth_; } // how many live

private:
  static int depth_;
  int const exceptions_;
};

} // namespace Ondra
