#!/usr/bin/env bash
# Plants each fault (a patch to src/ or registration/) in turn into a scratch copy of this
# checkout, working-tree changes included, runs the debug test suite there and says whether the
# suite caught it, with the tests that failed. Not part of CI: a check that trimming the tests
# loses no real fault.
# Usage: tests/faults/run.sh [PATCH...]   (any path; default: every patch in tests/faults)
# QUORVEL_FAULT_CTEST_ARGS replaces --stop-on-failure; set it empty to see every failing test.
set -euo pipefail
patches=()
for patch in "$@"; do
    [ -f "$patch" ] || { echo "No such patch: $patch" >&2; exit 2; }
    patches+=("$(cd "$(dirname "$patch")" && pwd)/$(basename "$patch")")
done
cd "$(dirname "$0")/../.."
[ ${#patches[@]} -gt 0 ] || patches=("$PWD"/tests/faults/*.patch)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
git ls-files -z --cached --others --exclude-standard |
    tar --null --files-from=- --ignore-failed-read -cf - 2>/dev/null | tar -xf - -C "$scratch"
cd "$scratch"
# Every patch must apply before anything is built.
for patch in "${patches[@]}"; do
    git apply --check "$patch" 2>/dev/null || { echo "Does not apply to this checkout: $patch" >&2; exit 2; }
done
cmake --preset debug -DQUORVEL_BUILD_TESTS=ON -DQUORVEL_WERROR=OFF >/dev/null

build() { cmake --build --preset debug --parallel 2 >build.log 2>&1; }
# Most tests wait on the host's timers rather than the processor: six run at a time.
suite() { ctest --preset debug --parallel 6 ${QUORVEL_FAULT_CTEST_ARGS---stop-on-failure} >suite.log 2>&1; }

build && suite || { echo "The unmodified suite fails; no fault judged." >&2; tail -30 suite.log >&2; exit 1; }
caught=0 missed=0
for patch in "${patches[@]}"; do
    name=$(basename "$patch" .patch)
    git apply "$patch"
    if ! build; then
        echo "broken  $name (does not build)"
    elif suite; then
        echo "missed  $name"
        missed=$((missed + 1))
    else
        echo "caught  $name  $(sed -n 's/^[[:space:]]*[0-9]* - \([^ ]*\) .*/\1/p' suite.log | tr '\n' ' ')"
        caught=$((caught + 1))
    fi
    git apply -R "$patch"
done
echo "$caught caught, $missed missed"
