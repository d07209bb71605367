// The side table itself, types of the model as types of YANG, and both as the texts that errors and the page
// of paths use.
#include "agent/model/Schema.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <array>

#include "Kel/Error.h"

namespace Agent {
namespace Impl {
namespace {

using Records = absl::flat_hash_map<Kel::AttrDesc const*, NodeRecord>;

Records& records() {
  static auto* const instance = new Records();
  return *instance;
}

LeafType builtinLeafType(Kel::BuiltinKind kind) {
  switch (kind) {
  case Kel::BuiltinKind::Bool: return LeafType::Boolean;
  case Kel::BuiltinKind::U8: return LeafType::Uint8;
  case Kel::BuiltinKind::U16: return LeafType::Uint16;
  case Kel::BuiltinKind::U32: return LeafType::Uint32;
  case Kel::BuiltinKind::U64: return LeafType::Uint64;
  case Kel::BuiltinKind::Double: return LeafType::Decimal64;
  case Kel::BuiltinKind::String: return LeafType::String;
  case Kel::BuiltinKind::S8: // no leaf of the agent's own model is one of these
  case Kel::BuiltinKind::S16:
  case Kel::BuiltinKind::S32:
  case Kel::BuiltinKind::S64:
  case Kel::BuiltinKind::Char:
  case Kel::BuiltinKind::Float:
  case Kel::BuiltinKind::Bytes:
  case Kel::BuiltinKind::Seconds:
  case Kel::BuiltinKind::Time:
  case Kel::BuiltinKind::JsonString:
  case Kel::BuiltinKind::None: break;
  }
  Kel::throwError("a leaf is declared of a scalar that has no type of YANG");
}

} // namespace

void nodeRecordIs(Kel::KelAttr attr, NodeRecord const& record) {
  // Records never move once the types are declared: nothing is entered afterwards.
  records().emplace(&attr.desc(), record).first->second.leaf.held = attr.memberType();
}

NodeRecord const* nodeRecord(Kel::KelAttr attr) {
  auto const found = records().find(&attr.desc());
  return found == records().end() ? nullptr : &found->second;
}

LeafType leafTypeOf(Kel::KelType type) {
  switch (type.kind()) {
  case Kel::TypeKind::Enum: return LeafType::Enumeration;
  case Kel::TypeKind::Union: return LeafType::Union;
  case Kel::TypeKind::Nominal: return leafTypeOf(type.valAttr().memberType());
  case Kel::TypeKind::Builtin: return builtinLeafType(type.builtinKind());
  case Kel::TypeKind::Struct:
  case Kel::TypeKind::KeyPtr:
  case Kel::TypeKind::Array:
  case Kel::TypeKind::Entity:
  case Kel::TypeKind::Object:
  case Kel::TypeKind::CollectionControl: break;
  }
  return LeafType::String; // structures with a string representation
}

} // namespace Impl

LeafInfo const* leafInfo(Kel::KelAttr attr) {
  Impl::NodeRecord const* const record = Impl::nodeRecord(attr);
  return record != nullptr && record->isLeaf ? &record->leaf : nullptr;
}

std::string_view nodeModule(Kel::KelAttr attr) {
  Impl::NodeRecord const* const record = Impl::nodeRecord(attr);
  return record == nullptr ? std::string_view() : record->module;
}

std::string leafTypeText(LeafInfo const& leaf) {
  static constexpr std::array kTexts = {"string", "boolean",   "uint8",       "uint16",      "uint32",
                                        "uint64", "decimal64", "enumeration", "identityref", "union"};
  std::string text = leaf.isUnion ? "union" : kTexts[static_cast<std::size_t>(leaf.type)];
  if (leaf.isLeafList) text += '*';
  return text;
}

std::string leafRuleText(LeafInfo const& leaf) {
  if (leaf.text != nullptr) return std::string(leaf.text->name);
  bool const hasMax = leaf.range.max != UINT64_MAX;
  if (leaf.range.min == 0 && !hasMax) return {};
  return hasMax ? fmt::format("{}..{}", leaf.range.min, leaf.range.max) : fmt::format("{}..", leaf.range.min);
}

} // namespace Agent
