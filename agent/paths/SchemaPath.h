// Agent::SchemaPlace: where a path stands in the types of the model, whether or not anything is there. Any thread.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Type.h"
#include "agent/model/Schema.h"

namespace gnmi {
class Path;
} // namespace gnmi

namespace Agent {

// The data root (when default-made), a container, a list or a leaf. A small value.
class SchemaPlace {
public:
  SchemaPlace() = default;
  SchemaPlace(Kel::KelType type, Kel::KelAttr attr) : type_(type), attr_(attr) {}

  [[nodiscard]] bool isRoot() const { return !type_ && !attr_; }
  // Of a container or list entry: the type whose attributes are its children. Invalid at the root and for a leaf.
  [[nodiscard]] Kel::KelType type() const { return type_; }
  // The attribute of the parent's type. Invalid at the root and for what stands directly below it.
  [[nodiscard]] Kel::KelAttr attr() const { return attr_; }
  [[nodiscard]] bool isLeaf() const { return !type_ && attr_; }
  // Null for what is no leaf, and for a leaf of which nothing has been published.
  [[nodiscard]] LeafInfo const* leaf() const { return isLeaf() ? leafInfo(attr_) : nullptr; }
  // A list, that is: its elements in paths carry keys.
  [[nodiscard]] bool isList() const { return type_ && attr_ && attr_.isKeyed(); }
  // The name of the one key of a list; empty when it is not a plain one.
  [[nodiscard]] std::string_view keyName() const;

  [[nodiscard]] std::optional<SchemaPlace> child(std::string_view name) const;
  // In the order of declaration.
  [[nodiscard]] std::vector<SchemaPlace> children() const;

private:
  [[nodiscard]] static SchemaPlace ofAttr(Kel::KelAttr attr);

  Kel::KelType type_;
  Kel::KelAttr attr_;
};

// The place of a concrete path below the data root, from element `skip` on; nothing where the types have no such path.
[[nodiscard]] std::optional<SchemaPlace> schemaPlace(gnmi::Path const& path, int skip = 0);

} // namespace Agent
