#include "agent/paths/SchemaPath.h"

#include "agent/model/Tree.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {

SchemaPlace SchemaPlace::ofAttr(Kel::KelAttr attr) {
  return {attr.isInstantiating() ? attr.memberType() : Kel::KelType(), attr};
}

std::string_view SchemaPlace::keyName() const {
  if (!isList()) return {};
  Kel::KelAttr const index = attr_.indexAttr();
  return index ? index.name().view() : std::string_view();
}

std::optional<SchemaPlace> SchemaPlace::child(std::string_view name) const {
  if (isRoot()) {
    for (TopLevel const& top : topLevels()) {
      if (top.name == name) return SchemaPlace(top.type, Kel::KelAttr());
    }
    return std::nullopt;
  }
  Kel::KelAttr const attr = type_ ? type_.attr(name) : Kel::KelAttr();
  if (!attr || attr.isOperation()) return std::nullopt;
  return ofAttr(attr);
}

std::vector<SchemaPlace> SchemaPlace::children() const {
  std::vector<SchemaPlace> all;
  if (isRoot()) {
    for (TopLevel const& top : topLevels())
      all.emplace_back(top.type, Kel::KelAttr());
  } else if (type_) {
    for (Kel::KelTypeBase::AttributeQIterator it(type_); it; ++it) {
      if (!(*it).isOperation()) all.push_back(ofAttr(*it));
    }
  }
  return all;
}

std::optional<SchemaPlace> schemaPlace(gnmi::Path const& path, int skip) {
  std::optional<SchemaPlace> place = SchemaPlace();
  for (int i = skip; i < path.elem_size() && place; ++i)
    place = place->child(path.elem(i).name());
  return place;
}

} // namespace Agent
