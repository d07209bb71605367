// Down through the compiled nodes, types made on the way back up: an entity for each container and list, an
// attribute for each node in it. Those at the top are the data root's, which has them of all modules.
#include "agent/yang/Types.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <absl/container/flat_hash_set.h>
#include <fmt/format.h>
#include <libyang/libyang.h>

#include "Kel/String.h"
#include "Kel/TypeBuilder.h"
#include "agent/model/Schema.h"
#include "agent/model/Tree.h"
#include "agent/yang/Arrays.h"
#include "agent/yang/LeafRules.h"
#include "agent/yang/Modules.h"

namespace Agent {
namespace {

using Kel::BuiltinKind;
using Kel::KelType;

constexpr std::size_t kMaxDepth = 127;      // a path can name no node that lies deeper
constexpr std::size_t kMaxMembers = 65'535; // of one container

// Nodes of these types are counted, or go up and down, all the time.
constexpr auto kMovingTypes =
    std::to_array<std::string_view>({"counter32", "counter64", "zero-based-counter32", "zero-based-counter64",
                                     "gauge32", "gauge64", "timeticks", "timeticks64"});
constexpr std::string_view kCounters = "counters";

std::string pathOf(lysc_node const& node) {
  std::unique_ptr<char, void (*)(void*)> const text(lysc_path(&node, LYSC_PATH_DATA, nullptr, 0), &std::free);
  return text ? std::string(text.get()) : std::string(node.name);
}

std::string_view moduleOf(lysc_node const& node) { return node.module->name; }

// Why the object model has no such name; none when it does.
std::optional<std::string_view> unfitName(std::string_view name) {
  if (name.find("__") != name.npos) return "a name with '__' cannot be told in a path's keys";
  if (name.front() == '_' || name.back() == '_') return "a name that begins or ends with '_' is not taken";
  return std::nullopt;
}

bool isMoving(lysc_node const& leaf) {
  if (leaf.parent != nullptr && leaf.parent->name == kCounters) return true;
  auto const* const parsed = static_cast<lysp_node const*>(leaf.priv);
  char const* const type = parsed == nullptr ? nullptr
                           : parsed->nodetype == LYS_LEAF
                               ? reinterpret_cast<lysp_node_leaf const*>(parsed)->type.name
                               : nullptr;
  if (type == nullptr) return false;
  std::string_view name = type;
  if (std::size_t const colon = name.find(':'); colon != name.npos) name.remove_prefix(colon + 1);
  return std::ranges::find(kMovingTypes, name) != kMovingTypes.end();
}

// What a leaf is held as, or why it is left out.
struct Held {
  LeafType published = LeafType::String;
  KelType type;
  bool isUnion = false;
  std::vector<LeafInfo> const* members = nullptr;
  std::vector<LeafInfo> const* keyMembers = nullptr;
};
using HeldOrWhy = Kstd::Result<Held, std::string>;

// Names of keys by the leaf that repeats them, in one container of a list entry.
using Copies = absl::flat_hash_map<std::string, std::string_view>;

class Maker {
public:
  explicit Maker(Modules const& modules) : modules_(modules), context_(*modules.context()) {}

  Kstd::Result<void, std::string> addModule(lys_module const& module);

  YangTypes made;

private:
  struct Member {
    lysc_node const* node;
    KelType type;
    KelType key = {}; // of a list with several: the structure of them
    Impl::NodeRecord record;
  };

