// The types below /components: which leaf of the published model each member is. All of it is state.
#include "agent/model/Component.h"
#include "agent/model/Declarations.h"
#include "agent/model/Shape.h"

namespace Agent::Impl {

// One line a node.
// clang-format off
void declareComponents() {
  sampledShape<Temperature>("Temperature", kPlatformModule)
      .leaf("instant", &Temperature::instant)
      .leaf("avg", &Temperature::avg)
      .leaf("min", &Temperature::min)
      .leaf("max", &Temperature::max)
      .done();
  sampledShape<ComponentMemory>("ComponentMemory", kPlatformModule)
      .leaf("available", &ComponentMemory::available)
      .leaf("utilized", &ComponentMemory::utilized)
      .done();
  eventShape<ComponentState>("ComponentState", kPlatformModule)
      .keyCopy("name", &ComponentState::name)
      .leaf("type", &ComponentState::type).identity(kPlatformTypesModule).isUnion()
      .leaf("description", &ComponentState::description)
      .leaf("mfg-name", &ComponentState::mfgName)
      .leaf("hardware-version", &ComponentState::hardwareVersion)
      .leaf("firmware-version", &ComponentState::firmwareVersion)
      .leaf("software-version", &ComponentState::softwareVersion)
      .leaf("serial-no", &ComponentState::serialNo)
      .leaf("part-no", &ComponentState::partNo)
      .leaf("model-name", &ComponentState::modelName)
      .leaf("removable", &ComponentState::removable)
      .leaf("empty", &ComponentState::empty)
      .leaf("oper-status", &ComponentState::operStatus).identity(kPlatformTypesModule)
      .leaf("parent", &ComponentState::parent)
      .presence("temperature", &ComponentState::temperature)
      .presence("memory", &ComponentState::memory)
      .done();
  eventShape<Component>("Component", kPlatformModule)
      .key("name", &Component::name)
      .container("state", &Component::state)
      .done();
  eventShape<Components>("Components", kPlatformModule)
      .list("component", &Components::component, "name")
      .done();
}
// clang-format on

} // namespace Agent::Impl
