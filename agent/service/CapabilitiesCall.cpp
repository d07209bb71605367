// Capabilities, answered at once: the published models, the encodings, the version of gNMI as the schema
// itself states it.
#include "agent/paths/RequestParts.h"
#include "agent/service/UnaryCalls.h"

#include <grpcpp/server_context.h>

#include "agent/model/Tree.h"

namespace Agent {

grpc::ServerUnaryReactor* capabilitiesCall(grpc::CallbackServerContext& context,
                                           gnmi::CapabilityRequest const& request,
                                           gnmi::CapabilityResponse& response) {
  grpc::ServerUnaryReactor* const reactor = context.DefaultReactor();
  if (grpc::Status status = checkExtensions(request.extension(), CallKind::Capabilities); !status.ok()) {
    reactor->Finish(status);
    return reactor;
  }
  for (PublishedModel const& model : publishedModels()) {
    gnmi::ModelData& data = *response.add_supported_models();
    data.set_name(model.name.data(), model.name.size());
    data.set_organization(model.organization.data(), model.organization.size());
    data.set_version(model.version.data(), model.version.size());
  }
  for (gnmi::Encoding const encoding : {gnmi::JSON, gnmi::JSON_IETF, gnmi::PROTO})
    response.add_supported_encodings(encoding);
  response.set_gnmi_version(
      gnmi::CapabilityResponse::descriptor()->file()->options().GetExtension(gnmi::gnmi_service));
  reactor->Finish(grpc::Status::OK);
  return reactor;
}

} // namespace Agent
