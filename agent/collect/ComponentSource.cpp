// One part of the machine a step: chassis and system, processors, each disk, each sensor; then the parts that
// were not seen again go.
#include "agent/collect/ComponentSource.h"

#include <fmt/format.h>

#include <cmath>

#include "agent/collect/ProcText.h"

namespace Agent {
namespace {

constexpr char const* kChassis = "CHASSIS";

std::optional<Kel::String> asText(std::optional<std::string> const& value) {
  return value ? std::optional<Kel::String>(*value) : std::nullopt;
}

double tenths(double value) { return std::round(value * 10) / 10; }

std::vector<std::string> entriesOf(std::string const& path) {
  std::vector<std::string> names;
  FolderReader folder;
  std::string_view name;
  if (folder.open(path))
    while (folder.next(name))
      names.emplace_back(name);
  return names;
}

} // namespace

void ComponentSource::begin(SampleTime const& now) {
  before_ = std::exchange(now_, now);
  step_ = 0;
  seen_.clear();
  disks_ = entriesOf(host_.sys.path("block"));
  findSensors();
}

bool ComponentSource::advance() {
  std::size_t const step = step_++;
  if (step == 0) return machine(), true;
  if (step == 1) return processors(), true;
  if (std::size_t const at = step - 2; at < disks_.size()) return disk(disks_[at]), true;
  if (std::size_t const at = step - 2 - disks_.size(); at < sensors_.size())
    return sensor(sensors_[at]), true;
  removeUnseen();
  return false;
}

ComponentState& ComponentSource::partIs(std::string const& name, ComponentType type) {
  seen_.insert(name);
  ComponentState& state = *components_->entryIs(&Components::component, Kel::String(name))->state;
  state.leafIs(&ComponentState::type, type);
  state.leafIs(&ComponentState::operStatus, ComponentStatus::Active);
  if (name != kChassis && seen_.contains(kChassis))
    state.leafIs(&ComponentState::parent, Kel::String(kChassis));
  return state;
}

void ComponentSource::machine() {
  auto const dmi = [this](char const* what) {
    return asText(host_.sys.value(fmt::format("class/dmi/id/{}", what)));
  };
  if (host_.sys.exists("class/dmi/id")) {
    ComponentState& chassis = partIs(kChassis, ComponentType::Chassis);
    chassis.leafIs(&ComponentState::mfgName, dmi("sys_vendor"));
    chassis.leafIs(&ComponentState::modelName, dmi("product_name"));
    chassis.leafIs(&ComponentState::hardwareVersion, dmi("product_version"));
    chassis.leafIs(&ComponentState::serialNo, dmi("product_serial"));
    chassis.leafIs(&ComponentState::partNo, dmi("product_sku"));
    auto const text = host_.proc.text("meminfo");
    MemInfo const memory = text ? memInfo(*text) : MemInfo();
    if (memory.total && memory.available && *memory.available <= *memory.total) {
      auto const figures = chassis.containerIs(&ComponentState::memory);
      figures->leafIs(&ComponentMemory::available, *memory.available);
      figures->leafIs(&ComponentMemory::utilized, *memory.total - *memory.available);
    }
    ComponentState& bios = partIs("BIOS", ComponentType::Bios);
    bios.leafIs(&ComponentState::mfgName, dmi("bios_vendor"));
    bios.leafIs(&ComponentState::firmwareVersion, dmi("bios_version"));
  }
  ComponentState& system = partIs("OPERATING_SYSTEM", ComponentType::OperatingSystem);
  system.leafIs(&ComponentState::softwareVersion, asText(host_.proc.value("sys/kernel/osrelease")));
  auto const release = host_.etc.text("os-release");
  system.leafIs(&ComponentState::description,
                asText(release ? assignedValue(*release, "PRETTY_NAME") : std::nullopt));
}

void ComponentSource::processors() {
  if (!processors_.empty()) {
    seen_.insert(processors_.begin(), processors_.end());
    return;
  }
  auto const text = host_.proc.text("cpuinfo");
  if (!text) return;
  std::string_view rest = *text;
  while (!trimmed(rest).empty()) { // a block of lines for each thread of execution
    std::size_t const end = rest.find("\n\n");
    std::string_view const block = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 2);
    std::string const name = fmt::format("CPU{}", colonValue(block, "physical id").value_or("0"));
    if (!processors_.insert(name).second) continue;
    ComponentState& cpu = partIs(name, ComponentType::Cpu);
    cpu.leafIs(&ComponentState::description, asText(colonValue(block, "model name")));
    cpu.leafIs(&ComponentState::mfgName, asText(colonValue(block, "vendor_id")));
  }
}

