// The modules of a run as the agent serves them: loaded, and made into types.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/yang/Modules.h"
#include "agent/yang/Types.h"

namespace Agent {

class YangModel {
public:
  using OrError = Kstd::Result<std::unique_ptr<YangModel>, std::string>;

  // Loads the modules and enters their types. Where `declareTypes` is called, once; lives for the process.
  [[nodiscard]] static OrError load(ModuleOrder const& order);

  [[nodiscard]] Modules const& modules() const noexcept { return *modules_; }
  [[nodiscard]] YangTypes const& types() const noexcept { return types_; }

private:
  YangModel(std::unique_ptr<Modules> modules, YangTypes types)
      : modules_(std::move(modules))
      , types_(std::move(types)) {}

  std::unique_ptr<Modules> modules_;
  YangTypes types_;
};

} // namespace Agent
