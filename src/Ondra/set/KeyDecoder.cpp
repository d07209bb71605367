// Scalar keys are read from their texts; structured ones become a tree of fields, then a value; wildcards
// make a filter.
#include "Ondra/KeyDecoder.h"

#include <algorithm>

#include <boost/algorithm/string/replace.hpp>

#include "Ondra/rules/KeyText.h"
#include "Ondra/set/SetTrace.h"

namespace Ondra::KelGnmiSet {

using Kel::KelAttr;
using Kel::KelType;

namespace {

constexpr std::string_view kWildcard = "*";
constexpr std::string_view kSeparator = "__";

std::string unknownAttr(std::string_view name, KelType type) {
  return fmt::format("Attribute '{}' not found on Type '{}'", name, type.name().view());
}

// The value of one field of a structured key.
AttrTree::ValueOrText createFieldKey(KelType type, std::string const& text) {
  if (isTextType(type) && text.find("\\__") != std::string::npos) {
    return AttrTree::KeyDecoder::createScalarKey(type,
                                                 boost::algorithm::replace_all_copy(text, "\\__", "__"));
  }
  return AttrTree::KeyDecoder::createScalarKey(type, text);
}

// Checks that a chain of field names exists below the key type.
std::string checkNames(KelType type, std::span<std::string_view const> parts) {
  for (std::string_view const part : parts) {
    KelAttr const field = type.attr(part);
    if (!field) return unknownAttr(part, type);
    type = field.memberType();
  }
  return {};
}

} // namespace

std::vector<std::string_view> AttrTree::KeyDecoder::splitPath(std::string const& keyName) {
  std::string_view const name = keyName;
  std::vector<std::string_view> parts;
  std::size_t begin = 0;
  std::size_t at = name.find(kSeparator);
  while (at != std::string_view::npos) {
    if (at > 0 && name[at - 1] == '\\') {
      at = name.find(kSeparator, at + kSeparator.size());
      continue;
    }
    parts.push_back(name.substr(begin, at - begin));
    begin = at + kSeparator.size();
    at = name.find(kSeparator, begin);
  }
  parts.push_back(name.substr(begin));
  return parts;
}

AttrTree::ValueOrText AttrTree::KeyDecoder::createScalarKey(KelType type, std::string const& text) {
  TOVAK_TRACE(setTrace, 7, "", "Creating scalar key of type '{}'", type.name().view());
  return keyOfText(type, text);
}

AttrTree::KeyDecoder::Decoded AttrTree::KeyDecoder::decodeKey(KelType keyType, KeyMap const& keys) {
  TOVAK_TRACE(setTrace, 7, "", "Decoding key to expected type '{}'", keyType.name().view());
  auto const wildcards = static_cast<std::size_t>(
      std::count_if(keys.begin(), keys.end(), [](auto const& entry) { return entry.second == kWildcard; }));
  if (keyType.isEntity() || keyType.isKeyPtrWrapper()) {
    // No text names an entity; all of them are named without one.
    if (wildcards == 0 || wildcards != keys.size())
      return fmt::format("key of reference type '{}' is not supported", keyType.name().view());
    TOVAK_TRACE(setTrace, 7, "", "Found a wildcard");
    return MultipleKeys{};
  }
  if (getTypeKind(keyType) == TypeKind::Scalar) {
    if (keys.size() != 1) {
      return fmt::format("Expecting a single entry in the key map for the key of type '{}'; found {}",
                         keyType.name().view(), keys.size());
    }
    std::string const& text = keys.begin()->second;
    if (text == kWildcard) {
      TOVAK_TRACE(setTrace, 7, "", "Found a wildcard");
      return MultipleKeys{};
    }
    auto key = createScalarKey(keyType, text);
    if (!key) return std::move(key).error();
    return SingleKey{std::move(key).value()};
  }
  if (wildcards != 0) {
    TOVAK_TRACE(setTrace, 7, "", "Found {} wildcards", wildcards);
    return decodeFilter(keyType, keys);
  }
  KeyElemNode root(keyType);
  for (auto const& [name, text] : keys) {
    TOVAK_TRACE(setTrace, 7, "", "Processing key path '{}', and value '{}'", name, text);
    auto inserted = root.insertPathSuffix(splitPath(name), text);
    if (auto* const error = std::get_if<std::string>(&inserted)) return std::move(*error);
  }
  auto key = root.instantiate();
  if (!key) return std::move(key).error();
  return SingleKey{std::move(key).value()};
}

AttrTree::KeyDecoder::Decoded AttrTree::KeyDecoder::decodeFilter(KelType keyType, KeyMap const& keys) {
  MultipleKeys result;
  for (auto const& [name, text] : keys) {
    auto const parts = splitPath(name);
    TOVAK_ASSERT(!parts.empty(), setTrace, "Invalid keyPath {}", name);
    bool const isFilter = text != kWildcard;
    if (isFilter) {
      TOVAK_TRACE(setTrace, 7, "", "Found a filter on '{}' with value '{}'", name, text);
      if (parts.size() > 1) return fmt::format("Filtering nested key '{}' is not supported", name);
    }
    // A misspelt name must not widen the filter to everything, so those of wildcards are checked too.
    if (std::string unknown = checkNames(keyType, parts); !unknown.empty()) return unknown;
    if (!isFilter) continue;
    KelAttr const field = keyType.attr(parts.front());
    if (getTypeKind(field.memberType()) == TypeKind::Composite) {
      return fmt::format("Expecting a scalar at leaf element '{}'; found composite of type '{}'", name,
                         field.memberType().name().view());
    }
    auto value = createFieldKey(field.memberType(), text);
    if (!value) return std::move(value).error();
    result.filter.emplace_back(field, std::move(value).value());
  }
  std::sort(result.filter.begin(), result.filter.end(),
            [](auto const& a, auto const& b) { return a.first.desc().index < b.first.desc().index; });
  return result;
}

std::variant<bool, std::string>
AttrTree::KeyDecoder::KeyElemNode::insertPathSuffix(std::span<std::string_view const> parts,
                                                    std::string const& value) {
  KeyElemNode* node = this;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    KelAttr const field = node->type_.attr(parts[i]);
    if (!field) return unknownAttr(parts[i], node->type_);
    KelType const type = field.memberType();
    KeyElemNode* next = const_cast<KeyElemNode*>(node->child(field));
    if (next == nullptr) {
      TOVAK_TRACE(setTrace, 7, "", "Inserting a new KeyElemNode '{}' under '{}'", parts[i],
                  node->type_.name().view());
      next = &node->children_.emplace_back(field, KeyElemNode(type)).second;
    }
    bool const isLast = i + 1 == parts.size();
    if (isLast && getTypeKind(type) == TypeKind::Composite) {
      return fmt::format("Expecting a scalar at leaf element '{}'; found composite of type '{}'", parts[i],
                         type.name().view());
    }
    node = next;
  }
  TOVAK_TRACE(setTrace, 7, "", "KeyElem of type '{}' gets value '{}'", node->type_.name().view(), value);
  auto decoded = createFieldKey(node->type_, value);
  if (!decoded) return std::move(decoded).error();
  node->value_ = std::move(decoded).value();
  return true;
}