void ComponentSource::disk(std::string const& name) {
  std::string const folder = fmt::format("block/{}", name);
  if (!host_.sys.exists(folder + "/device")) return; // made by software
  ComponentState& state = partIs(name, ComponentType::Storage);
  state.leafIs(&ComponentState::modelName, asText(host_.sys.value(folder + "/device/model")));
  state.leafIs(&ComponentState::mfgName, asText(host_.sys.value(folder + "/device/vendor")));
  state.leafIs(&ComponentState::serialNo, asText(host_.sys.value(folder + "/device/serial")));
  auto const removable = host_.sys.number(folder + "/removable");
  state.leafIs(&ComponentState::removable, removable ? std::optional(*removable != 0) : std::nullopt);
}

void ComponentSource::findSensors() {
  sensors_.clear();
  for (std::string const& chip : entriesOf(host_.sys.path("class/hwmon"))) {
    for (std::string const& file : entriesOf(host_.sys.path(fmt::format("class/hwmon/{}", chip))))
      if (file.starts_with("temp") && file.ends_with("_input"))
        sensors_.push_back({chip, file.substr(0, file.size() - 6)});
  }
}

void ComponentSource::sensor(Sensor const& which) {
  std::string const folder = fmt::format("class/hwmon/{}", which.chip);
  auto text = host_.sys.value(fmt::format("{}/{}_input", folder, which.input));
  if (!text) return; // a sensor that fails has no value
  bool const below = text->starts_with('-');
  auto const magnitude = numberOf(below ? std::string_view(*text).substr(1) : std::string_view(*text));
  if (!magnitude) return;
  double const celsius = tenths((below ? -1.0 : 1.0) * static_cast<double>(*magnitude) / 1000);
  std::string const name = fmt::format("{}-{}", which.chip, which.input);
  ComponentState& state = partIs(name, ComponentType::Sensor);
  std::string const chip = host_.sys.value(folder + "/name").value_or(which.chip);
  std::string const label =
      host_.sys.value(fmt::format("{}/{}_label", folder, which.input)).value_or(which.input);
  state.leafIs(&ComponentState::description, Kel::String(fmt::format("{} {}", chip, label)));
  StatWindow<double>& window = temperatures_[name];
  window.push(celsius, static_cast<std::uint64_t>(now_.wallNs),
              static_cast<std::uint64_t>(now_.monotonicNs - before_.monotonicNs));
  auto const stats = window.stats();
  auto const temperature = state.containerIs(&ComponentState::temperature);
  temperature->leafIs(&Temperature::instant, celsius);
  temperature->leafIs(&Temperature::avg, tenths(stats.avg));
  temperature->leafIs(&Temperature::min, stats.min);
  temperature->leafIs(&Temperature::max, stats.max);
}

void ComponentSource::removeUnseen() {
  std::vector<Kel::String> gone;
  for (auto const& [name, component] : components_->component)
    if (!seen_.contains(name.str())) gone.push_back(name);
  for (Kel::String const& name : gone) {
    components_->entryDel(&Components::component, name);
    temperatures_.erase(name.str());
  }
}

} // namespace Agent
