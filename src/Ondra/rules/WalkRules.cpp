// A plan for each type, made once: the road of each attribute and what may be left short; then names, paths
// and collisions of leaves.
#include "Ondra/rules/WalkRules.h"

#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "Kel/Allocator.h"
#include "Kstd/Utf8.h"
#include "Ondra/ScalarEncode.h"

namespace Ondra::WalkRules {
namespace {

Road roadOf(Kel::KelAttr attr) {
  if (attr.isOperation() || attr.type().isCollectionControl()) return Road::Skip;
  bool const asOne = attr.isScalarArray() || attr.isGnmiJsonString() || attr.readsAsOneValue();
  if (!attr.isCollection() || asOne) {
    bool const canBeOne = !attr.isCollection() || attr.isArray() || attr.isGnmiJsonString();
    return canBeOne ? Road::Singleton : Road::Unsupported;
  }
  return attr.isStack() ? Road::Unsupported : Road::Collection;
}

// Types that hold each other through collections are looked into this far.
constexpr int kMaxNesting = 16;

bool holdsReference(Kel::KelType type, int depth = 0) {
  if (!type || depth > kMaxNesting) return static_cast<bool>(type);
  if (type.isEntity() || type.isKeyPtrWrapper()) return true;
  if (!type.isValueType() || isScalarType(type)) return false;
  for (Kel::KelTypeBase::AttributeQIterator at(type); at; ++at) {
    Kel::KelAttr const attr = *at;
    if (attr.isPointer() || holdsReference(attr.memberType(), depth + 1) ||
        (attr.isKeyed() && holdsReference(attr.keyType(), depth + 1)))
      return true;
  }
  return false;
}

// A value of the type can be without some of the leaves that another value of it has.
bool leavesVary(Kel::KelType type, int depth = 0) {
  if (!type.isValueType() || isScalarType(type)) return false;
  for (Kel::KelTypeBase::AttributeQIterator at(type); at; ++at) {
    Kel::KelAttr const attr = *at;
    if (attr.isOptional() || attr.isKeyed() || attr.isGnmiJsonString() || depth > kMaxNesting ||
        (!attr.isPointer() && leavesVary(attr.memberType(), depth + 1)))
      return true;
  }
  return false;
}

// The value's own handle is what a leaf of the type holds.
bool isOwnLeaf(Kel::KelType type) {
  return type.isBuiltin() || type.isEnum() || type.hasGnmiStrRep() || type.hasGnmiByteRep();
}

bool isPlainHolder(AttrPlan const& plan) {
  Kel::KelAttr const& attr = plan.attr;
  if (!attr.isInstantiating() || plan.keyHoldsReference || attr.isKeyScalarNode() ||
      !attr.memberType().isEntity())
    return false;
  return plan.road == Road::Collection || plan.readsValue;
}

using PlansByPath =
    absl::flat_hash_map<Path const*, AttrPlan const*, absl::Hash<Path const*>, std::equal_to<Path const*>,
                        Kel::EndingAllocator<std::pair<Path const* const, AttrPlan const*>>>;
PlansByPath& plansByPath() {
  static auto* const plans = new PlansByPath();
  return *plans;
}

AttrPlan planOf(Kel::KelType type, Kel::KelAttr attr) {
  AttrPlan plan;
  plan.attr = attr;
  plan.road = roadOf(attr);
  if (plan.road == Road::Skip) return plan;
  plan.isEntityName = type.isEntity() && attr.name() == "name";
  plan.readsValue = plan.road == Road::Singleton && !attr.isGnmiJsonString() &&
                    (!attr.isCollection() || (attr.readsAsOneValue() && attr.isArray()));
  plan.isScalarLeaf = plan.readsValue && !attr.isCollection() && !attr.isPointer() &&
                      !attr.isInstantiating() && isScalarType(attr.memberType());
  plan.isOwnLeaf = plan.isScalarLeaf && isOwnLeaf(attr.memberType());
  plan.isPlainLeaf = plan.isOwnLeaf && attr.readsInPlace();
  plan.isPrinted = plan.isOwnLeaf && Ondra::isPrinted(attr.memberType());
  if (plan.isPlainLeaf) {
    Kel::TypeDesc const& value = attr.memberType().desc();
    plan.liesAtOffset = attr.liesAtOffset();
    plan.offset = static_cast<std::uint32_t>(attr.desc().offset);
    plan.valueType = &value;
    if (!value.hasGnmiStrRep && !value.hasGnmiByteRep)
      plan.valueKind = value.kind == Kel::TypeKind::Enum ? value.underlying : value.builtin;
  }
  plan.isText = plan.isPlainLeaf && attr.memberType().builtinKind() == Kel::BuiltinKind::String;
  plan.keyHoldsReference = attr.isKeyed() && holdsReference(attr.keyType());
  plan.rendersReferences = plan.keyHoldsReference || attr.isPointer() ||
                           (!attr.isInstantiating() && holdsReference(attr.memberType()));
  plan.canLoseLeaves = !attr.isInstantiating() && !attr.isPointer() && !attr.isGnmiJsonString() &&
                       leavesVary(attr.memberType());
  if (attr.isKeyed() && attr.keyType().isBuiltin() && !attr.keyType().hasGnmiByteRep())
    plan.keyName = scalarKeyName(attr).dedup();
  plan.isPlainHolder = isPlainHolder(plan);
  plan.isLightHolder = plan.isPlainHolder && attr.readsInPlace();
  Kel::Ptr<PathElem> const elem = PathElem::PathElemIs(attr.name());
  plan.elem = elem;
  plan.leafPath = Path::PathIs();
  plan.leafPath->push(elem);
  return plan;
}

std::size_t plainFrom(TypePlan const& plan) {
  std::size_t from = plan.attrs.size();
  while (from > 0 && (plan.attrs[from - 1].isPlainLeaf || plan.attrs[from - 1].road == Road::Skip))
    --from;
  return plan.attrs.size() - from <= kMostPlain ? from : plan.attrs.size();
}

bool isLightType(TypePlan const& plan) {
  auto const isLight = [](AttrPlan const& attr) {
    return attr.road == Road::Skip || (attr.isPlainLeaf && !attr.isPrinted) || attr.isLightHolder;
  };
  bool const isPlain = plan.plainFrom == 0 && !plan.printsPlain;
  return isPlain ||
         (plan.attrs.size() <= kMostLight && std::all_of(plan.attrs.begin(), plan.attrs.end(), isLight));
}

std::unique_ptr<TypePlan> makePlan(Kel::KelType type) {
  auto plan = std::make_unique<TypePlan>();
  plan->type = type;
  plan->isValueType = type.isValueType();
  for (Kel::KelTypeBase::AttributeQIterator attr(type); attr; ++attr)
    plan->attrs.push_back(planOf(type, *attr));
  plan->plainFrom = plainFrom(*plan);
  plan->printsPlain = std::any_of(plan->attrs.begin() + static_cast<std::ptrdiff_t>(plan->plainFrom),
                                  plan->attrs.end(), [](AttrPlan const& attr) { return attr.isPrinted; });
  for (std::size_t at = 0; at < plan->attrs.size() && plan->attrs.size() <= kMostLight; ++at) {
    AttrPlan const& attr = plan->attrs[at];
    plan->plainMask |= std::uint64_t{attr.isPlainLeaf} << at;
    plan->singleMask |= std::uint64_t{attr.isPlainLeaf || attr.road == Road::Singleton} << at;
  }
  for (std::size_t at = plan->plainFrom; at < plan->attrs.size(); ++at)
    if (plan->attrs[at].isText) plan->plainTexts.push_back(static_cast<std::uint32_t>(at));
  plan->isLight = type.isEntity() && isLightType(*plan);
  for (std::size_t at = 0; plan->isLight && at < plan->attrs.size(); ++at)
    if (plan->attrs[at].isLightHolder && plan->attrs[at].road == Road::Singleton)
      plan->children.push_back(static_cast<std::uint32_t>(at));
  return plan;
}

TypePlan const& plannedOnce(Kel::KelType type) {
  using PlanPtr = std::unique_ptr<TypePlan>;
  using Plans = absl::flat_hash_map<Kel::TypeDesc const*, PlanPtr, absl::Hash<Kel::TypeDesc const*>,
                                    std::equal_to<Kel::TypeDesc const*>,
                                    Kel::EndingAllocator<std::pair<Kel::TypeDesc const* const, PlanPtr>>>;
  static auto* const plans = new Plans();
  std::unique_ptr<TypePlan>& plan = (*plans)[&type.desc()];
  if (!plan) {
    plan = makePlan(type);
    for (AttrPlan const& attr : plan->attrs)
      if (attr.leafPath) plansByPath().emplace(attr.leafPath.get(), &attr);
  }
  return *plan;
}

} // namespace

// Whatever walks or changes is of few types at a time, which are found without a hash.
TypePlan const& typePlan(Kel::KelType type) {
  static std::array<TypePlan const*, 64> recent{};
  auto const address = reinterpret_cast<std::uintptr_t>(&type.desc());
  TypePlan const*& plan = recent[address / sizeof(Kel::TypeDesc) % recent.size()];
  if (plan == nullptr || !(plan->type == type)) plan = &plannedOnce(type);
  return *plan;
}

std::string_view whyUnsupported(Kel::KelAttr const& attr) {
  return attr.isStack() ? "skipping unsupported stack collection"
                        : "skipping a keyed collection that is marked to be read as one value";
}

Kel::Ptr<Path> const& noPath() {
  static auto const* const path = new Kel::Ptr<Path>(Path::PathIs());
  return *path;
}

AttrPlan const* planWithLeafPath(Path const& path) {
  auto const found = plansByPath().find(&path);
  return found == plansByPath().end() ? nullptr : found->second;
}

Kel::Ptr<Path> attrLeafPath(Kel::Ptr<Path> const& objectPath, AttrPlan const& plan) {
  if (objectPath->empty()) return plan.leafPath;
  Kel::Ptr<Path> path = Path::makePath(objectPath);
  path->push(plan.elem);
  return path;
}

namespace {

// The attribute, if it is one whose leaf gives way to a key field of that name.
bool givesWay(Kel::KelAttr const& attr) {
  if (attr.isKeyField() || attr.isPointer() || attr.isInstantiating() || roadOf(attr) != Road::Singleton)
    return false;
  return attr.isGnmiJsonString() || attr.isScalarArray() ||
         (!attr.isCollection() && isScalarType(attr.memberType()));
}

} // namespace

// docs/decisions.md: "Which leaves does a key make?"
MetKeyField metKeyField(Kel::KelType const& type, Kel::KelAttr const& attr, Path const& objectPrefix,
                        Kel::Ptr<Path> const& objectLeaf) {
  Path const& last = objectLeaf->empty() ? objectPrefix : *objectLeaf;
  if (last.empty() || last.elems().back()->key().empty()) return {};
  auto const& fields = last.elems().back()->key();
  auto const* const field = fields.lookup(attr.name());
  if (field == nullptr || !givesWay(attr)) return {};
  Kel::String name = attr.name();
  do { // what it gets may be somebody's name too
    name = name.merge("Value_");
  } while (type.attr(name.view()) || fields.lookup(name) != nullptr);
  Kel::Ptr<Path> path = Path::makePath(objectLeaf);
  path->push(PathElem::PathElemIs(name));
  return {field, std::move(path)};
}

bool meetsKeyFields(Kel::KelType const& type, Path const& objectPath) {
  if (objectPath.empty()) return false;
  auto const& fields = objectPath.elems().back()->key();
  return std::any_of(fields.begin(), fields.end(), [&type](auto const& field) {
    Kel::KelAttr const attr = type.attr(field.key.view());
    return attr && givesWay(attr);
  });
}

bool membersNeedValueElem(Kel::KelAttr const& attr) {
  Kel::KelType const member = attr.memberType();
  if (attr.isPointer() || attr.isInstantiating()) return false;
  return member.hasGnmiByteRep() || member.isJsonString() || member.builtinKind() == Kel::BuiltinKind::Bytes;
}

Kel::String scalarKeyName(Kel::KelAttr const& attr) {
  Kel::KelAttr const index = attr.indexAttr();
  if (!index) return attr.name().merge("Key");
  return index.isKeyField() ? index.name() : Kel::String();
}

bool isDirEntries(Kel::KelAttr const& attr) { return attr.ownerType().isDir() && attr.name() == "entityPtr"; }

bool isEncodable(PathElem const& elem) {
  return Kstd::isUtf8(elem.name().view()) &&
         std::all_of(elem.key().begin(), elem.key().end(), [](auto const& field) {
           return Kstd::isUtf8(field.key.view()) && Kstd::isUtf8(field.value.view());
         });
}

bool isEncodable(Path const& path) {
  auto const elems = path.elems();
  return std::all_of(elems.begin(), elems.end(), [](auto const& elem) { return isEncodable(*elem); });
}

bool isAtOrBelow(Path const& ancestor, Path const& path) {
  auto const above = ancestor.elems();
  auto const below = path.elems();
  if (above.size() > below.size()) return false;
  for (std::size_t i = above.size(); i-- > 0;) // paths of one tree differ towards their ends
    if (!above[i]->isEqual(below[i].get())) return false;
  return true;
}

} // namespace Ondra::WalkRules
