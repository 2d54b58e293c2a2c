#!/usr/bin/env bash
# Installs the host from the build tree into a temporary prefix, then registers and unregisters
# it with the manifest script in a temporary home folder.
# Usage: installManifestsTest.sh MANIFEST_SCRIPT BUILD_DIR
set -euo pipefail

script=$1 buildDir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME="$work/home"
mkdir "$HOME"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

listing() {
    (cd "$HOME" && find . | sort)
}

if [ "$(uname)" = Darwin ]; then
    support="Library/Application Support"
    chromeProfiles=("$support/Google/Chrome" "$support/Chromium" "$support/Microsoft Edge"
        "$support/BraveSoftware/Brave-Browser")
    firefoxProfile="$support/Firefox" firefoxHosts="$support/Mozilla/NativeMessagingHosts"
else
    chromeProfiles=(.config/google-chrome .config/chromium .config/microsoft-edge
        .config/BraveSoftware/Brave-Browser)
    firefoxProfile=.mozilla firefoxHosts=.mozilla/native-messaging-hosts
fi
manifest=com.quorvel.nativemessagehost.json
chromeId=abcdefghijklmnopabcdefghijklmnop
otherChromeId=ponmlkjihgfedcbaponmlkjihgfedcba
firefoxId=quorvel@example.com

# The prefix has a space and quotes, which the manifest must escape.
prefix="$work/pre fix \"q\""
cmake --install "$buildDir" --prefix "$prefix" >/dev/null
host="$prefix/bin/QuorvelNativeMessageHost"
[ "$(cd "$prefix" && find . -type f)" = ./bin/QuorvelNativeMessageHost ] ||
    fail "installed something other than the host alone: $(cd "$prefix" && find . -type f)"

# Runs the script, which must refuse its arguments with a message and write nothing.
refused() {
    if "$script" "$@" >/dev/null 2>"$work/error"; then
        fail "accepted: $*"
    fi
    [ -s "$work/error" ] || fail "no message for: $*"
    [ "$(listing)" = "$before" ] || fail "wrote something for: $*"
}

# FILE MEMBER ID...: the manifest registers the installed host for exactly the IDs, as MEMBER.
expect_manifest() {
    jq -e --arg path "$host" --arg member "$2" --args '
        .name == "com.quorvel.nativemessagehost" and .path == $path and .type == "stdio"
        and (.description | type) == "string" and .[$member] == $ARGS.positional
        and (keys | length) == 5' "${@:3}" <"$1" >/dev/null ||
        fail "$1 is not the manifest for ${*:3}: $(cat "$1")"
}

# Google Chrome, Brave and Firefox have a profile folder; Chromium and Microsoft Edge none.
mkdir -p "$HOME/${chromeProfiles[0]}" "$HOME/${chromeProfiles[3]}" "$HOME/$firefoxProfile"
before=$(listing)

refused install --executable bin/QuorvelNativeMessageHost --chrome-extension-id "$chromeId"
refused install --executable "$work/missing" --chrome-extension-id "$chromeId"
refused install --chrome-extension-id "$chromeId"
refused install --executable "$host"
refused install --executable "$host" --chrome-extension-id
refused install --executable "$host" --chrome-extension-id abcdefghijklmnopabcdefghijklmnoq
refused install --executable "$host" --chrome-extension-id "${chromeId}a"
refused install --executable "$host" --chrome-extension-id "$chromeId" --firefox-extension-id quorvel
refused install --executable "$host" --firefox-extension-id "{1234-5678}"
refused install --executable "$host" --chrome-extension-id "$chromeId" --colour blue
refused uninstall --executable QuorvelNativeMessageHost
refused --executable "$host" --chrome-extension-id "$chromeId"

"$script" install --executable "$host" --chrome-extension-id "$chromeId" \
    --chrome-extension-id "$otherChromeId" --firefox-extension-id "$firefoxId" >/dev/null
written=$(cd "$HOME" && find . -name "$manifest" | sort)
expected=$(printf './%s\n' "${chromeProfiles[0]}/NativeMessagingHosts/$manifest" \
    "${chromeProfiles[3]}/NativeMessagingHosts/$manifest" "$firefoxHosts/$manifest" | sort)
[ "$written" = "$expected" ] || fail "manifests written: $written; expected: $expected"
for profile in "${chromeProfiles[0]}" "${chromeProfiles[3]}"; do
    expect_manifest "$HOME/$profile/NativeMessagingHosts/$manifest" allowed_origins \
        "chrome-extension://$chromeId/" "chrome-extension://$otherChromeId/"
done
expect_manifest "$HOME/$firefoxHosts/$manifest" allowed_extensions "$firefoxId"

installed=$(listing)
"$script" uninstall --executable "$work/another/QuorvelNativeMessageHost" >/dev/null
[ "$(listing)" = "$installed" ] || fail "uninstall removed manifests of another executable"
"$script" uninstall --executable "$host" >/dev/null
[ "$(listing)" = "$before" ] || fail "uninstall left or removed: $(diff <(echo "$before") <(listing))"

# With --all every Chromium-family browser gets one; Firefox, with no id, none. Installing
# again over the first install must not make uninstall forget the folders the first one made.
"$script" install --all --executable "$host" --chrome-extension-id "$chromeId" >/dev/null
"$script" install --all --executable "$host" --chrome-extension-id "$otherChromeId" >"$work/out"
grep -q "^Firefox: skipped" "$work/out" || fail "Firefox was not reported as skipped"
for profile in "${chromeProfiles[@]}"; do
    expect_manifest "$HOME/$profile/NativeMessagingHosts/$manifest" allowed_origins \
        "chrome-extension://$otherChromeId/"
done
[ ! -e "$HOME/$firefoxHosts" ] || fail "a Firefox manifest folder was made without a Firefox id"
"$script" uninstall --executable "$host" >/dev/null
[ "$(listing)" = "$before" ] || fail "uninstall left or removed: $(diff <(echo "$before") <(listing))"
echo "All manifest checks passed."
