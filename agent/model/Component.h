// The parts of the machine: /components/component[name]. What the host does not know is left without value.
#pragma once

#include <cstdint>
#include <optional>

#include "agent/model/Node.h"
#include "agent/model/Values.h"

namespace Agent {

// Degrees Celsius with one fraction digit; `avg`, `min` and `max` over the last samples.
class Temperature final : public Node<Temperature> {
public:
  double instant = 0;
  double avg = 0;
  double min = 0;
  double max = 0;
};
class ComponentMemory final : public Node<ComponentMemory> {
public:
  std::uint64_t available = 0; // bytes
  std::uint64_t utilized = 0;
};
class ComponentState final : public Node<ComponentState> {
public:
  Kel::String name;
  std::optional<ComponentType> type;
  std::optional<Kel::String> description;
  std::optional<Kel::String> mfgName;
  std::optional<Kel::String> hardwareVersion;
  std::optional<Kel::String> firmwareVersion;
  std::optional<Kel::String> softwareVersion;
  std::optional<Kel::String> serialNo;
  std::optional<Kel::String> partNo;
  std::optional<Kel::String> modelName;
  std::optional<bool> removable;
  std::optional<bool> empty;
  std::optional<ComponentStatus> operStatus;
  std::optional<Kel::String> parent; // the name of another component
  Kel::Ptr<Temperature> temperature; // of sensors
  Kel::Ptr<ComponentMemory> memory;  // of the chassis
};
class Component final : public Node<Component> {
public:
  void handleParent() override;

  Kel::String name; // the key
  Kel::Ptr<ComponentState> state;
};
class Components final : public Node<Components> {
public:
  Kel::KeyedEntities<Kel::String, Component> component;
};

} // namespace Agent
