#!/usr/bin/env bash
# Builds the release host and the sample agent, then passes a few JSON messages through the
# host to the agent, as a browser would, and shows what arrived and what the host logged.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/prerequisites.sh
require_prerequisites

cmake --preset release -DQUORVEL_BUILD_TESTS=OFF -DQUORVEL_WERROR="${QUORVEL_WERROR:-OFF}" >/dev/null
cmake --build --preset release --target QuorvelNativeMessageHost quorvelSampleAgent \
    --parallel "$(nproc 2>/dev/null || sysctl -n hw.ncpu)" >/dev/null
host="$PWD/build/release/bin/QuorvelNativeMessageHost"
agent="$PWD/build/release/bin/quorvelSampleAgent"

messages=(
    '{"type":"hello","from":"extension"}'
    '{"type":"page","url":"https://example.com/","title":"Example"}'
    '{"type":"bye"}'
)

# A browser frames each message with its length as 4 bytes, least significant first.
frame() {
    local length=${#1} octal byte
    octal=""
    for byte in $((length & 255)) $((length >> 8 & 255)) $((length >> 16 & 255)) $((length >> 24)); do
        octal+=$(printf '\\%03o' "$byte")
    done
    printf "$octal%s" "$1"
}

work=$(mktemp -d)
cleanup() {
    [ -n "${agentPid:-}" ] && kill "$agentPid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

echo "== $("$host" --version | sed 's/^/QuorvelNativeMessageHost /')"

"$agent" --frames "${#messages[@]}" >"$work/agent.out" 2>&1 &
agentPid=$!
for _ in $(seq 100); do
    grep -q -e 'listening on' -e 'already listens' "$work/agent.out" && break
    kill -0 "$agentPid" 2>/dev/null || break
    sleep 0.1
done
if grep -q 'already listens' "$work/agent.out"; then
    cat "$work/agent.out"
    echo "An agent is already running for this user; the demo stops without touching it."
    exit 2
fi
grep 'listening on' "$work/agent.out"

# The host logs under the home folder of the user database, as tilde expansion finds it.
home=$(eval echo "~$(id -un)")
logFolder="$home/Library/Application Support/velmarch-agent/logs/messagehost"
logFile="$logFolder/messagehost_$(date +%Y_%m_%d).log"
logStart=$(($([ -f "$logFile" ] && wc -c <"$logFile" || echo 0) + 1))

echo "== Passing ${#messages[@]} messages through the host"
mkdir "$work/cwd"  # the host's working directory, where an update marker would go
{
    for message in "${messages[@]}"; do
        echo "   -> $message" >&2
        frame "$message"
    done
    # Standard input stays open until the agent has everything, as a browser keeps it open.
    for _ in $(seq 100); do
        kill -0 "$agentPid" 2>/dev/null || break
        sleep 0.1
    done
} | (cd "$work/cwd" && "$host")
echo "   host exited with status $?"
wait "$agentPid" || true
agentPid=""

echo "== What the agent received"
grep -v 'listening on' "$work/agent.out" | sed 's/^/   /'
echo "== What the host logged (in $logFolder)"
tail -c +"$logStart" "$logFile" | sed 's/^/   /'
