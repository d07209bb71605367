// Facts out of rtnetlink objects.
#pragma once

#include <optional>

#include "agent/collect/LinkFacts.h"

struct nl_object;

namespace Agent {

// Hands the object's fact to the sink: `isDel` as a removal. Objects that the model does not hold (multicast
// mappings, neighbours that failed, other families) are none or a removal.
void tellFact(FactSink& sink, nl_object* object, bool isDel);

} // namespace Agent
