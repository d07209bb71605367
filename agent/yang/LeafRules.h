// What a module holds the values of a leaf to: ranges, lengths, patterns, canonical forms.
#pragma once

#include <memory>

#include "agent/model/Schema.h"

struct ly_ctx;
struct lysc_node;
struct lysc_type;

namespace Agent {

// The rules of a leaf or leaf-list whose type, leafrefs followed, is `type`; null when its values need none
// beside the type's own limits. They refer to the modules that both come from.
[[nodiscard]] std::unique_ptr<ValueRules> leafRulesOf(ly_ctx const& context, lysc_node const& leaf,
                                                      lysc_type const& type);

} // namespace Agent
