// Observers of model objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kel/Scalars.h"
#include "Kstd/Export.h"

namespace Kel {

// An observer attached to one notifier object. Registered and active, it is told of every change of an
// attribute of its notifier and of the notifier's end. Whoever made it owns it; the notifier does not.
// Dropping it ends the observation, while it is being told itself when that call returns. All calls come on
// the scheduler thread, synchronously, after the model is consistent again. He may change the model, which
// then tells again from within. What he raises is traced and goes no further: the change stands, and the
// others are told.
class KTD_EXPORT PtrInterface::NotifieeConst : public PtrInterface {
public:
  NotifieeConst() = default;
  // Attaches to a notifier, strongly and not registered yet.
  explicit NotifieeConst(PtrInterface const* notifier);
  ~NotifieeConst() override;

  // The notifier has ended: it was removed from its parent, or lost its last reference. Told once. The
  // notifier must not be wrapped in a handle from here.
  virtual void onZeroReferences() {}
  // An attribute changed. `key`: the raw key of the member for a collection attribute (see
  // `GenericIf::NotifieeConst::keyPointerToGif`), valid during the call; else null. A null key for a
  // collection means all of it.
  virtual void onAttribute(AttributeId id, void const* key) {
    static_cast<void>(id);
    static_cast<void>(key);
  }
  // It is the stand-in of an object (`NotifieeList::standInIs`) that has something to tell, or that others
  // join: makes the observer of that object, if it is to have one. The object has no observers meanwhile.
  virtual void onNeeded(PtrInterface const& object) { static_cast<void>(object); }

  // Attaches to another notifier (null: to none). Its two properties below stay, in whichever order they are
  // set.
  void notifierIs(PtrInterface const* notifier);
  // Weak: does not keep the notifier alive, and has none when that has gone. A notifier without a list of
  // observers could not say so: it is kept alive all the same.
  void isWeakReferenceIs(bool weak);
  // Told of what happens, or not.
  void isRegisteredNotifieeIs(bool registered);

  [[nodiscard]] PtrInterface const* notifier() const noexcept { return notifier_; } // null: attached to none
  [[nodiscard]] bool isWeakReference() const noexcept { return weak_; }             // see isWeakReferenceIs
  // See isRegisteredNotifieeIs.
  [[nodiscard]] bool isRegisteredNotifiee() const noexcept { return registered_; }

private:
  friend class NotifieeList;
  static constexpr std::uint32_t kNowhere = ~std::uint32_t{0};
  [[nodiscard]] bool keepsAlive() const; // the notifier
  void enlist();
  void delist() noexcept;
  void release() noexcept;

  bool weak_ = false; // these two lie in what the base leaves over
  bool registered_ = false;
  PtrInterface const* notifier_ = nullptr;
  std::uint32_t place_ = kNowhere; // in the notifier's list
};

// The observers of one object, in the order of their registration, and those that only want to know that it
// has gone. Tolerates registration and removal during a visit: who was registered when the visit began is
// told, unless he has left meanwhile; who joins during it is not. Joining and leaving take the same time
// however many there are. 8 bytes, and no storage of its own for a single one.
//
// Where objects are many and hardly any of them ever changes, one observer can stand in the lists of all of
// them, for observers that have not been made.
class KTD_EXPORT NotifieeList {
public:
  using Member = PtrInterface::NotifieeConst*; // not owned

  NotifieeList() = default;
  NotifieeList(NotifieeList const&) = delete;
  NotifieeList& operator=(NotifieeList const&) = delete;
  ~NotifieeList();

  // Nobody observes, or wants to know of the end.
  [[nodiscard]] bool empty() const noexcept { return one_ == nullptr; }
  // With a null for some that have left. Valid until the list changes.
  [[nodiscard]] std::span<Member const> members() const noexcept {
    if (Several const* const several = this->several()) [[unlikely]]
      return several->places;
    return {&one_, one_ == nullptr || standIn() != nullptr ? std::size_t{0} : std::size_t{1}};
  }
  // The first of them, null when there is none or it has left.
  [[nodiscard]] Member front() const noexcept {
    std::span<Member const> const all = members();
    return all.empty() ? nullptr : all.front();
  }

  // Has an observer of other objects stand here for one that is made when it is needed (`onNeeded`): it is no
  // member. It is held as long as it stands here. REQUIRES an empty list.
  void standInIs(Member standIn) noexcept {
    standIn->ref();
    one_ = reinterpret_cast<Member>(reinterpret_cast<std::uintptr_t>(standIn) + kStandIn);
  }
  [[nodiscard]] Member standIn() const noexcept { // null: none stands here
    auto const bits = reinterpret_cast<std::uintptr_t>(one_);
    return (bits & kStandIn) != 0 ? reinterpret_cast<Member>(bits - kStandIn) : nullptr;
  }
  // Empties the list of its stand-in, which it returns; null when none stands here.
  Ptr<PtrInterface::NotifieeConst> takeStandIn() noexcept;
  // Has the stand-in, if there is one, make the observer of the object whose list it is.
  void haveMade(PtrInterface const& notifier) {
    if (standIn() != nullptr) [[unlikely]]
      takeStandIn()->onNeeded(notifier);
  }

  // Delivers an attribute notification to the active notifiees of the object whose list it is. Keeps it alive
  // meanwhile.
  void visit(PtrInterface const& notifier, AttributeId id, void const* key);
  // Tells them that it has ended.
  void visitZeroReferences(PtrInterface const& notifier);
  // Drops all of them without telling.
  void deleteAll() noexcept;

private:
  friend class PtrInterface::NotifieeConst;
  struct Several {
    std::vector<Member> places; // null where somebody has left
    std::uint32_t left = 0;     // how many have
    std::uint32_t visits = 0;   // that are under way: nobody's place changes meanwhile
  };
  class Visit;
  template <class Tell>
  void tell(Tell const& tell) const;
  void add(Member notifiee);
  void remove(Member notifiee) noexcept;
  void tidy() noexcept;
  // Several have a block, whose address is kept with its lowest bit set; a stand-in's has the next one.
  static constexpr std::uintptr_t kStandIn = 2;
  [[nodiscard]] Several* several() const noexcept {
    auto const bits = reinterpret_cast<std::uintptr_t>(one_);
    return (bits & 1) != 0 ? reinterpret_cast<Several*>(bits - 1) : nullptr;
  }

  Member one_ = nullptr;
};
static_assert(alignof(PtrInterface::NotifieeConst) > 2);

} // namespace Kel
