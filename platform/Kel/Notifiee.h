// Observers of model objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Kel/PtrInterface.h"
#include "Kel/Scalars.h"
#include "Kstd/Export.h"

namespace Kel {

// An observer attached to one notifier object. Registered and active, it is told of every change of an attribute of its
// notifier and of the notifier's end. Whoever made it owns it; the notifier does not. Dropping it ends the observation.
// All calls come on the scheduler thread, synchronously, after the model is consistent again. He may change the model, which then tells
// again from within. What he raises is traced and goes no further: the change stands, and the others are told.
class KTD_EXPORT PtrInterface::NotifieeConst : public PtrInterface {
public:
  NotifieeConst() = default;
  // Attaches to a notifier, strongly and not registered yet.
  explicit NotifieeConst(PtrInterface const* notifier);
  ~NotifieeConst() override;

  // The notifier has ended: it was removed from its parent, or lost its last reference. Told once. The notifier must not be
  // wrapped in a handle from here.
  virtual void onZeroReferences() {}
  // An attribute changed. `key`: the raw key of the member for a collection attribute (see
  // `GenericIf::NotifieeConst::keyPointerToGif`), valid during the call; else null. A null key for a collection means all of it.
  virtual void onAttribute(AttributeId id, void const* key) {
    static_cast<void>(id);
    static_cast<void>(key);
  }

  // Attaches to another notifier (null: to none), taking its registration along.
  void notifierIs(PtrInterface const* notifier);
  // Weak: does not keep the notifier alive. Set it before the notifier could go.
  void isWeakReferenceIs(bool weak);
  // In the notifier's list, or not.
  void isRegisteredNotifieeIs(bool registered);

  [[nodiscard]] PtrInterface const* notifier() const noexcept { return notifier_; }
  [[nodiscard]] bool isWeakReference() const noexcept { return weak_; }
  [[nodiscard]] bool isRegisteredNotifiee() const noexcept { return registered_; }

private:
  friend class NotifieeList;
  void release();

  PtrInterface const* notifier_ = nullptr;
  bool weak_ = false;
  bool registered_ = false;
};

// The observers of one object, in the order of their registration. Tolerates registration and removal during a visit: who was
// registered when the visit began is told, unless he has left meanwhile; who joins during it is not. 8 bytes, and
// no storage of its own for a single one.
class KTD_EXPORT NotifieeList {
public:
  NotifieeList() = default;
  NotifieeList(NotifieeList const&) = delete;
  NotifieeList& operator=(NotifieeList const&) = delete;
  ~NotifieeList();

  [[nodiscard]] bool empty() const noexcept { return one_ == nullptr; }
  [[nodiscard]] std::size_t size() const noexcept { return members().size(); }
  // Valid until the list changes.
  [[nodiscard]] std::span<PtrInterface::NotifieeConst* const> members() const noexcept {
    if (Members const* const several = this->several()) [[unlikely]]
      return *several;
    return {&one_, one_ == nullptr ? std::size_t{0} : std::size_t{1}};
  }

  // Delivers an attribute notification to the active notifiees. Keeps the notifier alive meanwhile.
  void visit(AttributeId id, void const* key) const;
  // Tells them that the notifier has ended.
  void visitZeroReferences() const;
  // Drops all of them without telling.
  void deleteAll();

private:
  friend class PtrInterface::NotifieeConst;
  using Members = std::vector<PtrInterface::NotifieeConst*>;
  template <class Tell>
  void tell(Tell const& tell) const;
  void add(PtrInterface::NotifieeConst* notifiee);
  void remove(PtrInterface::NotifieeConst* notifiee) noexcept;
  [[nodiscard]] bool holds(PtrInterface::NotifieeConst const* notifiee) const noexcept;
  // Several have a block, whose address is kept with its lowest bit set.
  [[nodiscard]] Members* several() const noexcept {
    auto const bits = reinterpret_cast<std::uintptr_t>(one_);
    return (bits & 1) != 0 ? reinterpret_cast<Members*>(bits - 1) : nullptr;
  }
  void severalIs(Members* members) noexcept {
    one_ = reinterpret_cast<PtrInterface::NotifieeConst*>(reinterpret_cast<std::uintptr_t>(members) + 1);
  }

  PtrInterface::NotifieeConst* one_ = nullptr;
};

} // namespace Kel
