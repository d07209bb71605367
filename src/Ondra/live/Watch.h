// Beginning to watch an object at a path that nobody watches.
#pragma once

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/GifNotifiee.h"
#include "Ondra/Path.h"

namespace Ondra {

// Makes its notifiee and switches it on; references to the object are rendered anew when this is its first
// path. Runs none of the host's code but observers of the types, and these only for what a directory holds.
// It is not registered when the object has ended.
Kel::Ptr<GifGnmiNotifiee> watchAt(Kel::PtrInterface const& object, Kel::Ptr<Path const> const& path,
                                  BaseRouter& router);

} // namespace Ondra
