# The packages this project builds on, all as Debian 12 ships them (scripts/packages.txt).
find_package(Threads REQUIRED)
find_package(Protobuf 3.21 REQUIRED)
find_package(gRPC 1.51 CONFIG REQUIRED)
find_package(absl CONFIG REQUIRED)
find_package(fmt 9.1 CONFIG REQUIRED)
# The packaged library is GCC's work, and clang spells the name of one of its templates otherwise.
set(ktdFmt fmt::fmt)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(ktdFmt fmt::fmt-header-only)
endif()
find_package(Boost 1.74 REQUIRED)
find_package(nlohmann_json 3.11 CONFIG REQUIRED)

# What any folder may use; protobuf and gRPC are for src/Ondra and agent alone (scripts/check-layers).
set(KTD_COMMON_LIBRARIES
  ${ktdFmt} Boost::headers Threads::Threads
  absl::flat_hash_map absl::flat_hash_set absl::node_hash_map absl::btree absl::inlined_vector absl::hash
  absl::strings absl::span)
