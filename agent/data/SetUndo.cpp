// What was there is compared, and written, as values of the object model.
#include "agent/data/SetUndo.h"

#include "Kel/Entity.h"
#include "Kel/Error.h"
#include "agent/data/SetDiff.h"

namespace Agent {
namespace {

bool isGone(Undo const& undo) {
  return undo.object->type().isEntity() && static_cast<Kel::Entity const*>(undo.object->object())->isOrphan();
}

} // namespace

bool isAsBefore(Undo const& undo) {
  if (isGone(undo)) return true;
  bool const isThere = undo.attr.genericIfExist(undo.object, undo.key);
  if (!isThere || !undo.old) return isThere == static_cast<bool>(undo.old);
  return undo.attr.genericIfGet(undo.object, undo.key)->equals(*undo.old);
}

bool hasComeToLife(Undo const& undo) {
  TypeNode list;
  list.attr = undo.attr;
  list.type = undo.attr.memberType();
  return !isGone(undo) && isOfMachine(list, entryOf(list, undo.object, undo.key));
}

void putBack(Undo const& undo) {
  try {
    if (isAsBefore(undo)) return;
    if (undo.old)
      undo.attr.genericIfSet(undo.object, undo.key, undo.old);
    else
      undo.attr.genericIfDel(undo.object, undo.key);
  } catch (Kel::Error const&) {
    // The model refuses what it held a moment ago; there is nothing better to do than to put back the rest.
  }
}

} // namespace Agent
