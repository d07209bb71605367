// The side table itself, types of the model as types of YANG, and both as the texts that errors and the page
// of paths use.
#include "agent/model/Schema.h"

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>
#include <absl/container/node_hash_map.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "Kel/Error.h"

namespace Agent {
namespace Impl {
namespace {

// Places of the tree point to records: they never move, whatever is entered later.
using Records = absl::node_hash_map<Kel::AttrDesc const*, NodeRecord>;

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
  case Kel::BuiltinKind::S8: return LeafType::Int8;
  case Kel::BuiltinKind::S16: return LeafType::Int16;
  case Kel::BuiltinKind::S32: return LeafType::Int32;
  case Kel::BuiltinKind::S64: return LeafType::Int64;
  case Kel::BuiltinKind::Bytes: return LeafType::Binary;
  case Kel::BuiltinKind::Char: // no leaf is one of these
  case Kel::BuiltinKind::Float:
  case Kel::BuiltinKind::Seconds:
  case Kel::BuiltinKind::Time:
  case Kel::BuiltinKind::JsonString:
  case Kel::BuiltinKind::None: break;
  }
  Kel::throwError("a leaf is declared of a scalar that has no type of YANG");
}

// Names of leaves, which live for the process. Asked for each text that is sent, most of which are of other
// lengths.
class LeafNames {
public:
  void insert(std::string_view name) {
    names_.insert(name);
    lengths_ |= lengthBit(name);
  }
  [[nodiscard]] bool contains(std::string_view name) const {
    return (lengths_ & lengthBit(name)) != 0 && names_.contains(name);
  }

private:
  static std::uint64_t lengthBit(std::string_view name) { return std::uint64_t{1} << name.size() % 64; }

  std::uint64_t lengths_ = 0;
  absl::flat_hash_set<std::string_view> names_;
};

LeafNames& toldOtherwise() {
  static auto* const instance = new LeafNames();
  return *instance;
}

// What a run leaves out, by what it stands below; null: the root. With and without modules.
using Names = absl::flat_hash_map<Kel::TypeDesc const*, absl::flat_hash_set<std::string>>;

Names& leftOutNames() {
  static auto* const instance = new Names();
  return *instance;
}

} // namespace

void nodeRecordIs(Kel::KelAttr attr, NodeRecord const& record) {
  LeafInfo& leaf = records().emplace(&attr.desc(), record).first->second.leaf;
  leaf.held = attr.memberType();
  if (record.isLeaf && isToldOtherwise(leaf)) toldOtherwise().insert(attr.name().view());
}

bool isToldOtherwise(LeafInfo const& leaf) {
  if (leaf.keyMembers != nullptr) return true;
  if (leaf.members == nullptr)
    return leaf.type == LeafType::Decimal64 && leaf.held.isBuiltin() &&
           leaf.held.builtinKind() == Kel::BuiltinKind::String;
  return std::ranges::any_of(*leaf.members, [](LeafInfo const& member) {
    return member.type == LeafType::Decimal64 || member.type == LeafType::Binary ||
           member.type == LeafType::Empty;
  });
}

bool mayBeToldOtherwise(std::string_view leafName) { return toldOtherwise().contains(leafName); }

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

void leftOutIs(Kel::KelType below, std::string_view name, std::string_view module) {
  auto& names = Impl::leftOutNames()[below ? &below.desc() : nullptr];
  names.insert(std::string(name));
  names.insert(fmt::format("{}:{}", module, name));
}

bool isLeftOut(Kel::KelType below, std::string_view name) {
  auto const found = Impl::leftOutNames().find(below ? &below.desc() : nullptr);
  return found != Impl::leftOutNames().end() && found->second.contains(std::string(name));
}

LeafInfo const* leafInfo(Kel::KelAttr attr) {
  Impl::NodeRecord const* const record = Impl::nodeRecord(attr);
  return record != nullptr && record->isLeaf ? &record->leaf : nullptr;
}

std::string_view nodeModule(Kel::KelAttr attr) {
  Impl::NodeRecord const* const record = Impl::nodeRecord(attr);
  return record == nullptr ? std::string_view() : record->module;
}

std::optional<std::string_view> enumeratorOf(LeafInfo const& leaf, std::string_view text) {
  if (!leaf.held.isEnum()) return std::nullopt;
  std::string_view bare = text;
  std::string_view const module = leaf.identityModule;
  if (!module.empty() && text.starts_with(module) && text.substr(module.size()).starts_with(':'))
    bare.remove_prefix(module.size() + 1);
  for (Kel::Enumerator const& each : leaf.held.enumerators()) {
    std::string_view const name = each.name.view();
    std::size_t const colon = name.find(':');
    if (name == bare || (colon != name.npos && name.substr(colon + 1) == bare)) return name;
  }
  return std::nullopt;
}

std::string leafTypeText(LeafInfo const& leaf) {
  static constexpr std::array kTexts = {
      "string",    "boolean",     "uint8",       "uint16", "uint32", "uint64",
      "decimal64", "enumeration", "identityref", "union",  "int8",   "int16",
      "int32",     "int64",       "bits",        "empty",  "binary", "instance-identifier"};
  std::string text = leaf.isUnion ? "union" : kTexts[static_cast<std::size_t>(leaf.type)];
  if (leaf.isLeafList) text += '*';
  return text;
}

std::string leafRuleText(LeafInfo const& leaf) {
  if (leaf.text != nullptr) return std::string(leaf.text->name);
  if (leaf.rules != nullptr) return leaf.rules->text();
  bool const hasMax = leaf.range.max != UINT64_MAX;
  if (leaf.range.min == 0 && !hasMax) return {};
  return hasMax ? fmt::format("{}..{}", leaf.range.min, leaf.range.max) : fmt::format("{}..", leaf.range.min);
}

} // namespace Agent
