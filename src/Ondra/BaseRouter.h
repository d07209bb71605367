// Ondra::BaseRouter: where the host takes the library's responses.
#pragma once

#include <memory>

#include "Kstd/Export.h"
#include "Ondra/WalkTypes.h"

namespace Ondra {

class ArenaRespMsg;
class ByteRouter;

// Implemented and owned by the host; outlives every walk and notifiee that was given it. Called on the
// scheduler thread.
class KTD_EXPORT BaseRouter {
public:
  virtual ~BaseRouter() = default;

  // Takes one response of a walk (`walkId` 0 and `syncId` 0: of a notification, for whoever is subscribed to
  // its prefix). The router holds it from then on, whatever it answers: true when it can take more, false
  // when the pipe towards the client is full. After false the walk parks what is left; when the pipe has
  // drained, the host schedules the walk's task again. Must not call back into the library, nor change the
  // model.
  virtual bool push(SyncId syncId, WalkId walkId, std::shared_ptr<ArenaRespMsg>& response) = 0;

  // Null for a router that takes messages; one that takes bytes instead derives from `ByteRouter`.
  virtual ByteRouter* byteRouter() { return nullptr; }
};

} // namespace Ondra
