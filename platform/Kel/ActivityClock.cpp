#include "Kel/ActivityClock.h"

namespace Kel {

ActivityManagerStatus* activityManagerStatus() {
  static ActivityManagerStatus status;
  return &status;
}

} // namespace Kel