  // The type of a container or entry; an invalid one when the node is left out.
  KelType entityType(lysc_node const& node, Copies const& copies);
  std::vector<Member> membersOf(lysc_node const& node, Copies const& copies);
  void addMember(std::vector<Member>& members, lysc_node const& node, Copies const& copies,
                 ChoiceCase const* inCase);
  std::optional<Member> leafMember(lysc_node const& node, Copies const& copies);
  HeldOrWhy heldAs(lysc_node const& leaf, lysc_type const& type);
  HeldOrWhy enumerationOf(lysc_node const& leaf, lysc_type_enum const& type);
  HeldOrWhy identitiesOf(lysc_node const& leaf, lysc_type_identityref const& type);
  HeldOrWhy unionOf(lysc_node const& leaf, lysc_type const& type);
  Kstd::Result<void, std::string> addMembers(lysc_node const& leaf, lysc_type_union const& type,
                                             std::vector<LeafInfo>& members);
  static Copies copiesIn(lysc_node const& container);
  static bool hasKeyWithoutText(lysc_node const& list);
  static std::vector<Kel::KelAttr> keysOf(lysc_node const& list, KelType entry);
  // An invalid one where one key is all that the entries have.
  KelType structuredKey(lysc_node const& list, KelType entry);
  static void declare(Kel::TypeBuilder& builder, Member const& member);
  void leaveOut(lysc_node const& node, std::string_view why);
  void fail(std::string what) {
    if (error_.empty()) error_ = std::move(what);
  }

  // Another module that has a node of this name at the top, and by which this one's is to be left out.
  lys_module const* prevailing(lysc_node const& top) const;

