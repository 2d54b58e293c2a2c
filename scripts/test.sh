#!/usr/bin/env bash
# Builds the host and its whole test suite with a CMake preset and runs the tests. Only a browser
# test may skip (when its browser is not installed), and, when not run as root, a test that needs
# root to listen as another user (its name ends in AsRoot); any other skipped test fails the run.
# Usage: scripts/test.sh [debug|release|asan|tsan]   (default: debug)
# Set QUORVEL_WERROR=ON to treat compiler warnings as errors.
set -euo pipefail

preset="${1:-debug}"
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh

require_prerequisites tests
# The browsers and strace for the browser tests, where they can be installed; elsewhere the
# browser tests skip and say what is missing.
if can_install_packages; then
    require_prerequisites browsers
fi

jobs=$(nproc 2>/dev/null || sysctl -n hw.ncpu)
cmake --preset "$preset" -DQUORVEL_BUILD_TESTS=ON -DQUORVEL_WERROR="${QUORVEL_WERROR:-OFF}"
cmake --build --preset "$preset" --parallel "$jobs"
ctest --preset "$preset" --parallel "$jobs" | tee "build/$preset/ctest.log"
may_skip=' - browser_'
[ "$(id -u)" = 0 ] || may_skip+='|AsRoot \(Skipped\)$'
if grep -E '^[[:space:]]*[0-9]+ - .* \(Skipped\)$' "build/$preset/ctest.log" |
    grep -Ev "$may_skip"; then
    echo "FAILED: the tests above were skipped; only a browser test, or as a user other than" \
        "root a test that needs root, may skip." >&2
    exit 1
fi
