#!/usr/bin/env bash
# Builds the release host and registration tool, installs them into a temporary prefix as a
# packager would, and checks both installed executables with Debian's hardening-check (package
# devscripts): PIE, stack protector, fortified libc calls, read-only relocations and immediate
# binding. Fails on any that is missing.
# Linux only: hardening-check reads ELF executables.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh

if [ "$(uname)" != Linux ]; then
    echo "hardening-check reads ELF executables: run this on Linux." >&2
    exit 1
fi
require_prerequisites hardening

cmake --preset release -DQUORVEL_WERROR="${QUORVEL_WERROR:-OFF}" >/dev/null
cmake --build --preset release --target QuorvelNativeMessageHost QuorvelHostRegistration \
    --parallel "$(nproc 2>/dev/null || echo 2)" >/dev/null
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install build/release --prefix "$prefix" >/dev/null

# Not judged: control-flow protection, which needs every object linked to carry the processor's
# control-flow properties, and Debian 12's C start files carry none (no executable built there
# has them).
hardening-check --nocfprotection "$prefix/bin/QuorvelNativeMessageHost" \
    "$prefix/bin/QuorvelHostRegistration"
