// The notifiee of a path, looked up; apart from the other functions, which know of none.
#include "Ondra/KelGnmiUtils.h"

#include "Ondra/NotifieeMaps.h"
#include "Ondra/PathFormat.h"
#include "Tovak/Trace.h"

namespace Ondra::KelGnmiUtils {
namespace {

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraKelGnmiUtils", false);
  return handler;
}

} // namespace

Kel::Ptr<GifGnmiNotifiee> lookupGnmiNotifieeMap(Kel::Ptr<Path const> path) {
  Kel::Ptr<GifGnmiNotifiee> found(notifieeMaps->find(path));
  if (!found) TOVAK_TRACE(debugHandler(), 9, "", "Notifiee does not exist for prefix {}", path);
  return found;
}

} // namespace Ondra::KelGnmiUtils
