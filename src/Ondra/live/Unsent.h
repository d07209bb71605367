// Ondra::Unsent: what running walkers have collected and not sent yet, so that a delete that is sent at once
// does not overtake it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Kel/Ptr.h"
#include "Ondra/Path.h"

namespace Ondra {

class FullKelTypeWalker;
class GifGnmiNotifiee;
class Ir;

// On the stack of whoever collects, for as long as it does; the Ir may be null, and another one as time goes
// by. Scheduler thread only.
class Unsent {
public:
  // `notifiee`: of the object that is walked, which has it live as long; null when there is none.
  Unsent(FullKelTypeWalker& walker, std::shared_ptr<Ir>& ir, GifGnmiNotifiee const* notifiee) noexcept;
  ~Unsent();
  Unsent(Unsent const&) = delete;
  Unsent& operator=(Unsent const&) = delete;

  // All that has been collected goes to its routers, because a delete of that path follows. Nodes of an Ir do
  // not stay across it, and so across nothing that runs the host's code.
  static void sendBefore(Kel::Ptr<Path const> const& ending);
  // Lets go of what has been collected of objects that have ended since, before it is sent behind their
  // deletes. Of what is being sent the rest is not handed over (`Sending`).
  static void dropEnded();
  // While one lives, responses are made and handed over one by one: `sendBefore` leaves all as it is. What
  // has not had its turn when its path ends is not handed over any more, behind the delete.
  class Sending {
  public:
    Sending() noexcept : began_(sending_ == 0 ? 0 : ended_.size()), outer_(beingSent_) {
      ++sending_;
      beingSent_ = innermost_;
    }
    ~Sending() {
      beingSent_ = outer_;
      if (--sending_ == 0 && !ended_.empty()) [[unlikely]]
        ended_.clear();
    }
    Sending(Sending const&) = delete;
    Sending& operator=(Sending const&) = delete;
    [[nodiscard]] static bool isInner() noexcept { return sending_ > 1; } // of a router that walks in turn
    [[nodiscard]] bool mayHaveEnded() const noexcept { return ended_.size() > began_; } // some path has
    [[nodiscard]] bool hasEnded(Path const& path) const;                                // or one above it

  private:
    std::size_t const began_;
    Unsent* const outer_;
  };
  // How often that was asked for. Where it has changed, objects that are being walked may have ended.
  [[nodiscard]] static std::uint64_t interruptions() noexcept { return interruptions_; }

private:
  static Unsent* innermost_;
  static std::uint64_t interruptions_;
  static int sending_;
  static Unsent* beingSent_; // what it and those around it have collected is being gone through
  static std::vector<Kel::Ptr<Path const>> ended_; // while something is being sent

  FullKelTypeWalker& walker_;
  std::shared_ptr<Ir>& ir_;
  GifGnmiNotifiee const* const notifiee_;
  std::uint64_t const began_;
  Unsent* const outer_;
};

} // namespace Ondra
