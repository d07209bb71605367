// What the published models say of a node beyond its type: its module, whether a leaf is configuration or
// state, how it is told best, its published type. A side table keyed by attribute; filled by `declareTypes`
// and constant afterwards, so that any thread may read it. The answers live for the process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
  Decimal64,   // held as a double, or as its canonical text: then no digit of it is lost
  Enumeration, // a name
  Identity,    // a name that RFC 7951 qualifies with `LeafInfo::identityModule`
  Union,       // held as a union of the model; its active alternative or `LeafInfo::members` decide
  Int8,
  Int16,
  Int32,
  Int64,
  Bits,               // names with blanks between them, held as that text
  Empty,              // held as true, or not at all
  Binary,             // bytes
  InstanceIdentifier, // a path, held as its text
};

// Of numbers.
struct LeafRange {
  std::uint64_t min = 0;
  std::uint64_t max = UINT64_MAX;
};

// What the values of a leaf are held to beyond their type, where that is known at run time only. Immutable;
// any thread.
class ValueRules {
public:
  virtual ~ValueRules() = default;
  // The canonical text of the value that a text means, or what is wrong with it.
  [[nodiscard]] virtual Kstd::Result<std::string, std::string> canonical(std::string_view text) const = 0;
  [[nodiscard]] virtual std::string text() const = 0; // for people; empty for nothing to tell
};

struct LeafInfo {
  LeafType type = LeafType::String;
  bool isConfig = false;  // else state
  bool isSampled = false; // TARGET_DEFINED samples it; else it is told when it changes
  bool isKeyCopy =
      false; // repeats the key of its list entry; a request that says otherwise contradicts itself
  std::string_view keyName = {}; // which key that is; empty for the only one
  bool isLeafList = false;       // `type` is that of its members
  bool isUnion = false;          // published as a union, whose alternatives are all written like `type`
  // Of a union that is known at run time only: what may be in it, in the order in which it is tried. For the
  // process.
  std::vector<LeafInfo> const* members = nullptr;
  // Of a key that is such a union, or bytes, and held as its text: what the text may mean.
  std::vector<LeafInfo> const* keyMembers = nullptr;
  std::uint8_t fractionDigits = 1; // of a decimal
  std::string_view
      identityModule;   // of the names of an identity or of a union's names; empty when they need no prefix
  LeafRange range = {}; // that a number is held to beside its type's
  TextRules const* text = nullptr;   // that a text is held to; null: to nothing
  ValueRules const* rules = nullptr; // that any value is held to; null: to nothing. They live for the process
  Kel::KelType held = Kel::KelType(); // the model's own type of the value, or of a leaf-list's members
};

// Null for containers and lists, and for attributes that are not of the agent's model.
[[nodiscard]] LeafInfo const* leafInfo(Kel::KelAttr attr);

// The enumerator that a text means for a leaf of an enumeration or of identities: by its name, or with its
// module in front. Identities whose names carry their module already may be given without it.
[[nodiscard]] std::optional<std::string_view> enumeratorOf(LeafInfo const& leaf, std::string_view text);

// The YANG module whose namespace a node (leaf, container or list) belongs to. Empty for attributes that are
// not of the model.
[[nodiscard]] std::string_view nodeModule(Kel::KelAttr attr);

// The published type as text, "uint64", "enumeration", "string*" for a leaf-list: for people.
[[nodiscard]] std::string leafTypeText(LeafInfo const& leaf);
// What its values are held to beyond that, "0..32", "domain-name"; empty for nothing.
[[nodiscard]] std::string leafRuleText(LeafInfo const& leaf);

// Where a node stands among the cases of a choice: of all cases of one choice, one has nodes at a time. Lives
// for the process.
struct ChoiceCase {
  void const* choice; // which one it is
  std::string_view choiceName;
  std::string_view name;
  ChoiceCase const* above; // of the choice itself, within a case of another one; null
};

// Who writes: a client may write what is configuration, the device's own processes what is state, too.
enum class Writer : std::uint8_t { Client, Provider };

namespace Impl {
struct NodeRecord {
  std::string_view module;
  bool isLeaf = false;
  LeafInfo leaf;
  bool isState = false; // of a list: no client makes or removes its entries, whatever the object model lets
  ChoiceCase const* inCase = nullptr; // null: in none
};
// Held as a text, and told as what the text stands for: a decimal as a double, a union's bytes as bytes.
[[nodiscard]] bool isToldOtherwise(LeafInfo const& leaf);
// Enters a node, once; `LeafInfo::held` is taken from the attribute. `module` and the leaf's `identityModule`
// must live for the process.
void nodeRecordIs(Kel::KelAttr attr, NodeRecord const& record);
[[nodiscard]] NodeRecord const* nodeRecord(Kel::KelAttr attr);
// Whether leaves of that name may be told in PROTO as something else than they are held as.
[[nodiscard]] bool mayBeToldOtherwise(std::string_view leafName);
// The published type that follows from the attribute's own.
[[nodiscard]] LeafType leafTypeOf(Kel::KelType type);
} // namespace Impl

// Notes that a module has a node of that name below a type (an invalid one: at the root) that this run leaves
// out. To be called before other threads ask.
void leftOutIs(Kel::KelType below, std::string_view name, std::string_view module);
// Whether that has been noted of a name, with its module in front or without.
[[nodiscard]] bool isLeftOut(Kel::KelType below, std::string_view name);

} // namespace Agent
