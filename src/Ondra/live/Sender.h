// Ondra::Sender: how the leaves of walks and changes leave the library. Whether a router is given bytes or
// messages is decided here, in one place; the end of a path (`forceDelete`) is always a message.
#pragma once

#include <memory>

#include "Ondra/BaseRouter.h"
#include "Ondra/WalkTypes.h"

namespace Ondra {

class ArenaRespMsg;
class FullKelTypeWalker;
class Ir;
class PlainLeaves;
struct PlainNode;

// Sends what one walker has collected, by the walker's flags and in its name. Lives as long as one sending.
// Scheduler thread only.
class Sender {
public:
  enum class What : bool {
    Walk, // all that was found
    Change, // leaves that no message can hold are deleted, and what holds neither updates nor deletes is not sent
  };
  Sender(FullKelTypeWalker const& walker, What what) noexcept : walker_(walker), what_(what) {}

  // All of it, to its end whatever the router says: the notifications of one bundle stay together. The result
  // is that of the last push. REQUIRES content.
  [[nodiscard]] WalkResult send(Ir const& ir) const;
  // The same for plain leaves that were collected; none are left.
  [[nodiscard]] WalkResult send(PlainLeaves& leaves) const;
  // One response: hands it over and asks whether the slice is used up.
  [[nodiscard]] WalkResult send(std::shared_ptr<ArenaRespMsg>& response) const;

  // The leaves of one change, for which there is no walker. False when some value is such that no message can
  // hold it. A full pipe does not hold a notification up.
  [[nodiscard]] static bool sendChange(BaseRouter& router, PlainNode const& node);

private:
  struct Push;
  template <class Router, class Response>
  [[nodiscard]] WalkResult push(Router& router, Response& response) const;

  FullKelTypeWalker const& walker_;
  What const what_;
};

} // namespace Ondra