  Modules const& modules_;
  ly_ctx const& context_;
  std::size_t depth_ = 0;
  std::string error_;                     // the first
  std::vector<lysc_node const*> notHere_; // left out of the type that is being made
  absl::flat_hash_map<void const*, KelType> enums_;
};

void Maker::leaveOut(lysc_node const& node, std::string_view why) {
  made.leftOut.push_back(fmt::format("{}: {}", pathOf(node), why));
  notHere_.push_back(&node);
}

// --- leaves ------------------------------------------------------------------------------------------------

HeldOrWhy Maker::enumerationOf(lysc_node const& leaf, lysc_type_enum const& type) {
  KelType& known = enums_[type.enums];
  if (!known) {
    std::vector<Kel::Enumerator> all;
    for (lysc_type_bitenum_item const& each : sized(type.enums))
      all.push_back({Kel::String(each.name), each.value});
    auto done = Kel::runtimeEnum(moduleOf(leaf), pathOf(leaf), std::move(all));
    if (!done) return Kstd::Err(std::move(done).error());
    known = *done;
  }
  return Held{.published = LeafType::Enumeration, .type = known};
}

void gatherDerived(lysc_ident const& base, absl::flat_hash_set<lysc_ident const*>& to) {
  for (lysc_ident const* const each : sized(base.derived))
    if (to.insert(each).second) gatherDerived(*each, to);
}

// The identities that are derived from all of the bases, with their modules in front.
HeldOrWhy Maker::identitiesOf(lysc_node const& leaf, lysc_type_identityref const& type) {
  auto const bases = sized(type.bases);
  KelType& known = enums_[bases.size() == 1 ? static_cast<void const*>(bases.front()) : &type];
  if (!known) {
    absl::flat_hash_set<lysc_ident const*> found;
    gatherDerived(*bases.front(), found);
    for (lysc_ident const* const other : bases.subspan(1)) {
      absl::flat_hash_set<lysc_ident const*> also;
      gatherDerived(*other, also);
      absl::erase_if(found, [&also](lysc_ident const* each) { return !also.contains(each); });
    }
    std::vector<std::string> names;
    for (lysc_ident const* const each : found)
      if (each->module->implemented) names.push_back(fmt::format("{}:{}", each->module->name, each->name));
    std::ranges::sort(names);
    if (names.empty())
      return Kstd::Err(fmt::format("no module has an identity of base '{}:{}'", bases.front()->module->name,
                                   bases.front()->name));
    std::vector<Kel::Enumerator> all;
    all.reserve(names.size());
    for (std::string const& name : names)
      all.push_back({Kel::String(name), static_cast<std::int64_t>(all.size())});
    auto done = Kel::runtimeEnum(moduleOf(leaf), pathOf(leaf), std::move(all));
    if (!done) return Kstd::Err(std::move(done).error());
    known = *done;
  }
  return Held{.published = LeafType::Identity, .type = known};
}

bool isTextual(lysc_type const& type) {
  lysc_type const& real = pointedAt(type);
  switch (real.basetype) {
  case LY_TYPE_STRING:
  case LY_TYPE_ENUM:
  case LY_TYPE_IDENT:
  case LY_TYPE_BITS:
  case LY_TYPE_INST: return true;
  case LY_TYPE_UNION:
    return std::ranges::all_of(sized(reinterpret_cast<lysc_type_union const&>(real).types),
                               [](lysc_type const* each) { return isTextual(*each); });
  case LY_TYPE_UNKNOWN:
  case LY_TYPE_BINARY:
  case LY_TYPE_BOOL:
  case LY_TYPE_DEC64:
  case LY_TYPE_EMPTY:
  case LY_TYPE_LEAFREF:
  case LY_TYPE_INT8:
  case LY_TYPE_INT16:
  case LY_TYPE_INT32:
  case LY_TYPE_INT64:
  case LY_TYPE_UINT8:
  case LY_TYPE_UINT16:
  case LY_TYPE_UINT32:
  case LY_TYPE_UINT64: break;
  }
  return false;
}

Kstd::Result<void, std::string> Maker::addMembers(lysc_node const& leaf, lysc_type_union const& type,
                                                  std::vector<LeafInfo>& members) {
  for (lysc_type const* const each : sized(type.types)) {
    lysc_type const& real = pointedAt(*each);
    if (real.basetype == LY_TYPE_UNION) {
      auto const added = addMembers(leaf, reinterpret_cast<lysc_type_union const&>(real), members);
      if (!added) return added;
      continue;
    }
    auto const held = heldAs(leaf, real);
    if (!held) return Kstd::Err(held.error());
    LeafInfo& member = members.emplace_back();
    member.type = held->published;
    member.held = held->type;
    if (real.basetype == LY_TYPE_DEC64)
      member.fractionDigits = reinterpret_cast<lysc_type_dec const&>(real).fraction_digits;
    member.rules = leafRulesOf(context_, leaf, real).release(); // for the process, as the types
  }
  return {};
}

// What a member's values are held as in a union: one of four, since one alternative is not to take what
// another one sends.
BuiltinKind heldInUnion(LeafType type) {
  switch (type) {
  case LeafType::Boolean: return BuiltinKind::Bool;
  case LeafType::Uint8:
  case LeafType::Uint16:
  case LeafType::Uint32:
  case LeafType::Uint64: return BuiltinKind::U64;
  case LeafType::Int8:
  case LeafType::Int16:
  case LeafType::Int32:
  case LeafType::Int64: return BuiltinKind::S64;
  case LeafType::String:
  case LeafType::Decimal64:
  case LeafType::Enumeration:
  case LeafType::Identity:
  case LeafType::Union:
  case LeafType::Bits:
  case LeafType::Empty:
  case LeafType::Binary:
  case LeafType::InstanceIdentifier: break;
  }
  return BuiltinKind::String;
}

// A union whose members are all written as texts is held as one text, in the canonical form of the member
// that takes it; so is any union that is a key, which is told as what its text means.
HeldOrWhy Maker::unionOf(lysc_node const& leaf, lysc_type const& type) {
  Held text{.published = LeafType::String, .type = Kel::builtinType(BuiltinKind::String), .isUnion = true};
  if (isTextual(type)) return text;
  auto members = std::make_unique<std::vector<LeafInfo>>();
  if (auto const added = addMembers(leaf, reinterpret_cast<lysc_type_union const&>(type), *members); !added)
    return Kstd::Err(added.error());
  if (lysc_is_key((&leaf))) {
    text.keyMembers = members.release(); // for the process
    return text;
  }
  static constexpr auto kKinds =
      std::to_array<std::pair<BuiltinKind, std::string_view>>({{BuiltinKind::U64, "uint"},
                                                               {BuiltinKind::S64, "int"},
                                                               {BuiltinKind::Bool, "bool"},
                                                               {BuiltinKind::String, "text"}});
  std::vector<Kel::Part> parts;
  for (auto const& [kind, name] : kKinds) {
    bool const isThere = std::ranges::any_of(
        *members, [kind = kind](LeafInfo const& each) { return heldInUnion(each.type) == kind; });
    if (isThere) parts.push_back({.name = name, .type = Kel::builtinType(kind)});
  }
  auto done = Kel::runtimeUnion(moduleOf(leaf), pathOf(leaf), parts);
  if (!done) return Kstd::Err(std::move(done).error());
  return Held{.published = LeafType::Union, .type = *done, .members = members.release()}; // for the process
}

HeldOrWhy Maker::heldAs(lysc_node const& leaf, lysc_type const& type) {
  auto const builtin = [](LeafType published, BuiltinKind kind) -> HeldOrWhy {
    return Held{.published = published, .type = Kel::builtinType(kind)};
  };
  switch (type.basetype) {
  case LY_TYPE_BOOL: return builtin(LeafType::Boolean, BuiltinKind::Bool);
  case LY_TYPE_EMPTY: return builtin(LeafType::Empty, BuiltinKind::Bool);
  case LY_TYPE_STRING: return builtin(LeafType::String, BuiltinKind::String);
  case LY_TYPE_BITS: return builtin(LeafType::Bits, BuiltinKind::String);
  case LY_TYPE_INST: return builtin(LeafType::InstanceIdentifier, BuiltinKind::String);
  case LY_TYPE_INT8: return builtin(LeafType::Int8, BuiltinKind::S8);
  case LY_TYPE_INT16: return builtin(LeafType::Int16, BuiltinKind::S16);
  case LY_TYPE_INT32: return builtin(LeafType::Int32, BuiltinKind::S32);
  case LY_TYPE_INT64: return builtin(LeafType::Int64, BuiltinKind::S64);
  case LY_TYPE_UINT8: return builtin(LeafType::Uint8, BuiltinKind::U8);
  case LY_TYPE_UINT16: return builtin(LeafType::Uint16, BuiltinKind::U16);
  case LY_TYPE_UINT32: return builtin(LeafType::Uint32, BuiltinKind::U32);
  case LY_TYPE_UINT64: return builtin(LeafType::Uint64, BuiltinKind::U64);
  case LY_TYPE_ENUM: return enumerationOf(leaf, reinterpret_cast<lysc_type_enum const&>(type));
  case LY_TYPE_IDENT: return identitiesOf(leaf, reinterpret_cast<lysc_type_identityref const&>(type));
  case LY_TYPE_DEC64: return builtin(LeafType::Decimal64, BuiltinKind::String);
  case LY_TYPE_BINARY: return builtin(LeafType::Binary, BuiltinKind::Bytes);
  case LY_TYPE_UNION: return unionOf(leaf, type);
  case LY_TYPE_LEAFREF:
  case LY_TYPE_UNKNOWN: break;
  }
  return Kstd::Err(std::string("its type is not known"));
}

// Bytes that are a key are held as the text that a path has of them.
Held binaryKey() {
  static std::vector<LeafInfo> const members{{.type = LeafType::Binary, .identityModule = {}}};
  return {
      .published = LeafType::Binary, .type = Kel::builtinType(BuiltinKind::String), .keyMembers = &members};
}

std::optional<Maker::Member> Maker::leafMember(lysc_node const& node, Copies const& copies) {
  bool const isList = node.nodetype == LYS_LEAFLIST;
  lysc_type const& type = pointedAt(isList ? *reinterpret_cast<lysc_node_leaflist const&>(node).type
                                           : *reinterpret_cast<lysc_node_leaf const&>(node).type);
  bool const isBinaryKey = type.basetype == LY_TYPE_BINARY && lysc_is_key((&node));
  auto const held = isBinaryKey ? HeldOrWhy(binaryKey()) : heldAs(node, type);
  if (!held) {
    leaveOut(node, held.error());
    return std::nullopt;
  }
  LeafInfo info{.type = held->published,
                .isConfig = (node.flags & LYS_CONFIG_W) != 0,
                .isKeyCopy = copies.contains(node.name),
                .isLeafList = isList,
                .identityModule = {}};
  info.isUnion = held->isUnion;
  if (info.isKeyCopy) info.keyName = copies.at(node.name);
  if (type.basetype == LY_TYPE_DEC64)
    info.fractionDigits = reinterpret_cast<lysc_type_dec const&>(type).fraction_digits;
  info.isSampled = !info.isConfig && isMoving(node);
  info.members = held->members;
  info.keyMembers = held->keyMembers;
  if (info.members == nullptr)
    info.rules = leafRulesOf(context_, node, type).release(); // for the process, as the types
  ++made.leaves;
  return Member{
      .node = &node, .type = held->type, .record = {.module = moduleOf(node), .isLeaf = true, .leaf = info}};
}

// --- containers and lists ----------------------------------------------------------------------------------

// The keys of the entry that leaves of this container repeat: keys point to them, and what is configured is
// told again as state.
Copies Maker::copiesIn(lysc_node const& container) {
  Copies copies;
  lysc_node const* const list = container.parent;
  if (container.nodetype != LYS_CONTAINER || list == nullptr || list->nodetype != LYS_LIST) return copies;
  for (lysc_node const* key = lysc_node_child(list); key != nullptr; key = key->next) {
    if (!lysc_is_key(key)) continue;
    lysc_type const& type = *reinterpret_cast<lysc_node_leaf const*>(key)->type;
    if (type.basetype != LY_TYPE_LEAFREF) continue;
    std::string_view path = lyxp_get_expr(reinterpret_cast<lysc_type_leafref const&>(type).path);
    if (!path.starts_with("../")) continue;
    path.remove_prefix(3);
    std::size_t const slash = path.find('/');
    if (slash == path.npos || path.find('/', slash + 1) != path.npos) continue;
    auto const bare = [](std::string_view name) {
      std::size_t const colon = name.find(':');
      return colon == name.npos ? name : name.substr(colon + 1);
    };
    std::string_view const above = bare(path.substr(0, slash));
    if (above == container.name || (above == "config" && std::string_view(container.name) == "state"))
      copies.emplace(bare(path.substr(slash + 1)), key->name);
  }
  return copies;
}

// A value of the type has no text by which a path could name it.
bool lacksText(lysc_type const& type) {
  lysc_type const& real = pointedAt(type);
  if (real.basetype == LY_TYPE_UNION)
    return std::ranges::any_of(sized(reinterpret_cast<lysc_type_union const&>(real).types),
                               [](lysc_type const* each) { return lacksText(*each); });
  return real.basetype == LY_TYPE_EMPTY;
}

bool Maker::hasKeyWithoutText(lysc_node const& list) {
  for (lysc_node const* key = lysc_node_child(&list); key != nullptr && lysc_is_key(key); key = key->next)
    if (lacksText(*reinterpret_cast<lysc_node_leaf const*>(key)->type)) return true;
  return false;
}

void Maker::addMember(std::vector<Member>& members, lysc_node const& node, Copies const& copies,
                      ChoiceCase const* inCase) {
  switch (node.nodetype) {
  case LYS_CHOICE:
    for (lysc_node const* each = lysc_node_child(&node); each != nullptr; each = each->next) {
      auto const* const one = new ChoiceCase{&node, node.name, each->name, inCase}; // for the process
      for (lysc_node const* child = lysc_node_child(each); child != nullptr; child = child->next)
        addMember(members, *child, copies, one);
    }
    return;
  case LYS_LEAF:
  case LYS_LEAFLIST:
  case LYS_CONTAINER:
  case LYS_LIST: break;
  case LYS_ANYDATA:
  case LYS_ANYXML: return leaveOut(node, "what it holds has no schema");
  default: return;
  }
  for (Member const& other : members) {
    if (std::string_view(other.node->name) == node.name)
      return fail(
          fmt::format("{}: '{}' and '{}' both have a node of this name here, which a path cannot tell apart",
                      pathOf(node), moduleOf(*other.node), moduleOf(node)));
  }
  if (auto const why = unfitName(node.name)) return leaveOut(node, *why);
  if (node.nodetype == LYS_LEAF || node.nodetype == LYS_LEAFLIST) {
    auto member = leafMember(node, copies);
    if (!member) return;
    member->record.inCase = inCase;
    members.push_back(std::move(*member));
    return;
  }
  if (node.nodetype == LYS_LIST && (node.flags & LYS_KEYLESS) != 0)
    return leaveOut(node, "a list without keys has no entries that a path could name");
  if (node.nodetype == LYS_LIST && hasKeyWithoutText(node))
    return leaveOut(node, "a key that is empty is no text that a path could hold");
  if (depth_ >= kMaxDepth) return leaveOut(node, "it lies deeper than a path can name");
  if (KelType const type = entityType(node, copiesIn(node))) {
    members.push_back({.node = &node,
                       .type = type,
                       .key = node.nodetype == LYS_LIST ? structuredKey(node, type) : KelType(),
                       .record = {.module = moduleOf(node),
                                  .leaf = {},
                                  .isState = (node.flags & LYS_CONFIG_W) == 0,
                                  .inCase = inCase}});
  }
}

std::vector<Maker::Member> Maker::membersOf(lysc_node const& node, Copies const& copies) {
  std::vector<Member> members;
  for (lysc_node const* child = lysc_node_child(&node); child != nullptr && error_.empty();
       child = child->next)
    addMember(members, *child, copies, nullptr);
  return members;
}

// The key leaves of a list, out of the type of its entries.
std::vector<Kel::KelAttr> Maker::keysOf(lysc_node const& list, KelType entry) {
  std::vector<Kel::KelAttr> keys;
  for (lysc_node const* key = lysc_node_child(&list); key != nullptr && lysc_is_key(key); key = key->next)
    keys.push_back(entry.attr(std::string_view(key->name)));
  return keys;
}

KelType Maker::structuredKey(lysc_node const& list, KelType entry) {
  std::vector<Kel::KelAttr> const keys = keysOf(list, entry);
  if (keys.size() == 1) return {};
  Kel::TypeBuilder builder(moduleOf(list), pathOf(list) + "/key", Kel::TypeKind::Struct);
  for (Kel::KelAttr const key : keys)
    builder.attr(key.name().view(), key.memberType()).ctorArg();
  auto const done = builder.done();
  if (!done) fail(fmt::format("{}: {}", pathOf(list), done.error()));
  return done ? *done : KelType();
}

// The attribute that stands for it in what holds it.
void Maker::declare(Kel::TypeBuilder& builder, Member const& member) {
  std::string_view const name = member.node->name;
  switch (member.node->nodetype) {
  case LYS_LEAF:
    builder.attr(name, member.type);
    if (lysc_is_key(member.node))
      builder.ctorArg().keyField();
    else
      builder.optional().settable();
    break;
  case LYS_LEAFLIST: builder.array(name, member.type).settable(); break;
  case LYS_CONTAINER: {
    bool const mayGo = (member.node->flags & LYS_PRESENCE) != 0 || !copiesIn(*member.node).empty();
    builder.instantiating(name, member.type).removable(mayGo);
    break;
  }
  default:
    if (member.key) {
      builder.instantiating(name, member.key, member.type);
    } else {
      Kel::KelAttr const key = keysOf(*member.node, member.type).front();
      builder.instantiating(name, key.memberType(), member.type).index(key.name().view());
    }
    builder.removable();
  }
}

KelType Maker::entityType(lysc_node const& node, Copies const& copies) {
  auto const outside = std::exchange(notHere_, {});
  ++depth_;
  std::vector<Member> const members = membersOf(node, copies);
  --depth_;
  auto const missing = std::exchange(notHere_, outside);
  if (!error_.empty()) return {};
  if (node.nodetype == LYS_LIST) {
    std::ptrdiff_t keys = 0;
    for (lysc_node const* child = lysc_node_child(&node); child != nullptr && lysc_is_key(child);
         child = child->next)
      ++keys;
    bool const areHeld =
        std::ranges::count_if(members, [](Member const& each) { return lysc_is_key(each.node); }) == keys;
    if (!areHeld) {
      leaveOut(node, "a key of it is left out");
      return {};
    }
  }
  if (members.size() > kMaxMembers) {
    fail(fmt::format("{}: more than {} nodes in one container", pathOf(node), kMaxMembers));
    return {};
  }
  Kel::TypeBuilder builder(moduleOf(node), pathOf(node), Kel::TypeKind::Entity);
  for (Member const& each : members)
    declare(builder, each);
  auto const done = builder.done();
  if (!done) {
    leaveOut(node, done.error());
    return {};
  }
  for (std::size_t i = 0; i < members.size(); ++i) {
    Impl::nodeRecordIs(done->attrAt(i), members[i].record);
    made.attrs.emplace(members[i].node, done->attrAt(i));
  }
  for (lysc_node const* const each : missing)
    leftOutIs(*done, each->name, moduleOf(*each));
  return *done;
}

// --- modules -----------------------------------------------------------------------------------------------

std::string_view versionOf(lys_module const& module) {
  for (lysc_ext_instance const& each : sized(module.compiled->exts))
    if (each.def != nullptr && std::string_view(each.def->name) == "openconfig-version" &&
        each.argument != nullptr)
      return each.argument;
  return module.revision == nullptr ? std::string_view() : std::string_view(module.revision);
}

lys_module const* Maker::prevailing(lysc_node const& top) const {
  for (lys_module const* const other : modules_.implemented()) {
    if (other == top.module || !modules_.isImportOf(other->name, top.module->name)) continue;
    for (lysc_node const* node = other->compiled->data; node != nullptr; node = node->next)
      if (std::string_view(node->name) == top.name) return other;
  }
  return nullptr;
}

Kstd::Result<void, std::string> Maker::addModule(lys_module const& module) {
  std::vector<Member> members;
  for (lysc_node const* node = module.compiled->data; node != nullptr && error_.empty(); node = node->next) {
    if (lys_module const* const other = prevailing(*node)) {
      made.leftOut.push_back(fmt::format("{}: '{}', which imports this module, has a node of this name too",
                                         pathOf(*node), other->name));
      continue;
    }
    addMember(members, *node, {}, nullptr);
  }
  if (!error_.empty()) return Kstd::Err(error_);
  for (Member const& each : members) {
    auto const tops = topLevels();
    auto const other = std::ranges::find(tops, std::string_view(each.node->name), &TopLevel::name);
    if (other != tops.end()) {
      bool const isOurs =
          std::ranges::any_of(made.tops, [&](lysc_node const* top) { return top->name == other->name; });
      return Kstd::Err(fmt::format("{}: {}", pathOf(*each.node),
                                   isOurs ? fmt::format("'{}' has a node of this name already", other->module)
                                          : "the machine's own tree has a node of this name; --no-machine "
                                            "leaves the machine out"));
    }
    topLevelIs({.name = each.node->name,
                .type = each.type,
                .module = module.name,
                .declare = [each](Kel::TypeBuilder& builder) { declare(builder, each); },
                .record = each.record});
    made.tops.insert(each.node);
  }
  for (lysc_node const* const each : std::exchange(notHere_, {}))
    leftOutIs(KelType(), each->name, moduleOf(*each));
  publishedModelIs({.name = module.name,
                    .organization = module.org == nullptr ? std::string_view() : std::string_view(module.org),
                    .version = versionOf(module)});
  return {};
}

} // namespace

Kstd::Result<YangTypes, std::string> yangTypesOf(Modules const& modules) {
  Maker maker(modules);
  for (lys_module const* const module : modules.implemented())
    if (auto const added = maker.addModule(*module); !added) return Kstd::Err(added.error());
  return std::move(maker.made);
}

} // namespace Agent
