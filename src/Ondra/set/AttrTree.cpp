// Resolving path elements against the model.
#include "Ondra/AttrTree.h"

#include "Kel/Dir.h"
#include "Ondra/KeyDecoder.h"
#include "Ondra/PathFormat.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

using gnmi::PathElem;
using Kel::KelAttr;
using Kel::KelType;
using LookupResult = Kstd::Result<AttrTree::KelObject, AttrTree::KelLookupError>;

namespace {

LookupResult lookupError(std::string message, bool missing = false) {
  return Kstd::Err(AttrTree::KelLookupError{missing, std::move(message)});
}

// The key of a collection's element, put into its place; an error text otherwise.
std::string decodeKeys(PathElem const& elem, AttrTree::KelObject& place) {
  TOVAK_TRACE(setTrace, 9, "", "Decoding the key for element '{}'", elem);
  auto decoded = AttrTree::KeyDecoder::decodeKey(place.attr.keyType(), elem.key());
  if (auto* const single = std::get_if<AttrTree::SingleKey>(&decoded)) {
    place.keys = std::move(*single);
  } else if (auto* const filter = std::get_if<AttrTree::MultipleKeys>(&decoded)) {
    TOVAK_TRACE(setTrace, 9, "", "KelObject captures multiple keys and so no value");
    place.keys = std::move(*filter);
  } else {
    return std::get<std::string>(std::move(decoded));
  }
  return {};
}

} // namespace

KelType AttrTree::KelObject::type() const {
  if (object) return object->type();
  return attr ? attr.memberType() : KelType();
}

AttrTree::ConstHandle const& AttrTree::KelObject::key() const {
  static ConstHandle const none;
  auto const* const single = std::get_if<SingleKey>(&keys);
  return single == nullptr ? none : single->key;
}

LookupResult AttrTree::getNextKelObject(KelObject const& parent, PathElem const& elem) {
  auto place = getNextPlace(parent, elem);
  if (!place || place->object) return place;
  auto object = readPlace(parent, *place);
  if (!object) return lookupError(std::move(object).error());
  place->object = std::move(object).value();
  return place;
}

LookupResult AttrTree::getNextPlace(KelObject const& parent, PathElem const& elem) {
  TOVAK_TRACE(setTrace, 6, "", "Accessing path element '{}' with {} keys", elem.name(), elem.key_size());
  KelType const type = parent.type();
  if (!type) return lookupError(fmt::format("KelType is missing for parent object of '{}'", elem));
  if (type.isDir()) {
    TOVAK_TRACE(setTrace, 9, "", "Accessing entity named '{}' under Kel::Dir", elem.name());
    if (!parent.object) return lookupError(fmt::format("Path element '{}' is not set", elem), true);
    return getNextObjInDir(parent, elem);
  }
  TOVAK_TRACE(setTrace, 9, "", "Accessing attribute '{}' in type '{}'", elem.name(), type.name().view());
  KelObject place;
  place.parentType = type;
  place.attr = type.attr(std::string_view(elem.name()));
  KelAttr const attr = place.attr;
  if (!attr) {
    return lookupError(fmt::format("Attribute '{}' not found on Type '{}'", elem.name(), type.name().view()),
                       true);
  }
  if (attr.isOperation()) {
    return lookupError(
        fmt::format("Attribute '{}' of Type '{}' is an operation", elem.name(), type.name().view()));
  }
  if (attr.isKeyed()) {
    if (std::string error = decodeKeys(elem, place); !error.empty()) return lookupError(std::move(error));
  } else if (attr.isArray()) {
    TOVAK_TRACE(setTrace, 8, "", "Next attribute '{}' is an array", elem.name());
    if (elem.key_size() != 0)
      return lookupError(fmt::format("Array element '{}' cannot contain a key map", elem));
  } else if (attr.isCollection()) {
    return lookupError(fmt::format("Members of collection '{}' cannot be addressed", elem.name()));
  } else if (elem.key_size() != 0) {
    return lookupError(fmt::format("Element '{}' is no collection and cannot contain a key map", elem));
  }
  return place;
}

Kstd::Result<AttrTree::ConstHandle, std::string> AttrTree::readPlace(KelObject const& parent,
                                                                     KelObject const& place) {
  if (!parent.object || place.hasFilter()) return ConstHandle();
  return catchModelError([&] { return place.attr.genericIfGet(parent.object, place.key()); });
}

LookupResult AttrTree::getNextObjInDir(KelObject const& dir, PathElem const& elem) {
  TOVAK_ASSERT(dir.type() && dir.type().isDir(), setTrace, "Expecting dirObj to be of type Kel::Dir");
  TOVAK_ASSERT(dir.object, setTrace, "Expecting val of Kel::Dir type to be set");
  if (elem.key_size() != 0)
    return lookupError(fmt::format("Path element '{}' under Kel::Dir cannot have a key", elem), true);
  KelObject entity;
  entity.parentType = dir.type();
  entity.attr = entity.parentType.attr("entityPtr");
  TOVAK_ASSERT(entity.attr, setTrace, "entityPtr attribute not found inside Kel::Dir");
  SingleKey name{Kel::handleOf(Kel::String(elem.name()))};
  TOVAK_ASSERT(name.key, setTrace, "Expecting valid key object to access entityPtr");
  entity.keys = name;
  auto object = catchModelError([&] { return entity.attr.genericIfGet(dir.object, name.key); });
  if (!object) return lookupError(std::move(object).error(), true);
  if (!*object) return lookupError(fmt::format("Path element '{}' is not set", elem), true);
  entity.object = std::move(object).value();
  return entity;
}

bool AttrTree::applyKeyFilter(MultipleKeys::Filter const& filter, ConstHandle const& memberKey) {
  for (auto const& [field, wanted] : filter) {
    ConstHandle const found = field.genericIfGet(memberKey);
    if (!found || !KelType::genericIfBooleanOp(*found, Kel::GenericIf::AttributeOp::Equal, *wanted))
      return false;
  }
  return true;
}

} // namespace Ondra::KelGnmiSet
