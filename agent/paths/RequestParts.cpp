// Which models and extensions may be named, with the refusals, and the address in what gRPC says of a peer.
#include "agent/paths/RequestParts.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/model/Tree.h"
#include "agent/paths/RequestPath.h"
#include "github.com/openconfig/gnmi/proto/gnmi/gnmi.pb.h"

namespace Agent {
namespace {

grpc::Status notOffered(std::string const& what) { return {grpc::StatusCode::UNIMPLEMENTED, what}; }

bool isOffered(gnmi::ModelData const& wanted) {
  return std::ranges::any_of(publishedModels(), [&wanted](PublishedModel const& model) {
    return model.name == wanted.name() &&
           (wanted.organization().empty() || model.organization == wanted.organization()) &&
           (wanted.version().empty() || model.version == wanted.version());
  });
}

} // namespace

Kstd::Result<std::vector<std::string>, grpc::Status>
modulesOf(google::protobuf::RepeatedPtrField<gnmi::ModelData> const& useModels) {
  std::vector<std::string> modules;
  for (gnmi::ModelData const& model : useModels) {
    if (!isOffered(model)) {
      return Kstd::Err(notOffered(fmt::format("model '{}' {} is not supported", statusText(model.name()),
                                              statusText(model.version()))));
    }
    modules.push_back(model.name());
  }
  return modules;
}

grpc::Status checkExtensions(google::protobuf::RepeatedPtrField<gnmi_ext::Extension> const& extensions,
                             CallKind call) {
  bool const hasDepth = call == CallKind::Get || call == CallKind::Subscribe;
  for (gnmi_ext::Extension const& each : extensions) {
    if (each.has_history() || each.has_config_subscription())
      return notOffered("this agent does not offer the extension that is asked for");
    if (each.has_depth() && !hasDepth)
      return {grpc::StatusCode::INVALID_ARGUMENT, "a depth is for Get and Subscribe"};
  }
  return grpc::Status::OK;
}

std::uint32_t depthOf(google::protobuf::RepeatedPtrField<gnmi_ext::Extension> const& extensions) {
  auto const found = std::ranges::find_if(extensions, &gnmi_ext::Extension::has_depth);
  return found == extensions.end() ? 0 : found->depth().level();
}

std::string addressOf(std::string const& peer) {
  return peer.starts_with("ipv") ? peer.substr(0, peer.rfind(':')) : std::string();
}

} // namespace Agent
