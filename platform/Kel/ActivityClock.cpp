// The one clock of the process; its operations are in the header.
#include "Kel/ActivityClock.h"

namespace Kel {

ActivityManagerStatus* activityManagerStatus() {
  static ActivityManagerStatus status;
  return &status;
}

} // namespace Kel
