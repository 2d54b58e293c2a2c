# Read after CMake's rules for macOS when cross-compiling with Zig (see macosCrossToolchain.cmake).
# Zig's linker has no verbose option: CMake's look at the compiler asks the compiler alone.
set(CMAKE_C_VERBOSE_FLAG "-v")
set(CMAKE_CXX_VERBOSE_FLAG "-v")
