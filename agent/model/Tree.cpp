// What each entry gets with its place (fixed containers, copies of its key), the tables of top levels and
// published models, and the data root made of them.
#include "agent/model/Tree.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "Kel/Attr.h"
#include "Kel/Error.h"
#include "Kel/TypeBuilder.h"
#include "agent/model/Declarations.h"

namespace Agent {
namespace {

// Of a container in the entry `Entry`.
template <class Entry, class Container, class M>
void keyCopyIs(Container& container, M Container::*copy, M Entry::*key) {
  if (auto const* const entry = static_cast<Entry const*>(container.parent()))
    container.leafIs(copy, entry->*key);
}

bool isMachineLeftOut = false;
constexpr std::string_view kUnseen = "unseen"; // the directory of what is left out
constexpr std::string_view kInterfaces = "interfaces";
constexpr std::string_view kSystem = "system";
constexpr std::string_view kComponents = "components";

template <class E>
Kel::Ptr<E> machineIn(Kel::Dir& root, std::string_view name) {
  if (!isMachineLeftOut) return Kel::staticPtrCast<E>(topIn(root, name));
  Kel::Ptr<Kel::Dir> const dir = root.dirIs(kUnseen);
  if (Kel::Ptr<Kel::Entity> const there = dir->entity(name)) return Kel::staticPtrCast<E>(there);
  Kel::Ptr<E> const made(new E());
  dir->entityIs(name, made, false);
  return made;
}

std::vector<TopLevel>& declaredTops() {
  declareTypes();
  static auto* const all = isMachineLeftOut
                               ? new std::vector<TopLevel>()
                               : new std::vector<TopLevel>{
                                     {kInterfaces, Kel::typeOf<Interfaces>(), Impl::kInterfacesModule},
                                     {kSystem, Kel::typeOf<System>(), Impl::kSystemModule},
                                     {kComponents, Kel::typeOf<Components>(), Impl::kPlatformModule},
                                 };
  return *all;
}

} // namespace

// --- fixed containers and key copies: made when an entry gets its place in the tree -----------------------

void InterfaceConfig::handleParent() {
  keyCopyIs<Interface>(*this, &InterfaceConfig::name, &Interface::name);
}
void SubinterfaceConfig::handleParent() {
  keyCopyIs<Subinterface>(*this, &SubinterfaceConfig::index, &Subinterface::index);
}
void AddressConfig::handleParent() { keyCopyIs<Ipv4Address>(*this, &AddressConfig::ip, &Ipv4Address::ip); }
void Ipv6AddressConfig::handleParent() {
  keyCopyIs<Ipv6Address>(*this, &Ipv6AddressConfig::ip, &Ipv6Address::ip);
}
void DnsServerConfig::handleParent() {
  keyCopyIs<DnsServer>(*this, &DnsServerConfig::address, &DnsServer::address);
}

void HoldTime::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&HoldTime::config);
  containerIs(&HoldTime::state);
}
void Ethernet::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Ethernet::config);
  containerIs(&Ethernet::state);
}
void Interface::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Interface::config);
  containerIs(&Interface::state)->leafIs(&InterfaceState::name, name);
  containerIs(&Interface::holdTime);
  containerIs(&Interface::subinterfaces);
}
void Subinterface::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Subinterface::config);
  containerIs(&Subinterface::state)->leafIs(&SubinterfaceState::index, index);
  containerIs(&Subinterface::ipv4);
  containerIs(&Subinterface::ipv6);
}
void Ipv4::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Ipv4::config);
  containerIs(&Ipv4::state);
  containerIs(&Ipv4::addresses);
  containerIs(&Ipv4::neighbors);
}
void Ipv6::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Ipv6::config);
  containerIs(&Ipv6::state);
  containerIs(&Ipv6::addresses);
  containerIs(&Ipv6::neighbors);
}
void Ipv4Address::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Ipv4Address::config);
  containerIs(&Ipv4Address::state)->leafIs(&Ipv4AddressState::ip, ip);
}
void Ipv6Address::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Ipv6Address::config);
  containerIs(&Ipv6Address::state)->leafIs(&Ipv6AddressState::ip, ip);
}
void Ipv4Neighbor::handleParent() {
  if (parent() != nullptr) containerIs(&Ipv4Neighbor::state)->leafIs(&Ipv4NeighborState::ip, ip);
}
void Ipv6Neighbor::handleParent() {
  if (parent() != nullptr) containerIs(&Ipv6Neighbor::state)->leafIs(&Ipv6NeighborState::ip, ip);
}