AttrTree::KeyDecoder::KeyElemNode const* AttrTree::KeyDecoder::KeyElemNode::child(KelAttr attr) const {
  for (auto const& [field, node] : children_)
    if (field == attr) return &node;
  return nullptr;
}

AttrTree::ValueOrText AttrTree::KeyDecoder::KeyElemNode::instantiate() const {
  TOVAK_TRACE(setTrace, 7, "", "KeyElem type: '{}'", type_.name().view());
  if (value_) return value_;
  Kel::ArgList args;
  std::vector<std::pair<KelAttr, Handle>> others; // fields that the constructor does not take
  for (KelType::AttributeQIterator at(type_); at; ++at) {
    KelAttr const field = *at;
    Handle value;
    if (KeyElemNode const* const node = child(field)) {
      auto made = node->instantiate();
      if (!made) return made;
      value = std::move(made).value();
    } else if (!field.isOptional()) {
      return Kstd::Err(
          fmt::format("Key field '{}' of type '{}' is missing", field.name().view(), type_.name().view()));
    }
    if (field.isCtorArg())
      args.push_back(std::move(value)); // null where it was left out: no argument moves up
    else if (value)
      others.emplace_back(field, std::move(value));
  }
  return catchModelError([&] {
    Handle key = type_.genericIf(args);
    for (auto const& [field, value] : others)
      field.genericIfSet(key, nullptr, value);
    return key;
  });
}

} // namespace Ondra::KelGnmiSet
