#!/usr/bin/env bash
# Builds the benchmarks and runs them: the end-to-end driver (the real host under a fake user
# entry, beside a minimal forwarder and socat), then the micro-benchmarks. Prints Markdown.
# Usage: scripts/bench.sh [--quick]   (--quick: tiny sizes, well under a minute, as CI runs it)
# QUORVEL_BENCH_PRESET chooses the build (default: release).
set -euo pipefail

mode="${1:-}"
if [ -n "$mode" ] && [ "$mode" != --quick ]; then
    echo "Usage: scripts/bench.sh [--quick]" >&2
    exit 2
fi
preset="${QUORVEL_BENCH_PRESET:-release}"
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh

require_prerequisites bench

cmake --preset "$preset" -DQUORVEL_BUILD_BENCH=ON -DQUORVEL_WERROR="${QUORVEL_WERROR:-OFF}" \
    >/dev/null
cmake --build --preset "$preset" --target quorvelHostBench quorvelMicroBench \
    --parallel "$(nproc 2>/dev/null || sysctl -n hw.ncpu)" >/dev/null
bin="build/$preset/bin"

"$bin/quorvelHostBench" $mode
echo
echo "## Micro-benchmarks"
echo
if [ "$mode" = --quick ]; then
    "$bin/quorvelMicroBench" --benchmark_min_time=0.01
else
    # The median of three repetitions, against the noise of a shared machine.
    "$bin/quorvelMicroBench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
fi