void CpuState::handleParent() {
  if (parent() == nullptr) return;
  for (auto const share :
       {&CpuState::total, &CpuState::user, &CpuState::kernel, &CpuState::nice, &CpuState::idle,
        &CpuState::wait, &CpuState::hardwareInterrupt, &CpuState::softwareInterrupt})
    containerIs(share);
}
void Cpu::handleParent() {
  if (parent() == nullptr) return;
  CpuIndexLeaf const copy =
      index.number < 0 ? CpuIndexLeaf(CpuAll::All) : CpuIndexLeaf(static_cast<std::uint32_t>(index.number));
  containerIs(&Cpu::state)->leafIs(&CpuState::index, copy);
}
void Memory::handleParent() {
  if (parent() != nullptr) containerIs(&Memory::state);
}
void Process::handleParent() {
  if (parent() != nullptr) containerIs(&Process::state)->leafIs(&ProcessState::pid, pid);
}
void MountPoint::handleParent() {
  if (parent() != nullptr) containerIs(&MountPoint::state)->leafIs(&MountPointState::name, name);
}
void DnsServer::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&DnsServer::config);
  containerIs(&DnsServer::state)->leafIs(&DnsServerState::address, address);
}
void Dns::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&Dns::config);
  containerIs(&Dns::state);
  containerIs(&Dns::servers);
}
void GrpcServer::handleParent() {
  if (parent() != nullptr) containerIs(&GrpcServer::state)->leafIs(&GrpcServerState::name, name);
}
void System::handleParent() {
  if (parent() == nullptr) return;
  containerIs(&System::config);
  containerIs(&System::state);
  containerIs(&System::cpus);
  containerIs(&System::memory);
  containerIs(&System::processes);
  containerIs(&System::mountPoints);
  containerIs(&System::dns);
  containerIs(&System::grpcServers);
}
void Component::handleParent() {
  if (parent() != nullptr) containerIs(&Component::state)->leafIs(&ComponentState::name, name);
}

// --- the tree ----------------------------------------------------------------------------------------------

void declareTypes() {
  static bool const once = [] {
    for (std::string_view const module :
         {Impl::kInterfacesModule, Impl::kEthernetModule, Impl::kIpModule, Impl::kSystemModule,
          Impl::kGrpcModule, Impl::kPlatformModule, Impl::kPlatformTypesModule})
      Kel::kelModuleIs(module);
    Impl::declareValues();
    Impl::declareSubinterfaces();
    Impl::declareInterfaces();
    Impl::declareSystem();
    Impl::declareComponents();
    return true;
  }();
  static_cast<void>(once);
}

std::span<TopLevel const> topLevels() { return declaredTops(); }

namespace {

std::vector<PublishedModel>& declaredModels() {
  static constexpr std::string_view kOrganization = "OpenConfig working group";
  if (isMachineLeftOut) {
    static auto* const none = new std::vector<PublishedModel>();
    return *none;
  }
  static auto* const all = new std::vector<PublishedModel>{
      {Impl::kInterfacesModule, kOrganization, "3.8.1"}, {Impl::kEthernetModule, kOrganization, "2.18.0"},
      {Impl::kIpModule, kOrganization, "3.9.0"},         {Impl::kSystemModule, kOrganization, "3.1.0"},
      {Impl::kGrpcModule, kOrganization, "1.1.0"},       {Impl::kPlatformModule, kOrganization, "0.32.0"},
  };
  return *all;
}

} // namespace

void machineIsLeftOut() { isMachineLeftOut = true; }

void topLevelIs(TopLevel const& top) {
  std::vector<TopLevel>& tops = declaredTops();
  if (std::ranges::find(tops, top.name, &TopLevel::name) == tops.end()) tops.push_back(top);
}

void publishedModelIs(PublishedModel const& model) {
  std::vector<PublishedModel>& models = declaredModels();
  if (std::ranges::find(models, model.name, &PublishedModel::name) == models.end()) models.push_back(model);
}

std::span<PublishedModel const> publishedModels() { return declaredModels(); }

// --- the data root -----------------------------------------------------------------------------------------

namespace {

Kel::KelType rootTypeOf(std::vector<TopLevel> const& tops) {
  Kel::TypeBuilder builder("ondra-agent", fmt::format("data root of {}", tops.size()), Kel::TypeKind::Entity);
  for (TopLevel const& top : tops)
    if (top.declare)
      top.declare(builder);
    else
      builder.instantiating(top.name, top.type).removable(false);
  auto const made = builder.done();
  if (!made) Kel::throwError(made.error());
  for (std::size_t i = 0; i < tops.size(); ++i) {
    Impl::NodeRecord record = tops[i].record;
    record.module = tops[i].module;
    Impl::nodeRecordIs(made->attrAt(i), record);
  }
  return *made;
}

} // namespace

Kel::KelType rootType() {
  static Kel::KelType made;
  std::vector<TopLevel> const& tops = declaredTops();
  if (!made || made.attrCount() != tops.size()) made = rootTypeOf(tops);
  return made;
}

Kel::Ptr<Kel::Entity> dataRootIn(Kel::Dir& root) {
  if (Kel::Ptr<Kel::Entity> there = root.entity(kOrigin)) return there;
  Kel::Ptr<Kel::Entity> const made = Kel::staticPtrCast<Kel::Entity>(rootType().desc().makeObject());
  root.entityIs(kOrigin, made);
  return made;
}

Kel::Ptr<Kel::Entity> topIn(Kel::Dir& root, std::string_view name) {
  Kel::Ptr<Kel::Entity> const dataRoot = dataRootIn(root);
  Kel::KelAttr const attr = dataRoot->fwkType().attr(name);
  if (!attr) Kel::throwError(fmt::format("'{}' has been declared after the data root was made", name));
  auto const handle = Kel::handleTo(dataRoot);
  if (Kel::Ptr<Kel::Entity> there = Kel::entityAt(attr.genericIfGet(handle))) return there;
  return Kel::entityAt(attr.genericIfSet(handle, Kel::ArgList()));
}

Tree treeIn(Kel::Dir& root) {
  static_cast<void>(dataRootIn(root));
  return {.interfaces = machineIn<Interfaces>(root, kInterfaces),
          .system = machineIn<System>(root, kSystem),
          .components = machineIn<Components>(root, kComponents)};
}

} // namespace Agent
