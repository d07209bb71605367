// Modules first, types out of them, and an entity for each container at the top.
#include "agent/yang/YangModel.h"

#include <utility>

#include <libyang/libyang.h>

#include "Kel/Dir.h"
#include "agent/model/Tree.h"

namespace Agent {

YangModel::OrError YangModel::load(ModuleOrder const& order) {
  auto modules = Modules::load(order);
  if (!modules) return Kstd::Err(std::move(modules).error());
  auto types = yangTypesOf(**modules);
  if (!types) return Kstd::Err(std::move(types).error());
  return std::unique_ptr<YangModel>(new YangModel(std::move(*modules), std::move(*types)));
}

void YangModel::containersIn(Kel::Dir& root) const {
  Kel::Ptr<Kel::Dir> const dir = root.dirIs(kOrigin);
  for (auto const& [node, type] : types_.tops)
    dir->entityIs(node->name, Kel::staticPtrCast<Kel::Entity>(type.desc().makeObject()), false);
}

} // namespace Agent
