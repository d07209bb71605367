// Ondra::Unsent: what running walkers have collected and not sent yet, so that a delete that is sent at once
// does not overtake it.
#pragma once

#include <cstdint>
#include <memory>

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

  // All that has been collected goes to its routers, because a delete follows. Nodes of an Ir do not stay
  // across it, and so across nothing that runs the host's code.
  static void sendAll();
  // Lets go of what has been collected of objects that have ended since, before it is sent behind their
  // deletes.
  static void dropEnded();
  // While one lives, an Ir is being encoded: `sendAll` leaves all as it is.
  class Sending {
  public:
    Sending() noexcept { ++sending_; }
    ~Sending() { --sending_; }
    Sending(Sending const&) = delete;
    Sending& operator=(Sending const&) = delete;
  };
  // How often that was asked for. Where it has changed, objects that are being walked may have ended.
  [[nodiscard]] static std::uint64_t interruptions() noexcept { return interruptions_; }

private:
  static Unsent* innermost_;
  static std::uint64_t interruptions_;
  static int sending_;

  FullKelTypeWalker& walker_;
  std::shared_ptr<Ir>& ir_;
  GifGnmiNotifiee const* const notifiee_;
  std::uint64_t const began_;
  Unsent* const outer_;
};

} // namespace Ondra
