// What the requests of several calls have in common beside paths. Pure: any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <google/protobuf/repeated_ptr_field.h>
#include <grpcpp/support/status.h>

#include "Kstd/Result.h"

namespace gnmi {
class ModelData;
} // namespace gnmi
namespace gnmi_ext {
class Extension;
} // namespace gnmi_ext

namespace Agent {

// The modules that a request confines itself to; none: all. UNIMPLEMENTED for a model that is not offered.
[[nodiscard]] Kstd::Result<std::vector<std::string>, grpc::Status>
modulesOf(google::protobuf::RepeatedPtrField<gnmi::ModelData> const& useModels);

// The address of a peer as gRPC names it ("ipv4:192.0.2.1:1234"), without its port; empty for what has none.
[[nodiscard]] std::string addressOf(std::string const& peer);

enum class CallKind : std::uint8_t { Capabilities, Get, Set, Subscribe };

// UNIMPLEMENTED for an extension that changes what the call means and is not offered, since whoever asks for
// it counts on it; INVALID_ARGUMENT for a depth where there is none. Others are passed over.
[[nodiscard]] grpc::Status
checkExtensions(google::protobuf::RepeatedPtrField<gnmi_ext::Extension> const& extensions, CallKind call);
// How many levels below what is asked for are meant; 0: all.
[[nodiscard]] std::uint32_t
depthOf(google::protobuf::RepeatedPtrField<gnmi_ext::Extension> const& extensions);

} // namespace Agent
