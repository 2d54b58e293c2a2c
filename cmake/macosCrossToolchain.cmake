# Cross-compiles for macOS 11 and later from Linux with the Zig toolchain, which carries macOS's
# libc headers and libc++, so no Apple SDK is needed. scripts/build-macos.sh installs it.
# QUORVEL_MACOS_ARCH: arm64 (the target) or x86_64 (the other slice of a universal host).

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR "${QUORVEL_MACOS_ARCH}")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QUORVEL_MACOS_ARCH QUORVEL_ZIG)

if(NOT QUORVEL_ZIG)
    set(QUORVEL_ZIG "$ENV{HOME}/.cache/quorvel/bin/zig")
    if(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
        set(QUORVEL_ZIG "$ENV{XDG_CACHE_HOME}/quorvel/bin/zig")
    endif()
endif()
if(NOT EXISTS "${QUORVEL_ZIG}")
    message(FATAL_ERROR "No Zig toolchain at ${QUORVEL_ZIG}: scripts/build-macos.sh installs it")
endif()

if(QUORVEL_MACOS_ARCH STREQUAL "arm64")
    set(zigTarget aarch64-macos.11.0)
elseif(QUORVEL_MACOS_ARCH STREQUAL "x86_64")
    set(zigTarget x86_64-macos.11.0)
else()
    message(FATAL_ERROR "QUORVEL_MACOS_ARCH must be arm64 or x86_64")
endif()

# GoogleTest's project enables C as well as C++.
set(CMAKE_C_COMPILER "${QUORVEL_ZIG}" cc -target ${zigTarget})
set(CMAKE_CXX_COMPILER "${QUORVEL_ZIG}" c++ -target ${zigTarget})
set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/macosCrossRules.cmake")
set(CMAKE_CXX_ARCHIVE_CREATE "\"${QUORVEL_ZIG}\" ar qc <TARGET> <OBJECTS>")
set(CMAKE_CXX_ARCHIVE_APPEND "\"${QUORVEL_ZIG}\" ar q <TARGET> <OBJECTS>")
set(CMAKE_CXX_ARCHIVE_FINISH "\"${QUORVEL_ZIG}\" ranlib <TARGET>")

if(QUORVEL_MACOS_ARCH STREQUAL "x86_64")
    # zig c++ signs arm64 executables only; its own linker front end signs any executable that
    # it is given entitlements for. The entitlements are empty: an ad-hoc signature is the goal.
    set(CMAKE_CXX_LINK_EXECUTABLE
        "\"${QUORVEL_ZIG}\" build-exe -target ${zigTarget} --entitlements \"${CMAKE_CURRENT_LIST_DIR}/noEntitlements.plist\" <OBJECTS> <LINK_LIBRARIES> -lc++ -femit-bin=<TARGET>")
endif()

# Zig 0.11's linker crashes when it links a dynamic library (the tests' fake user library) in an
# optimised mode; the library's code is compiled optimised all the same.
set(CMAKE_SHARED_LINKER_FLAGS_INIT -O0)

# CMake wants an install_name_tool for macOS; LLVM's will do.
file(GLOB llvmBinaries /usr/lib/llvm-*/bin)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool install_name_tool
    HINTS ${llvmBinaries} REQUIRED)

# Libraries and packages of this machine are for Linux: none of them may be found for the target.
# An empty root path would search this machine's folders: this one holds nothing.
set(CMAKE_FIND_ROOT_PATH "${CMAKE_BINARY_DIR}/no-target-libraries")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
