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
target_link_options(KelTypeDecoder PRIVATE -Wl,-Bsymbolic-functions)
if(NOT (KTD_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES Clang)) # whose sanitizers' runtime is in the program
  target_link_options(KelTypeDecoder PRIVATE -Wl,-z,defs)
endif()

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

# What is installed: the library, the headers of the platform, of the shelf and of the generated messages, a CMake package and
# a pkg-config file.
include(CMakePackageConfigHelpers)
set(package "${CMAKE_INSTALL_LIBDIR}/cmake/KelTypeDecoder")
install(TARGETS KelTypeDecoder EXPORT KelTypeDecoderTargets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(EXPORT KelTypeDecoderTargets NAMESPACE KelTypeDecoder:: DESTINATION "${package}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/platform/" "${KTD_PROTO_OUT}/"
  DESTINATION "${KTD_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.h")
file(GLOB shelf CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/src/Ondra/*.h")
install(FILES ${shelf} DESTINATION "${KTD_INSTALL_INCLUDEDIR}/Ondra")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/proto/github.com" DESTINATION "${CMAKE_INSTALL_DATADIR}/KelTypeDecoder/proto"
  FILES_MATCHING PATTERN "*.proto")

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/KelTypeDecoderConfig.cmake.in" KelTypeDecoderConfig.cmake
  INSTALL_DESTINATION "${package}")
write_basic_package_version_file(KelTypeDecoderConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/KelTypeDecoderConfig.cmake" "${PROJECT_BINARY_DIR}/KelTypeDecoderConfigVersion.cmake"
  DESTINATION "${package}")

set(pcRequires "protobuf grpc++ fmt")
foreach(library IN LISTS KTD_COMMON_LIBRARIES)
  if(library MATCHES "^absl::(.*)")
    string(APPEND pcRequires " absl_${CMAKE_MATCH_1}")
  endif()
endforeach()
file(RELATIVE_PATH pcPrefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" pcPrefix "${pcPrefix}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/KelTypeDecoder.pc.in" KelTypeDecoder.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/KelTypeDecoder.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
