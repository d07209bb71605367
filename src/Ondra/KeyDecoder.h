// AttrTree::KeyDecoder: the key map of a path element becomes a key of a collection, or a filter over its
// members.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Kstd/Export.h"
#include "Kstd/Result.h"
#include "Ondra/AttrTree.h"

namespace Ondra::KelGnmiSet {

// Key texts are what the read side makes of keys. A text is "*" only as a wildcard. In a structured key "__"
// joins the names of nested fields, and a string field's own "__" travels as "\__"; a key that is one scalar
// travels as it is.
class KTD_EXPORT AttrTree::KeyDecoder {
public:
  using KeyMap = google::protobuf::Map<std::string, std::string>; // as in a gNMI path element
  // An error text, one key, or a filter.
  using Decoded = std::variant<std::string, SingleKey, MultipleKeys>;

  [[nodiscard]] static Decoded decodeKey(Kel::KelType keyType, KeyMap const& keys); // of one path element
  // The parts of a key name between "__"s that no backslash precedes. Never none; views into `keyName`.
  [[nodiscard]] static std::vector<std::string_view> splitPath(std::string const& keyName);
  // A key of a scalar type from its text.
  [[nodiscard]] static ValueOrText createScalarKey(Kel::KelType type, std::string const& text);

  // One node of the tree that assembles a structured key: a field, or the key itself at the root.
  class KTD_EXPORT KeyElemNode {
  public:
    explicit KeyElemNode(Kel::KelType type) : type_(type) {} // a node without entries

    // Records one key entry under this node; the text of an error otherwise.
    [[nodiscard]] std::variant<bool, std::string> insertPathSuffix(std::span<std::string_view const> parts,
                                                                   std::string const& value);
    // The key, out of its fields. A field that is not given is refused, unless it can be left without value.
    [[nodiscard]] ValueOrText instantiate() const;

  private:
    [[nodiscard]] KeyElemNode const* child(Kel::KelAttr attr) const;

    Kel::KelType type_;
    std::vector<std::pair<Kel::KelAttr, KeyElemNode>> children_;
    Handle value_;
  };

private:
  static Decoded decodeFilter(Kel::KelType keyType, KeyMap const& keys);
};

} // namespace Ondra::KelGnmiSet
