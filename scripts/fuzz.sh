#!/usr/bin/env bash
# Builds the fuzz targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer (preset
# fuzz) and runs each for half the given time from its seed corpus: the standard-input reader
# (fuzz/corpus/extPort) and the registration tool's verdict on a manifest (fuzz/corpus/manifest).
# Any crash, read or write past a buffer, undefined behaviour or leak beyond the one deliberate
# packet record fails the run; the input that caused it is kept in build/fuzz/artifacts/.
# Usage: scripts/fuzz.sh [seconds]   (default: 60; 2 at least, one for each target)
set -euo pipefail

seconds="${1:-60}"
if ! [[ "$seconds" =~ ^[1-9][0-9]*$ ]] || [ "$seconds" -lt 2 ]; then
    echo "usage: scripts/fuzz.sh [seconds]   (seconds: a whole number from 2, not '$seconds')" >&2
    exit 2
fi
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh

require_prerequisites fuzz

cmake --preset fuzz -DQUORVEL_WERROR="${QUORVEL_WERROR:-OFF}"
cmake --build --preset fuzz --parallel "$(nproc 2>/dev/null || sysctl -n hw.ncpu)"

# New inputs go to scratch folders, so the seed corpora in the repository stay as they are.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p build/fuzz/artifacts "$scratch/extPort" "$scratch/manifest"

# A length of up to 2^31 - 1 asks for eight times as many bytes. Such a request may fail (the
# reader then leaves the payload in the stream) but is no error: libFuzzer's own limit is set
# above the largest possible request, and the sanitizer's allocator fails every request above
# 64 MiB, as a real malloc may, so that fuzzing stays fast. Its warning for each such request is
# left out of the output.
export ASAN_OPTIONS="detect_leaks=1:allocator_may_return_null=1:max_allocation_size_mb=64"
export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizer/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
# TARGET: runs build/fuzz/bin/TARGETFuzzer from fuzz/corpus/TARGET for half the time.
fuzz() {
    echo "== $1: $((seconds / 2)) seconds"
    "build/fuzz/bin/$1Fuzzer" -max_total_time="$((seconds / 2))" -timeout=10 -rss_limit_mb=4096 \
        -malloc_limit_mb=16384 -print_final_stats=1 -artifact_prefix=build/fuzz/artifacts/ \
        "$scratch/$1" "fuzz/corpus/$1" 2>&1 |
        { grep -v '^==[0-9]*==WARNING: AddressSanitizer failed to allocate' || true; }
}
fuzz extPort
fuzz manifest
