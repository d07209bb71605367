// What the published models say of a node beyond its type: its module, whether a leaf is configuration or
// state, how it is told best, its published type. A side table keyed by attribute; filled by `declareTypes`
// and constant afterwards, so that any thread may read it. The answers live for the process.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Kel/Attr.h"
#include "agent/model/TextRules.h"

namespace Agent {

// The type that a leaf is published with: what RFC 7951 needs to know to write it. 64-bit numbers and
// decimals are JSON strings.
enum class LeafType : std::uint8_t {
  String,
  Boolean,
  Uint8,
  Uint16,
  Uint32,
  Uint64,
  Decimal64,   // one fraction digit; held as a double
  Enumeration, // a name
  Identity,    // a name that RFC 7951 qualifies with `LeafInfo::identityModule`
  Union,       // held as a union of the model; its active alternative decides
};

// Of numbers.
struct LeafRange {
  std::uint64_t min = 0;
  std::uint64_t max = UINT64_MAX;
};

struct LeafInfo {
  LeafType type = LeafType::String;
  bool isConfig = false;  // else state
  bool isSampled = false; // TARGET_DEFINED samples it; else it is told when it changes
  bool isKeyCopy =
      false; // repeats the key of its list entry; a request that says otherwise contradicts itself
  bool isLeafList = false; // `type` is that of its members
  bool isUnion = false;    // published as a union, whose alternatives are all written like `type`
  std::string_view
      identityModule;   // of the names of an identity or of a union's names; empty when they need no prefix
  LeafRange range = {}; // that a number is held to beside its type's
  TextRules const* text = nullptr;    // that a text is held to; null: to nothing
  Kel::KelType held = Kel::KelType(); // the model's own type of the value, or of a leaf-list's members
};

// Null for containers and lists, and for attributes that are not of the agent's model.
[[nodiscard]] LeafInfo const* leafInfo(Kel::KelAttr attr);

// The YANG module whose namespace a node (leaf, container or list) belongs to. Empty for attributes that are
// not of the model.
[[nodiscard]] std::string_view nodeModule(Kel::KelAttr attr);

// The published type as text, "uint64", "enumeration", "string*" for a leaf-list: for people.
[[nodiscard]] std::string leafTypeText(LeafInfo const& leaf);
// What its values are held to beyond that, "0..32", "domain-name"; empty for nothing.
[[nodiscard]] std::string leafRuleText(LeafInfo const& leaf);

namespace Impl {
struct NodeRecord {
  std::string_view module;
  bool isLeaf = false;
  LeafInfo leaf;
};
// Enters a node, once; `LeafInfo::held` is taken from the attribute. `module` and the leaf's `identityModule`
// must live for the process.
void nodeRecordIs(Kel::KelAttr attr, NodeRecord const& record);
[[nodiscard]] NodeRecord const* nodeRecord(Kel::KelAttr attr);
// The published type that follows from the attribute's own.
[[nodiscard]] LeafType leafTypeOf(Kel::KelType type);
} // namespace Impl

} // namespace Agent
