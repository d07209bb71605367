// Values are joined by commas; a backslash stands before commas and backslashes of their own.
#include "agent/paths/EntryKey.h"

#include <algorithm>
#include <utility>

#include "Kel/Attr.h"
#include "Ondra/KeyDecoder.h"

namespace Agent {

using Handle = Kel::Ptr<Kel::GenericIf const>;
using Decoder = Ondra::KelGnmiSet::AttrTree::KeyDecoder;

namespace {

// Its members hold their key, which is one value.
bool hasIndex(Kel::KelAttr list) { return !list.desc().indexName.empty(); }

bool isWholeNumber(LeafType type) {
  return (type >= LeafType::Uint8 && type <= LeafType::Uint64) ||
         (type >= LeafType::Int8 && type <= LeafType::Int64);
}

// A whole number may be given with zeros in front; what is none stays what it is.
std::string plainNumber(std::string_view text) {
  bool const isNegative = text.starts_with('-');
  std::string_view digits = text.substr(isNegative ? 1 : 0);
  if (digits.empty() || digits.find_first_not_of("0123456789") != digits.npos) return std::string(text);
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size() - 1));
  return (isNegative && digits != "0" ? "-" : "") + std::string(digits);
}

} // namespace

std::string joinedKey(std::span<std::string const> values) {
  if (values.size() == 1) return values.front();
  std::string key;
  for (std::string const& value : values) {
    if (&value != values.data()) key += ',';
    for (char const c : value) {
      if (c == ',' || c == '\\') key += '\\';
      key += c;
    }
  }
  return key;
}

std::vector<std::string> keyValues(std::string_view key, std::size_t count) {
  if (count == 1) return {std::string(key)};
  std::vector<std::string> values(1);
  for (std::size_t i = 0; i < key.size(); ++i) {
    if (key[i] == ',') {
      values.emplace_back();
    } else {
      if (key[i] == '\\' && i + 1 < key.size()) ++i;
      values.back() += key[i];
    }
  }
  values.resize(count);
  return values;
}

std::string keyValue(std::string_view key, std::size_t count, std::size_t at) {
  return count == 1 ? std::string(key) : keyValues(key, count)[at];
}

std::vector<std::string> keyTexts(Kel::KelAttr list, Kel::GenericIf const& key) {
  if (hasIndex(list)) return {key.gnmiStrRep()};
  std::vector<std::string> values;
  Handle const held(&key);
  for (Kel::KelTypeBase::AttributeQIterator field(key.type()); field; ++field)
    values.push_back((*field).genericIfGet(held)->gnmiStrRep());
  return values;
}

std::string keyText(Kel::KelAttr list, Kel::GenericIf const& key) {
  return hasIndex(list) ? key.gnmiStrRep() : joinedKey(keyTexts(list, key));
}

Handle keyHandle(Kel::KelAttr list, std::span<std::string const> values) {
  Kel::KelType const type = list.keyType();
  if (hasIndex(list)) {
    auto key = Decoder::createScalarKey(type, values.front());
    return key ? Handle(std::move(*key)) : nullptr;
  }
  Kel::Ptr<Kel::GenericIf> const key = type.genericIf(nullptr);
  for (std::size_t i = 0; i < values.size(); ++i) {
    Kel::KelAttr const field = type.attrAt(i);
    auto value = Decoder::createScalarKey(field.memberType(), values[i]);
    if (!value) return nullptr;
    field.genericIfSet(key, nullptr, *value);
  }
  return key;
}

bool isKeyText(Kel::KelType type, std::string const& text) {
  bool const isText = type.isBuiltin() && type.builtinKind() == Kel::BuiltinKind::String;
  return isText || Decoder::createScalarKey(type, text).ok();
}

Kstd::Result<std::string, std::string> canonicalKeyText(Kel::KelType type, LeafInfo const* leaf,
                                                        std::string const& text) {
  std::string wanted = leaf != nullptr && isWholeNumber(leaf->type) ? plainNumber(text) : text;
  if (leaf != nullptr && leaf->type == LeafType::Identity)
    wanted = std::string(enumeratorOf(*leaf, text).value_or(text));
  if (leaf != nullptr && leaf->rules != nullptr) {
    auto ruled = leaf->rules->canonical(wanted);
    if (!ruled) return ruled;
    wanted = std::move(*ruled);
  }
  auto const read = Decoder::createScalarKey(type, wanted);
  if (!read.ok()) return Kstd::Err(read.error());
  return Kstd::Result<std::string, std::string>((*read)->gnmiStrRep());
}

} // namespace Agent
