# libKelTypeDecoder.so: every folder's objects and the generated messages in one library.
get_property(layers GLOBAL PROPERTY KTD_OBJECT_LAYERS)
add_library(KelTypeDecoder SHARED)
foreach(layer IN LISTS layers ITEMS GnmiProto)
  target_sources(KelTypeDecoder PRIVATE $<TARGET_OBJECTS:${layer}>)
endforeach()
add_library(KelTypeDecoder::KelTypeDecoder ALIAS KelTypeDecoder)
set_target_properties(KelTypeDecoder PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINKER_LANGUAGE CXX)

# Calls inside the library are direct. Only functions: data must stay interposable, because a program may hold copy
# relocations of default instances and type information.
target_link_options(KelTypeDecoder PRIVATE -Wl,-Bsymbolic-functions -Wl,-z,defs)

set(KTD_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/KelTypeDecoder")
target_include_directories(KelTypeDecoder PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform>
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
  $<INSTALL_INTERFACE:${KTD_INSTALL_INCLUDEDIR}>)
target_include_directories(KelTypeDecoder SYSTEM PUBLIC $<BUILD_INTERFACE:${KTD_PROTO_OUT}>)
target_compile_features(KelTypeDecoder PUBLIC cxx_std_20)
target_link_libraries(KelTypeDecoder PUBLIC protobuf::libprotobuf gRPC::grpc++ ${KTD_COMMON_LIBRARIES})
# The order of building only: whoever links the library includes generated headers.
add_dependencies(KelTypeDecoder GnmiProto)
