# Builds the macOS program on Linux: clang for the real target, against the stand-in SDK beside this file. The
# C++ library is LLVM's own with the vendor's availability annotations on, the C library's headers are musl's
# with the differences that matter in sdk/usr/include.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22.0)
set(CMAKE_SYSTEM_PROCESSOR arm64)

set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_OBJCXX_COMPILER clang++-19)
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET arm64-apple-macos13.0)
endforeach()
set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

# No path of this machine but those named here is searched.
set(CMAKE_FIND_ROOT_PATH "${CMAKE_CURRENT_LIST_DIR}/sdk")
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)

set(sdk "${CMAKE_CURRENT_LIST_DIR}/sdk")
set(generated "${CMAKE_BINARY_DIR}")
if(NOT EXISTS "${generated}/generated-sdk")
  # A compiler check runs in a folder of its own, below the one that has these.
  string(REGEX REPLACE "/CMakeFiles/.*" "" generated "${generated}")
endif()
string(JOIN " " flags
  -isysroot "${sdk}"
  -nostdinc++ -nostdlibinc -D_GNU_SOURCE
  -isystem "${generated}/generated-sdk/libcxx-config"
  -isystem /usr/lib/llvm-19/include/c++/v1
  -isystem "${sdk}/usr/include"
  -isystem "${generated}/generated-sdk/include"
  -isystem /usr/include/x86_64-linux-musl
  -include cadora-darwin-types.h
  -iframework "${sdk}/System/Library/Frameworks"
  -fno-rtti-placeholder)
string(REPLACE " -fno-rtti-placeholder" "" flags "${flags}")
string(JOIN " " objectiveFlags
  -Wunguarded-availability -Wnullable-to-nonnull-conversion -Warc-retain-cycles -Wformat-nonliteral
  -Werror=objc-method-access -Werror=protocol -Werror=incompatible-pointer-types -Werror=undeclared-selector)
set(CMAKE_CXX_FLAGS_INIT "${flags} -Wunguarded-availability")
set(CMAKE_OBJCXX_FLAGS_INIT "${flags} ${objectiveFlags}")
set(CMAKE_EXE_LINKER_FLAGS_INIT
  "-fuse-ld=/usr/bin/ld64.lld-19 -isysroot ${sdk} -nostdlib -L${generated}/generated-sdk/lib -L${sdk}/usr/lib -F${sdk}/System/Library/Frameworks -lc++ -lobjc -lSystem")
