#include "Kel/Notifiee.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <memory>

#include "Kel/Error.h"

namespace Kel {

// --- NotifieeConst -----------------------------------------------------------------------------------

PtrInterface::NotifieeConst::NotifieeConst(PtrInterface const* notifier) { notifierIs(notifier); }

PtrInterface::NotifieeConst::~NotifieeConst() { notifierIs(nullptr); }

void PtrInterface::NotifieeConst::notifierIs(PtrInterface const* notifier) {
  if (notifier == notifier_) return;
  bool const wasRegistered = registered_;
  isRegisteredNotifieeIs(false);
  PtrInterface const* const old = notifier_;
  notifier_ = notifier;
  if (!weak_ && notifier_ != nullptr) notifier_->ref();
  if (notifier_ != nullptr) isRegisteredNotifieeIs(wasRegistered);
  if (!weak_ && old != nullptr) old->unref();
}

void PtrInterface::NotifieeConst::isWeakReferenceIs(bool weak) {
  if (weak == weak_) return;
  weak_ = weak;
  if (notifier_ == nullptr) return;
  if (weak_) {
    notifier_->unref();
  } else {
    notifier_->ref();
  }
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_) return;
  NotifieeList* const list = notifier_ == nullptr ? nullptr : notifier_->notifieeList();
  if (list == nullptr) return;
  registered_ = registered;
  if (registered) {
    list->add(this);
  } else {
    list->remove(this);
  }
}

void PtrInterface::NotifieeConst::release() {
  registered_ = false;
  if (weak_) notifier_ = nullptr;
}

// --- NotifieeList ------------------------------------------------------------------------------------

NotifieeList::~NotifieeList() { deleteAll(); }

void NotifieeList::add(PtrInterface::NotifieeConst* notifiee) {
  if (Members* const members = several()) {
    members->push_back(notifiee);
  } else if (one_ != nullptr) {
    severalIs(new Members{one_, notifiee});
  } else {
    one_ = notifiee;
  }
}

void NotifieeList::remove(PtrInterface::NotifieeConst* notifiee) noexcept {
  Members* const members = several();
  if (members == nullptr) {
    if (one_ == notifiee) one_ = nullptr;
    return;
  }
  std::erase(*members, notifiee);
  if (members->size() <= 1) {
    one_ = members->empty() ? nullptr : members->front();
    delete members;
  }
}

bool NotifieeList::holds(PtrInterface::NotifieeConst const* notifiee) const noexcept {
  auto const all = members();
  return std::find(all.begin(), all.end(), notifiee) != all.end();
}

// The snapshot pins the notifiees, so that one that is dropped by another's call still is an object when its turn comes.
template <class Tell>
void NotifieeList::tell(Tell const& tell) const {
  if (empty()) return;
  boost::container::small_vector<Ptr<PtrInterface::NotifieeConst>, 4> snapshot;
  for (PtrInterface::NotifieeConst* const member : members())
    snapshot.emplace_back(Ptr(member));
  for (auto const& member : snapshot) {
    bool const dropped = member->refCount() == 1; // only the pin is left: its owner is done with it
    if (dropped || !holds(member.get()) || !member->hasNotificationActive()) continue;
    try {
      tell(*member);
    } catch (...) {
      traceRaised("observer");
    }
  }
}

void NotifieeList::visit(AttributeId id, void const* key) const {
  if (empty()) return;
  PtrInterface const* const notifier = members().front()->notifier();
  Ptr<PtrInterface const> const pin(notifier->refCount() == 0 ? nullptr : notifier); // nobody owns it yet
  tell([id, key](PtrInterface::NotifieeConst& notifiee) { notifiee.onAttribute(id, key); });
}

void NotifieeList::visitZeroReferences() const {
  tell([](PtrInterface::NotifieeConst& notifiee) { notifiee.onZeroReferences(); });
}

void NotifieeList::deleteAll() {
  std::unique_ptr<Members> const leaving(several());
  PtrInterface::NotifieeConst* const one = leaving ? nullptr : one_;
  one_ = nullptr;
  if (one != nullptr) one->release();
  if (!leaving) return;
  for (PtrInterface::NotifieeConst* const member : *leaving)
    member->release();
}

} // namespace Kel
