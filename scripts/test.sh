#!/usr/bin/env bash
# Builds the host and its whole test suite with a CMake preset and runs the tests.
# Usage: scripts/test.sh [debug|release|asan|tsan]   (default: debug)
# Set QUORVEL_WERROR=ON to treat compiler warnings as errors.
set -euo pipefail

preset="${1:-debug}"
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh

require_prerequisites tests

cmake --preset "$preset" -DQUORVEL_BUILD_TESTS=ON -DQUORVEL_WERROR="${QUORVEL_WERROR:-OFF}"
cmake --build --preset "$preset" --parallel "$(nproc 2>/dev/null || sysctl -n hw.ncpu)"
ctest --preset "$preset" --parallel "$(nproc 2>/dev/null || sysctl -n hw.ncpu)"
