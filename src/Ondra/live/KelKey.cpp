// Naming the key of scalar, structured and reference keys, its texts in one order, and the values that are
// sent with them as leaves.
#include "Ondra/KelKey.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "Kstd/Utf8.h"
#include "Ondra/IR.h"
#include "Ondra/rules/WalkRules.h"
#include "Ondra/rules/WalkerTrace.h"

namespace Ondra {
namespace {

using Field = KelKey::KeyMap::value_type;

std::vector<Field const*> fieldsByName(KelKey::KeyMap const& map) {
  std::vector<Field const*> fields;
  fields.reserve(map.size());
  for (Field const& field : map)
    fields.push_back(&field);
  std::sort(fields.begin(), fields.end(), [](Field const* a, Field const* b) { return a->first < b->first; });
  return fields;
}

bool isScalarKey(Kel::KelType const& type) {
  return type.isBuiltin() || type.isEnum() || type.valAttr() || type.hasGnmiStrRep();
}

Kel::Ptr<Path> madeKeyPath(Kel::KelAttr const& attr) {
  Kel::Ptr<Path> path = Path::PathIs();
  if (Kel::String const name = WalkRules::scalarKeyName(attr); !name.empty())
    path->push(PathElem::PathElemIs(name));
  return path;
}

// Names the scalar key field of a collection. Made once: a first walk asks for it at each entry.
Kel::Ptr<Path> scalarKeyPath(Kel::KelAttr const& attr) {
  using Attr = Kel::AttrDesc const*;
  using Paths = absl::flat_hash_map<Attr, Kel::Ptr<Path>, absl::Hash<Attr>, std::equal_to<Attr>,
                                    Kel::EndingAllocator<std::pair<Attr const, Kel::Ptr<Path>>>>;
  static auto* const paths = new Paths();
  Kel::Ptr<Path>& path = (*paths)[&attr.desc()];
  if (!path) path = madeKeyPath(attr);
  return path;
}

} // namespace

KelKey& KelKey::ofLeaves() {
  static KelKey key;
  return key;
}

Kel::Ptr<Path> KelKey::typeIs(Kel::KelAttr const& attr, Kel::KelType const& keyType) {
  mode_ = isScalarKey(keyType) ? Mode::Scalar : Mode::Structured;
  keyAttr_ = attr;
  // The fields of a structured key carry their own names, whether or not the member holds the key: a Set
  // reads them as fields of the key's type.
  return mode_ == Mode::Scalar ? scalarKeyPath(attr) : WalkRules::noPath();
}

Kel::Ptr<Path> KelKey::updateTypeAndGenKey(Kel::KelAttr const& attr, Kel::KelType const& keyType) {
  return Path::makePath(typeIs(attr, keyType));
}

Kel::Ptr<Path> KelKey::updateTypeAndGenKeyForPtr(Kel::KelAttr const& attr, Kel::KelType const& keyType,
                                                 std::string const& ptrPath) {
  static_cast<void>(keyType); // a reference is one scalar, whatever it refers to
  mode_ = Mode::Scalar;
  keyAttr_ = attr;
  Kel::Ptr<Path> path = Path::makePath(scalarKeyPath(attr));
  mapInsert(path->toKeyString(), ptrPath, Kel::handleOf(Kel::String(ptrPath)));
  return path;
}

void KelKey::mapInsert(std::string const& name, std::string const& text,
                       Kel::Ptr<Kel::GenericIf const> const& value) {
  isEncodable_ = isEncodable_ && Kstd::isUtf8(name) && Kstd::isUtf8(text);
  keyMap_.emplace(name, text);
  if (value) scalars_.emplace_back(name, value);
}

std::string KelKey::gnmiKeyName(Kel::Ptr<Path const> const& path) const {
  TOVAK_ASSERT(!keyMap_.empty() && "keyMap_ is empty", walkerTrace(), "{}",
               "!keyMap_.empty() && \"keyMap_ is empty\"");
  std::string name = path->toKeyString();
  for (Field const* field : fieldsByName(keyMap_)) {
    if (!name.empty()) name += "__";
    name += field->first;
    name += "__";
    name += field->second;
  }
  return name;
}

void KelKey::updateAndStorePrefix(Kel::Ptr<Path>& leafPath, bool dirEntry, Kel::KelAttr const& attr) {
  std::size_t const last = leafPath->elemSize() - 1;
  Kel::Ptr<PathElem> const elem = PathElem::makePathElem(leafPath->elems()[last]);
  if (dirEntry) {
    TOVAK_ASSERT(keyMap_.size() == 1 && "Expected map size of 1", walkerTrace(), "{}",
                 "keyMap().size() == 1 && \"Expected map size of 1\"");
    elem->nameIs(Kel::String::dedup(keyMap_.begin()->second));
  } else {
    for (auto const& [name, text] : keyMap_)
      elem->keyIs(Kel::String::dedup(name), Kel::String::dedup(text));
  }
  leafPath->replace(last, elem);
  if (!dirEntry && mode_ == Mode::Structured && WalkRules::membersNeedValueElem(attr))
    leafPath->push(PathElem::PathElemIs(attr.name().merge("Value")));
  prefix_ = leafPath;
}

Kel::Ptr<Kel::GenericIf const> KelKey::scalar(std::string_view name, std::string_view text) const {
  auto const field =
      std::find_if(keyMap_.begin(), keyMap_.end(), [&](Field const& one) { return one.first == name; });
  auto const value =
      std::find_if(scalars().begin(), scalars().end(), [&](Scalar const& one) { return one.first == name; });
  bool const isThis = field != keyMap_.end() && field->second == text && value != scalars().end();
  return isThis ? value->second : nullptr;
}

void KelKey::copyScalars(IrNode& node) const {
  for (auto const& [name, value] : scalars()) {
    Kel::Ptr<Path> const path = prefix_ ? Path::makePath(prefix_) : Path::PathIs();
    path->push(PathElem::PathElemIs(Kel::String(name)));
    node.addLeaf(path, value);
  }
}

KelKey::operator std::string() const {
  std::vector<std::string> groups;
  groups.reserve(keyMap_.size());
  for (auto const& [name, text] : keyMap_)
    groups.push_back(fmt::format("[{}={}]", name, text));
  std::sort(groups.begin(), groups.end());
  return fmt::format("{}", fmt::join(groups, ""));
}

std::string KelKey::dumpKey() const {
  std::string text = fmt::format("{{KeyStr{}\nValues[ ", toString(*this));
  for (auto const& [name, value] : scalars())
    text += fmt::format("{} = {} ", name, value->strRep());
  text += fmt::format("]}}\n");
  return text;
}

} // namespace Ondra
