# Builds the macOS program on Linux: clang for the real target, against the stand-in SDK beside this file. The
# C++ library is LLVM's own with the vendor's availability annotations on; the C library's headers are musl's,
# with the differences that matter in sdk/usr/include. `run` makes what GENERATED holds.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22.0)
set(CMAKE_SYSTEM_PROCESSOR arm64)

set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES GENERATED)

set(CMAKE_C_COMPILER /usr/bin/clang-19)
set(CMAKE_CXX_COMPILER /usr/bin/clang++-19)
set(CMAKE_OBJCXX_COMPILER /usr/bin/clang++-19)
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET arm64-apple-macos13.0)
endforeach()
set(CMAKE_AR /usr/bin/llvm-ar-19)
set(CMAKE_RANLIB /usr/bin/llvm-ranlib-19)
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool-19)

# Nothing of this machine's is found by accident.
set(CMAKE_FIND_ROOT_PATH "${CMAKE_CURRENT_LIST_DIR}/sdk")
foreach(kind PACKAGE INCLUDE LIBRARY)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(CMAKE_FIND_PACKAGE_PREFER_CONFIG ON)
# The package manager usual on a Mac installs no .pc file for what it builds with CMake.
set(CMAKE_DISABLE_FIND_PACKAGE_PkgConfig ON)
foreach(package nlohmann_json doctest OpenSSL Boost CURL)
  set(${package}_DIR "${CMAKE_CURRENT_LIST_DIR}/cmake")
endforeach()

set(sdk "${CMAKE_CURRENT_LIST_DIR}/sdk")
string(JOIN " " flags
  "-isysroot ${sdk}"
  "-nostdinc++ -nostdlibinc -D_GNU_SOURCE"
  "-isystem ${GENERATED}/libcxx-config"
  "-isystem /usr/lib/llvm-19/include/c++/v1"
  "-isystem ${sdk}/usr/include"
  "-isystem ${GENERATED}/include"
  "-isystem /usr/include/x86_64-linux-musl"
  "-include cadora-darwin-types.h"
  "-iframework ${sdk}/System/Library/Frameworks"
  "-Wunguarded-availability")
set(CMAKE_C_FLAGS_INIT "-isysroot ${sdk}")
set(CMAKE_CXX_FLAGS_INIT "${flags}")
set(CMAKE_OBJCXX_FLAGS_INIT "${flags}")
set(CMAKE_EXE_LINKER_FLAGS_INIT
  "--ld-path=/usr/bin/ld64.lld-19 -mlinker-version=711 -isysroot ${sdk} -L${GENERATED}/lib -Wl,-dead_strip")
