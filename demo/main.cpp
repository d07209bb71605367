// Shows what is there, on one small object: declared, read by name, named by a path, walked into gNMI
// responses, watched while it changes, and set by a request. `./run --demo` starts it.
#include <fmt/core.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "Kel/ActivityClock.h"
#include "Kel/Declare.h"
#include "Kel/Dir.h"
#include "Kstd/Version.h"
#include "Ondra/ArenaRespMsg.h"
#include "Ondra/BaseRouter.h"
#include "Ondra/KelGnmiSetter.h"
#include "Ondra/KelTypeWalker.h"
#include "Ondra/Path.h"
#include "Tovak/Clock.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace {

class Port final : public Kel::EntityOf<Port> {
public:
  void mtuIs(std::uint32_t bytes) { valueIs(mtu, bytes); }

  Kel::String name;
  std::uint32_t mtu = 1500;
  bool enabled = true;
};

class Ports final : public Kel::EntityOf<Ports> {
public:
  Kel::Ptr<Port> portIs(Kel::String const& name) { return memberIs(ports, name); }
  void portDel(Kel::String const& name) { memberDel(ports, name); }

  Kel::KeyedEntities<Kel::String, Port> ports;
};

void declareTypes() {
  Kel::entityType<Port>("Port")
      .attr("name", &Port::name)
      .ctorArg()
      .keyField()
      .attr("mtu", &Port::mtu, &Port::mtuIs)
      .attr("enabled", &Port::enabled)
      .settable()
      .done();
  Kel::entityType<Ports>("Ports").instantiating("port", &Ports::ports).index("name").done();
}

class PrintingRouter final : public Ondra::BaseRouter {
public:
  bool push(Ondra::SyncId syncId, Ondra::WalkId, std::shared_ptr<Ondra::ArenaRespMsg>& response) override {
    fmt::print("  sync {} {}\n", syncId, response->toString());
    return true;
  }
};

void walk(Ports const& ports, PrintingRouter& router) {
  auto walkInfo = Ondra::WalkInfo::WalkInfoIs(router, {Ondra::SyncId(1), Ondra::WalkId(1)},
                                              Ondra::Path::strToPathIs(ports.fullName().view()), &ports,
                                              Ondra::flagSnapshot | Ondra::flagStream);
  Ondra::FullKelTypeWalker::walkObject(walkInfo);
}

void set(std::uint64_t mtu) {
  gnmi::SetRequest request;
  gnmi::Update& update = *request.add_update();
  Ondra::Path::strToPathIs("port[name=eth1]/mtu")->copyToGnmiPath(update.mutable_path());
  update.mutable_val()->set_uint_val(mtu);
  auto const [response, status] =
      Ondra::KelGnmiSet::Set(Ondra::Path::strToPathIs("/ports"), std::move(request)).execute();
  fmt::print("  {} results, status {}\n", response.response_size(),
             status.ok() ? "OK" : status.error_message());
}

} // namespace

int main() {
  fmt::print("libKelTypeDecoder {}\n\n", Kstd::libraryVersion());
  Kel::activityManagerStatus()->activityLoopExecNsTimeIs(Tovak::SystemClock::instance().wallNs());
  declareTypes();
  Kel::Ptr<Ports> const ports(new Ports());
  Kel::globalDir()->entityIs("ports", ports);
  Kel::Ptr<Port> const port = ports->portIs("eth1");

  fmt::print("An object and its attributes, by name:\n  {}\n", port->fullName().view());
  auto const handle = Kel::handleTo(port);
  for (Kel::KelTypeBase::AttributeQIterator attr(port->fwkType()); attr; ++attr)
    fmt::print("  {} = {}\n", (*attr).name().view(), (*attr).genericIfGet(handle)->strRep());

  PrintingRouter router;
  fmt::print("\nA walk of /ports:\n");
  walk(*ports, router);
  fmt::print("\nA change, and a new port:\n");
  port->mtuIs(9000);
  ports->portIs("eth2");
  fmt::print("\nA Set request of port[name=eth1]/mtu:\n");
  set(1400);
  fmt::print("\nA port that goes:\n");
  ports->portDel("eth2");

  Ondra::GifGnmiNotifiee::clearAllGnmiNotifiees();
  Kel::globalDir()->entityDel("ports");
  return 0;
}
