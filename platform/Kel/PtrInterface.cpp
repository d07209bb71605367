// What needs more than the header knows: the type of an untyped object, and telling observers of the end,
// once.
#include "Kel/PtrInterface.h"

#include "Kel/GenericIf.h"
#include "Kel/Notifiee.h"
#include "Kel/Type.h"

namespace Kel {

bool VFPtrInterface::threadSafePointers_ = false;

KelType PtrInterface::fwkType() const { return KelType(); }

void PtrInterface::zeroReferencesIs() {
  if (zeroReferencesTold_) return;
  zeroReferencesTold_ = true;
  if (NotifieeList* const list = notifieeList()) list->visitZeroReferences(*this);
}

} // namespace Kel
