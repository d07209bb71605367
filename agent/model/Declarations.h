// The declarations of the model's types, in the order in which they are made. Called by `declareTypes` alone.
#pragma once

#include <string_view>

namespace Agent::Impl {

inline constexpr std::string_view kInterfacesModule = "openconfig-interfaces";
inline constexpr std::string_view kEthernetModule = "openconfig-if-ethernet";
inline constexpr std::string_view kIpModule = "openconfig-if-ip";
inline constexpr std::string_view kSystemModule = "openconfig-system";
inline constexpr std::string_view kFilesystemTypesModule = "openconfig-fs-types";
inline constexpr std::string_view kGrpcModule = "openconfig-system-grpc";
inline constexpr std::string_view kPlatformModule = "openconfig-platform";
inline constexpr std::string_view kPlatformTypesModule = "openconfig-platform-types";

void declareValues();
void declareSubinterfaces();
void declareInterfaces();
void declareSystem();
void declareComponents();

} // namespace Agent::Impl
