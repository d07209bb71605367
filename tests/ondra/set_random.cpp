// Paths along the types and the objects that are there, values for the right field or for any, mutations.
#include "ondra/set_random.h"

#include <array>
#include <iterator>

#include <boost/algorithm/string/replace.hpp>

#include "Ondra/ScalarEncode.h"

namespace SetTest {

using Kel::KelAttr, Kel::KelType;

namespace {

void addFields(gnmi::PathElem& elem, std::string const& prefix, ConstHandle const& value) {
  KelType const type = value->type();
  if (type.kind() != Kel::TypeKind::Struct || type.hasGnmiStrRep()) {
    bool const isText = value->attrValPtr<Kel::String>() != nullptr;
    std::string const text = value->gnmiStrRep();
    (*elem.mutable_key())[prefix] = isText ? boost::replace_all_copy(text, "__", "\\__") : text;
    return;
  }
  for (KelType::AttributeQIterator at(type); at; ++at)
    if (auto const field = (*at).genericIfGet(value))
      addFields(elem, (prefix.empty() ? "" : prefix + "__") + (*at).name().str(), field);
}

bool isStructured(KelType type) { return type.kind() == Kel::TypeKind::Struct && !type.hasGnmiStrRep(); }

bool isLeaf(KelAttr attr) {
  KelType const type = attr.memberType();
  return (attr.isPointer() && !attr.isInstantiating()) || attr.isArray() ||
         (!type.isEntity() && !isStructured(type));
}

// The key of a member as the read side writes it into a path element.
void addKey(gnmi::PathElem& elem, KelAttr attr, ConstHandle const& key) {
  if (isStructured(attr.keyType())) {
    addFields(elem, "", key);
    return;
  }
  std::string const name = attr.indexAttr() ? attr.indexAttr().name().str() : attr.name().str() + "Key";
  (*elem.mutable_key())[name] = key->gnmiStrRep();
}

} // namespace

std::string RequestMaker::text() {
  static constexpr std::array<char const*, 24> texts = {
      "",     "*",    "...",  "a",   "__",     "\\__", "eth0", "default",
      "x__y", "\"",   "'",    "\\",  "INSIDE", "7",    "07",   "-1",
      "300",  "true", "name", "wan", "\n",     "red",  "ssh",  "18446744073709551616"};
  if (!oneIn(6)) return texts[choose_(texts.size())];
  std::string made(choose_(5), ' ');
  for (char& c : made)
    c = static_cast<char>(choose_(256));
  return made;
}

void RequestMaker::fields(gnmi::PathElem& elem, std::string const& prefix, KelType type, bool wildcards) {
  for (KelType::AttributeQIterator at(type); at; ++at) {
    std::string const name = (prefix.empty() ? "" : prefix + "__") + (*at).name().str();
    if (isStructured((*at).memberType()))
      fields(elem, name, (*at).memberType(), wildcards);
    else if (!oneIn(12))
      (*elem.mutable_key())[name] = wildcards && oneIn(2) ? "*" : std::to_string(choose_(5));
  }
}

void RequestMaker::key(gnmi::PathElem& elem, KelAttr attr, ConstHandle const& object, bool wildcards) {
  std::size_t const members = object ? attr.genericIfCount(object) : 0;
  object_ = nullptr;
  if (members != 0 && !oneIn(3)) {
    auto at = attr.genericIfIteratorConst(object);
    for (std::size_t skip = choose_(members); skip != 0; --skip)
      ++at;
    addKey(elem, attr, at.key());
    object_ = at.ptr();
  } else if (isStructured(attr.keyType())) {
    fields(elem, "", attr.keyType(), wildcards);
  } else {
    (*elem.mutable_key())[oneIn(4) ? text() : "k"] = wildcards && oneIn(2) ? "*" : text();
  }
  if (wildcards && oneIn(4)) {
    for (auto& [name, value] : *elem.mutable_key())
      value = oneIn(2) ? "*" : value;
    object_ = nullptr;
  }
}

void RequestMaker::walk(gnmi::Path& path, KelType& type, std::size_t steps, bool wildcards) {
  for (; steps != 0 && type && type.attrCount() != 0; --steps) {
    gnmi::PathElem& elem = *path.add_elem();
    KelAttr const attr = type.attrAt(choose_(type.attrCount()));
    elem.set_name(oneIn(40) ? text() : attr.name().str());
    ConstHandle const object = object_;
    if (attr.isKeyed()) {
      key(elem, attr, object, wildcards);
    } else {
      object_ = object && !attr.isCollection() ? attr.genericIfGet(object) : nullptr;
      if (oneIn(60)) (*elem.mutable_key())[text()] = text();
    }
    type = attr.memberType();
    bool const isEnd = isLeaf(attr) && !oneIn(30);
    if (isEnd || (wildcards && oneIn(5))) return;
  }
}

gnmi::TypedValue RequestMaker::anyValue() {
  gnmi::TypedValue value;
  switch (choose_(10)) {
  case 0: value.set_string_val(text()); break;
  case 1: value.set_int_val(static_cast<std::int64_t>(choose_(600)) - 300); break;
  case 2: value.set_uint_val(choose_(100000)); break;
  case 3: value.set_bool_val(oneIn(2)); break;
  case 4: value.set_bytes_val(std::string(choose_(10), 'b')); break;
  case 5: value.set_double_val(static_cast<double>(choose_(1000)) / 8); break;
  case 6: value.set_json_val(text()); break;
  case 7: {
    for (std::size_t left = choose_(4); left != 0; --left)
      *value.mutable_leaflist_val()->add_element() = anyValue();
    value.mutable_leaflist_val();
    break;
  }
  case 8: value.mutable_any_val()->set_type_url(text()); break;
  default: break;
  }
  return value;
}

gnmi::TypedValue RequestMaker::value(KelType type) {
  if (oneIn(8) || !type) return anyValue();
  gnmi::TypedValue value;
  if (type.isEnum()) {
    value.set_string_val(type.enumerators()[choose_(type.enumerators().size())].name.str());
    return value;
  }
  if (type.valAttr() || type.isUnion())
    return this->value(type.attrAt(choose_(type.attrCount())).memberType());
  if (!type.isBuiltin() && !type.hasGnmiStrRep()) return anyValue();
  Ondra::extractScalar(nullptr, type.genericIf(nullptr), &value); // the right field
  switch (value.value_case()) {
  case gnmi::TypedValue::kStringVal:
    value.set_string_val(type.isBuiltin() ? text() : value.string_val());
    break;
  case gnmi::TypedValue::kIntVal: value.set_int_val(static_cast<std::int64_t>(choose_(600)) - 300); break;
  case gnmi::TypedValue::kUintVal: value.set_uint_val(choose_(100000)); break;
  case gnmi::TypedValue::kBoolVal: value.set_bool_val(oneIn(2)); break;
  case gnmi::TypedValue::kDoubleVal: value.set_double_val(static_cast<double>(choose_(1000)) / 8); break;
  default: break;
  }
  return value;
}

gnmi::SetRequest RequestMaker::make() {
  gnmi::SetRequest request;
  auto const start = [this] {
    object_ = Kel::GenericIf::toObject(static_cast<Kel::PtrInterface const*>(root_.get()));
    return root_->fwkType();
  };
  KelType base = start();
  if (oneIn(3)) walk(*request.mutable_prefix(), base, 1 + choose_(2), false);
  ConstHandle const baseObject = object_;
  for (std::size_t left = 1 + choose_(5); left != 0; --left) {
    KelType type = base;
    object_ = baseObject;
    if (oneIn(3)) {
      walk(*request.add_delete_(), type, 1 + choose_(5), true);
      continue;
    }
    gnmi::Update& update = oneIn(4) ? *request.add_replace() : *request.add_update();
    walk(*update.mutable_path(), type, 6, oneIn(30));
    if (!oneIn(40)) {
      bool const isList = oneIn(12);
      *(isList ? update.mutable_val()->mutable_leaflist_val()->add_element() : update.mutable_val()) =
          type ? value(type) : anyValue();
    }
  }
  return request;
}

gnmi::Path* RequestMaker::anyPath(gnmi::SetRequest& request) {
  std::size_t const deletes = static_cast<std::size_t>(request.delete__size());
  std::size_t const updates = static_cast<std::size_t>(request.update_size());
  if (deletes + updates == 0) return request.mutable_prefix();
  std::size_t const chosen = choose_(deletes + updates);
  return chosen < deletes ? request.mutable_delete_(static_cast<int>(chosen))
                          : request.mutable_update(static_cast<int>(chosen - deletes))->mutable_path();
}

void RequestMaker::mutate(gnmi::SetRequest& request) {
  gnmi::Path& path = *anyPath(request);
  gnmi::PathElem* const elem =
      path.elem_size() == 0
          ? path.add_elem()
          : path.mutable_elem(static_cast<int>(choose_(static_cast<std::size_t>(path.elem_size()))));
  switch (choose_(9)) {
  case 0: elem->set_name(text()); break;
  case 1: (*elem->mutable_key())[text()] = text(); break;
  case 2: elem->mutable_key()->clear(); break;
  case 3:
    if (elem->key_size() != 0) elem->mutable_key()->begin()->second = text();
    break;
  case 4: path.mutable_elem()->RemoveLast(); break;
  case 5: *path.add_elem() = gnmi::PathElem(*elem); break;
  case 6: *request.add_delete_() = gnmi::Path(path); break;
  case 7:
    for (gnmi::Update& update : *request.mutable_update())
      *update.mutable_val() = anyValue();
    break;
  default:
    if (request.update_size() != 0) *request.add_replace() = gnmi::Update(request.update(0));
    break;
  }
}

} // namespace SetTest
