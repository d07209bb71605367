// Modules first, types out of them.
#include "agent/yang/YangModel.h"

#include <utility>

namespace Agent {

YangModel::OrError YangModel::load(ModuleOrder const& order) {
  auto modules = Modules::load(order);
  if (!modules) return Kstd::Err(std::move(modules).error());
  auto types = yangTypesOf(**modules);
  if (!types) return Kstd::Err(std::move(types).error());
  return std::unique_ptr<YangModel>(new YangModel(std::move(*modules), std::move(*types)));
}

} // namespace Agent
