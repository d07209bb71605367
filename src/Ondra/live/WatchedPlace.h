// Ondra::WatchedPlace: where a watched object has its place, whether it has a notifiee or another's stands in
// for it (StandIns.h): what walks and encoders need of either.
#pragma once

#include <optional>

#include "Kel/Entity.h"
#include "Kel/Ptr.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/ResponsePath.h"
#include "Ondra/WirePrefix.h"
#include "Ondra/live/StandIns.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {

// On the stack of whoever is at the object. Lives no longer than the place above it, and no longer than
// somebody holds its keeper. Scheduler thread only.
class WatchedPlace {
public:
  explicit WatchedPlace(GifGnmiNotifiee& notifiee)
      : path(notifiee.prefixPath())
      , keeper_(&notifiee)
      , wire_{notifiee.wirePrefix()} {}
  // Of an entity that `above`'s object has by that attribute, whose element has been made as bytes. `isNew`:
  // this walk is the first to get there.
  WatchedPlace(WatchedPlace& above, WalkRules::AttrPlan const& attr, Kel::Entity const& entity,
               GifGnmiNotifiee& standIn, bool isNew)
      : path(above.path, attr.elem)
      , keeper_(above.keeper_)
      , standIn_(&standIn)
      , wire_{above.wire_.kept, &above.wire_, &attr.wireElem} {
    if (isNew) progress_.emplace(entity);
  }
  WatchedPlace(WatchedPlace const&) = delete;
  WatchedPlace& operator=(WatchedPlace const&) = delete;

  ResponsePath const path;
  [[nodiscard]] WirePlace const& wire() const noexcept { return wire_; } // the elements of the path as bytes
  // The nearest notifiee, of the object itself or of one above it.
  [[nodiscard]] GifGnmiNotifiee& keeper() const noexcept { return *keeper_; }
  // The object's own; null: `standIn` stands in for it.
  [[nodiscard]] GifGnmiNotifiee* notifiee() const noexcept { return standIn_ == nullptr ? keeper_ : nullptr; }
  [[nodiscard]] GifGnmiNotifiee* standIn() const noexcept { return standIn_; }
  [[nodiscard]] bool isNew() const noexcept { return progress_.has_value(); }
  // So many attributes have been walked.
  void walkedIs(std::size_t attributes) noexcept {
    if (progress_) progress_->walked = attributes;
  }
  // The object has come to have one: nobody stands in for it from here on.
  void notifieeIs(GifGnmiNotifiee& notifiee) {
    made_ = Kel::Ptr<GifGnmiNotifiee>(&notifiee);
    keeper_ = &notifiee;
    standIn_ = nullptr;
  }

private:
  GifGnmiNotifiee* keeper_;
  GifGnmiNotifiee* standIn_ = nullptr;
  std::optional<StandIns::Progress> progress_;
  Kel::Ptr<GifGnmiNotifiee> made_;
  WirePlace const wire_;
};

} // namespace Ondra
