// The parts of the machine, from the firmware's tables (/sys/class/dmi), /proc/cpuinfo, /sys/block and
// /sys/class/hwmon.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "agent/collect/Host.h"
#include "agent/collect/Sampler.h"
#include "agent/collect/StatWindow.h"
#include "agent/model/Component.h"

namespace Agent {

// One part a step. Sensors may answer slowly: sample them less often than the rest.
class ComponentSource final : public SampleSource {
public:
  ComponentSource(Host& host, Kel::Ptr<Components> components)
      : host_(host)
      , components_(std::move(components)) {}
  void begin(SampleTime const& now) override;
  bool advance() override;

private:
  struct Sensor {
    std::string chip;  // "hwmon0"
    std::string input; // "temp1"
  };
  ComponentState& partIs(std::string const& name, ComponentType type);
  void machine();
  void processors();
  void disk(std::string const& name);
  void findSensors();
  void sensor(Sensor const& which);
  void removeUnseen();

  Host& host_;
  Kel::Ptr<Components> components_;
  SampleTime now_;
  SampleTime before_; // the round before this one
  std::size_t step_ = 0;
  std::vector<std::string> disks_;
  std::vector<Sensor> sensors_;
  std::set<std::string> processors_; // found once: reading that file takes long on large machines
  std::map<std::string, StatWindow<double>> temperatures_;
  std::set<std::string> seen_;
};

} // namespace Agent
