# How everything of this project is compiled.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_SCAN_FOR_MODULES OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g -D_GLIBCXX_ASSERTIONS" CACHE STRING "")

find_program(KTD_CCACHE ccache)
if(KTD_CCACHE)
  # Precompiled headers are cached too, but only when ccache is told to trust them.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
    ${KTD_CCACHE})
  add_compile_options(-fpch-preprocess)
endif()

if(CMAKE_CXX_COMPILER_ID MATCHES "Clang") # for the fuzz harnesses; the project's compiler is gcc
  add_compile_options(-fsized-deallocation -Wno-unknown-warning-option)
endif()

add_library(KtdWarnings INTERFACE)
target_compile_options(KtdWarnings INTERFACE
  -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wunused -Wredundant-decls
  -Wduplicated-cond -Wlogical-op -Wformat=2
  # gcc 12 reports inlined std::string operations on literals (gcc bugs 105329, 105651).
  -Wno-restrict -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread
)
if(KTD_WERROR)
  target_compile_options(KtdWarnings INTERFACE -Werror)
endif()

if(KTD_SANITIZE)
  # Instrumented code defeats the flow analysis behind this one.
  target_compile_options(KtdWarnings INTERFACE -Wno-maybe-uninitialized)
  add_compile_options(-fsanitize=${KTD_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KTD_SANITIZE})
endif()
