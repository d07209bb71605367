#include "Kel/PtrInterface.h"

#include "Kel/Notifiee.h"
#include "Kel/Type.h"

namespace Kel {

bool VFPtrInterface::threadSafePointers_ = false;

KelType PtrInterface::fwkType() const { return KelType(); }

void PtrInterface::zeroReferencesIs() {
  if (zeroReferencesTold_) return;
  zeroReferencesTold_ = true;
  if (NotifieeList* const list = notifieeList()) list->visitZeroReferences();
}

} // namespace Kel
