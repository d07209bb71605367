// What walkers decide from types alone: how each attribute is walked and how its leaf is named.
//
// Invariant: whatever a full walk and a notification walk must agree on is decided here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "Kel/Type.h"
#include "Kstd/Export.h"
#include "Ondra/Path.h"
#include "Ondra/PathElem.h"

namespace Ondra::WalkRules {

// How an attribute is walked.
enum class Road : unsigned char {
  Skip,        // operations and the housekeeping of collections
  Unsupported, // skipped with a trace
  Singleton,   // one value, or a collection that is read as one
  Collection,  // member by member
};

struct TypePlan;

// A leaf path as the field of an update, as the first encoder that needs it has made it: at the end of a
// block, so that the whole block can be copied. Of size 0 before, and when it is longer.
struct WireLeafPath {
  std::array<std::uint8_t, 63> bytes{};
  std::uint8_t size = 0;
};

// One attribute as walkers see it, with the immutable path parts that all its leaves share.
struct AttrPlan {
  Kel::KelAttr attr;
  Road road = Road::Skip;
  bool isEntityName = false;  // an entity's "name", left out while it is empty
  bool readsValue = false;    // the singleton road reads the attribute's value
  bool isScalarLeaf = false;  // a single scalar value and nothing else: the plain and most frequent case
  bool isOwnLeaf = false;     // and the value's own handle is what its leaf holds: no wrapper, no union
  bool isPlainLeaf = false;   // and the value can be read where it lies
  bool isText = false;        // and is a text, whose characters lie elsewhere
  bool isPrinted = false;     // its text or bytes are made by the model's code
  bool isPlainHolder = false; // of entities whose walk needs nothing but their path: no reference is in it
  bool isLightHolder = false; // and they can be reached where the object holds them
  bool rendersReferences = false; // the value, or the key of a member, can hold references
  bool keyHoldsReference = false; // the path of a member can
  bool canLoseLeaves = false;     // a nested value with parts that can be absent: its set of leaves changes
  bool liesAtOffset = false;      // the value of a plain leaf lies there in every object
  std::uint32_t offset = 0;
  Kel::TypeDesc const* valueType = nullptr;            // of a plain leaf
  Kel::BuiltinKind valueKind = Kel::BuiltinKind::None; // how its bits are told; None: they are not
  Kel::Ptr<PathElem const> elem;                       // named after the attribute, without keys
  Kel::String keyName;     // of members whose key is one builtin value: the name of its field in their path
  Kel::Ptr<Path> leafPath; // of that one element: the leaf path of an entity's own attribute
  mutable TypePlan const* memberPlan = nullptr; // see `memberPlanOf`
  mutable Kel::Bytes wireElem;                  // `elem` as bytes; empty until an encoder has made it
  mutable WireLeafPath wireLeafPath;            // `leafPath` as bytes
};

// The value of a plain leaf where it lies in the object; null when it has none.
[[nodiscard]] inline void const* plainValue(AttrPlan const& plan, Kel::PtrInterface const& object) noexcept {
  if (plan.liesAtOffset) [[likely]]
    return reinterpret_cast<unsigned char const*>(&object) + plan.offset;
  return plan.attr.valueAt(object);
}

// With so many plain leaves at most does a type end (`TypePlan::plainFrom`). They are one response, whoever
// encodes them: it is one less than where a response is full.
inline constexpr std::size_t kMostPlain = 999;

// More attributes than these are too many for one step of a walk, when there are others than plain leaves;
// and for the masks of a plan.
inline constexpr std::size_t kMostLight = 57;

struct TypePlan {
  Kel::KelType type;
  bool isValueType = false;
  bool printsPlain = false;     // some plain leaf is printed
  bool isLight = false;         // all is plain leaves, none of them printed, and light holders
  std::uint64_t plainMask = 0;  // the plain leaves, by position; 0: there are none or too many attributes
  std::uint64_t singleMask = 0; // the attributes that have one time, likewise
  std::size_t plainFrom = 0;    // from this position on there are plain leaves and nothing else
  std::vector<AttrPlan> attrs;  // by position in the type
  std::vector<std::uint32_t> plainTexts; // positions from `plainFrom` on: their characters lie elsewhere
  std::vector<std::uint32_t> children;   // positions of single light holders, when it is light itself
};

// The trace of an attribute that is not supported.
[[nodiscard]] KTD_EXPORT std::string_view whyUnsupported(Kel::KelAttr const& attr);

// The plan of a type; made on first use, kept for the process. Scheduler thread only.
[[nodiscard]] KTD_EXPORT TypePlan const& typePlan(Kel::KelType type);
// That of the type of an attribute's members.
[[nodiscard]] inline TypePlan const& memberPlanOf(AttrPlan const& plan) {
  if (plan.memberPlan == nullptr) [[unlikely]] // not sooner: types hold each other
    plan.memberPlan = &typePlan(plan.attr.memberType());
  return *plan.memberPlan;
}

// The empty path, where an entity's own attributes begin: shared, not to be changed.
[[nodiscard]] KTD_EXPORT Kel::Ptr<Path> const& noPath();

// The attribute in some plan whose `leafPath` it is: such a path stays as it is for the process. Null: none.
[[nodiscard]] KTD_EXPORT AttrPlan const* planWithLeafPath(Path const& path);

// The leaf path of an attribute of the object at `objectPath`: shared, not to be changed.
[[nodiscard]] KTD_EXPORT Kel::Ptr<Path> attrLeafPath(Kel::Ptr<Path> const& objectPath, AttrPlan const& plan);

// --- attributes that meet a key field ---------------------------------------------------------------------
//
// A field of a list entry's key is an attribute of the entry, or lies outside of it and is told by its path
// alone. An attribute that has the name of such a field without being it meets it:
// - If it would be a leaf (a scalar, an array, a JSON text), whoever reads it would take it for the field. So
//   the leaf of that name is the field's, whether or not the attribute is set, and the attribute's leaf has
//   that name with "Value_".
// - Anything else (a structure, a reference, an entity, a collection) is a container of that name and stays
//   it; the field has no leaf.
// No other key field has a leaf. All of this follows from the entry's type and path, for walks, changes and
// deletes alike.

// What an attribute's leaf gives way to, and where it is then. Without a field: the attribute meets none, and
// is where it would be.
struct MetKeyField {
  PathElem::KeyMapType::Node const* field = nullptr; // in the path of the object
  Kel::Ptr<Path> leafPath;
  explicit operator bool() const noexcept { return field != nullptr; }
};

// Of an attribute of an object of that type, whose path is `objectPrefix` and `objectLeaf` together. Valid
// while these are.
[[nodiscard]] KTD_EXPORT MetKeyField metKeyField(Kel::KelType const& type, Kel::KelAttr const& attr,
                                                 Path const& objectPrefix, Kel::Ptr<Path> const& objectLeaf);
// Whether any attribute of an object of that type at that path meets one.
[[nodiscard]] KTD_EXPORT bool meetsKeyFields(Kel::KelType const& type, Path const& objectPath);

// --- members and directories ------------------------------------------------------------------------------

// Whether a member under a structured key is sent below an element of its own, "<attribute>Value": a scalar
// of a kind that no client can write, so that no Set ever addresses the member itself as a leaf.
[[nodiscard]] KTD_EXPORT bool membersNeedValueElem(Kel::KelAttr const& attr);

// The attribute is the one that holds a directory's entities.
[[nodiscard]] KTD_EXPORT bool isDirEntries(Kel::KelAttr const& attr);

// The name of the field that a scalar key of the attribute's members is in their path; empty: it has none.
[[nodiscard]] KTD_EXPORT Kel::String scalarKeyName(Kel::KelAttr const& attr);

// Whether a message can hold the element: its texts are UTF-8. Walks send nothing at or below an element that
// it cannot.
[[nodiscard]] KTD_EXPORT bool isEncodable(PathElem const& elem);
[[nodiscard]] KTD_EXPORT bool isEncodable(Path const& path);

// Whether `path` is `ancestor` or lies below it, element by element with equal keys.
[[nodiscard]] KTD_EXPORT bool isAtOrBelow(Path const& ancestor, Path const& path);

} // namespace Ondra::WalkRules
