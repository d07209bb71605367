// Kel::PtrInterface: base of every reference-counted object of the model.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Kel/Memory.h"
#include "Kel/Ptr.h"
#include "Kel/RefCount.h"
#include "Kstd/Export.h"

namespace Kel {

class KelType;
class NotifieeList;

// Lives on the scheduler thread (its count alone may change elsewhere, see
// `VFPtrInterface::threadSafePointers_`). Made with `new`, owned by the `Ptr`s to it, and ended by
// `handleZeroRef` when the last one lets go. Its storage comes from `kelMemAlloc`, whatever the derived
// class.
class KTD_EXPORT PtrInterface : public VFPtrInterface {
public:
  class NotifieeConst;

  PtrInterface() = default;
  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  // The list of observers of this object; null for objects that cannot be observed. Owned by the object.
  [[nodiscard]] virtual NotifieeList* notifieeList() const { return nullptr; }
  // Switches the delivery of attribute notifications of this object on or off. New objects are silent.
  virtual void hasNotificationActiveIs(bool active) { notificationActive_ = active; }
  // Tells the observers that this object has ended (`onZeroReferences`), once in its life.
  virtual void zeroReferencesIs();
  // The object's own type; invalid for objects that are not of the model itself (handles, boxes, cursors).
  [[nodiscard]] virtual KelType fwkType() const;

  // Attribute notifications are delivered.
  [[nodiscard]] bool hasNotificationActive() const noexcept { return notificationActive_; }
  // How many references hold it; a hint on any but its thread.
  [[nodiscard]] std::uint32_t refCount() const noexcept { return refs_.value(); }

  // Adds a reference; `Ptr` does it.
  void ref() const noexcept { refs_.add(); }
  // Drops a reference, and ends the object with the last one; `Ptr` does it.
  void unref() const noexcept {
    if (refs_.drop()) handleZeroRef();
  }

  static void* operator new(std::size_t size) { return kelMemAlloc(size); }
  static void* operator new(std::size_t, void* where) noexcept { return where; }
  static void operator delete(void* block, std::size_t size) noexcept { kelMemFree(block, size); }

protected:
  virtual ~PtrInterface() = default;
  // Runs when the last reference has gone; destroys the object.
  virtual void handleZeroRef() const noexcept { delete this; }

  // The observers know of the end.
  [[nodiscard]] bool zeroReferencesTold() const noexcept { return zeroReferencesTold_; }
  // Gives up a reference without ending the object at the last one: for a constructor that hands its object
  // out and keeps it meanwhile.
  void unrefInConstructor() const noexcept { static_cast<void>(refs_.drop()); }

private:
  RefCount refs_;
  bool notificationActive_ = false;
  bool zeroReferencesTold_ = false;
};

} // namespace Kel
