// The leaves of an object that are plain scalars, where they lie: what the encoders of responses are given
// without an Ir.
#pragma once

#include <span>

#include "Ondra/ResponsePath.h"
#include "Ondra/WirePrefix.h"
#include "Ondra/rules/WalkRules.h"

namespace Ondra {

struct PlainLeaf {
  long timestamp;
  WalkRules::AttrPlan const* plan;
  Kel::TypeDesc const* type; // of the value
  void const* value;         // the raw form, in the object; of one that is printed, with the collector
};

// What an `IrNode` is to an `Ir`: leaves of one time below one prefix, at most `WalkRules::kMostPlain`. Valid
// while the object neither changes nor goes.
struct PlainNode {
  long timestamp;
  ResponsePath const& prefix;
  WirePlace const& place; // the elements of the prefix
  std::span<PlainLeaf const> leaves;
};

} // namespace Ondra
