#!/usr/bin/env bash
# Installs the host from the build tree into a temporary prefix, then registers, inspects and
# unregisters it with the manifest script in a temporary home folder and a temporary root.
# Usage: installManifestsTest.sh MANIFEST_SCRIPT BUILD_DIR
set -euo pipefail

script=$1 buildDir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Linux's folders on every platform; one check below reads the macOS table.
export HOME="$work/home" MANIFEST_ROOT="$work/root" MANIFEST_PLATFORM=Linux
mkdir "$HOME" "$MANIFEST_ROOT"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

listing() {
    (cd "$work" && find home root | sort)
}

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
ids=(--chrome-extension-id "$chromeId" --firefox-extension-id "$firefoxId")

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

# FOLDER...: exactly these manifests exist under the work folder, each for the host and the ids.
expect_manifests() {
    local written expected file
    written=$(cd "$work" && find home root -name "$manifest" | sort)
    expected=$(printf "%s/$manifest\n" "$@" | sort)
    [ "$written" = "$expected" ] || fail "manifests written: $written; expected: $expected"
    for file in "$@"; do
        case "$file" in
            *mozilla* | *librewolf*) expect_manifest "$work/$file/$manifest" allowed_extensions "$firefoxId" ;;
            *) expect_manifest "$work/$file/$manifest" allowed_origins "${chromeOrigins[@]}" ;;
        esac
    done
}

# JQ-FILTER: status exits with 0 and its JSON satisfies the filter.
expect_sound_status() {
    "$script" status >/dev/null || fail "status found a broken manifest: $("$script" status)"
    "$script" status --json | jq -e "$1" >/dev/null || fail "status --json: not $1"
}

uninstall_leaves_nothing() {
    "$script" uninstall --executable "$host" "$@" >/dev/null
    [ "$(listing)" = "$before" ] || fail "uninstall $* left: $(diff <(echo "$before") <(listing))"
}

# Google Chrome and Brave have a profile folder, Firefox only its snap (which reads the usual
# folder), Chromium only its Flatpak (which cannot start the host); the others none.
mkdir -p "$HOME/.config/google-chrome" "$HOME/.config/BraveSoftware/Brave-Browser" \
    "$HOME/snap/firefox" "$HOME/.var/app/org.chromium.Chromium"
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
refused install --executable "$host" "${ids[@]}" --system --all
refused install --executable "$host" "${ids[@]}" --folder custom --family chrome
refused install --executable "$host" "${ids[@]}" --folder "$work/custom" --family safari
refused install --executable "$host" --firefox-extension-id "$firefoxId" --folder "$work/c" --family chrome
refused uninstall --executable QuorvelNativeMessageHost
refused uninstall --executable "$host" --json
refused status --executable "$host"
refused --executable "$host" --chrome-extension-id "$chromeId"
if [ "$(id -u)" -ne 0 ]; then
    MANIFEST_ROOT="" refused install --system --executable "$host" "${ids[@]}"
fi

"$script" install --executable "$host" "${ids[@]}" --chrome-extension-id "$otherChromeId" >"$work/out"
grep -q "^Chromium: skipped, only its Flatpak build" "$work/out" || fail "no word of Chromium's Flatpak"
chromeOrigins=("chrome-extension://$chromeId/" "chrome-extension://$otherChromeId/")
expect_manifests home/.config/{google-chrome,BraveSoftware/Brave-Browser}/NativeMessagingHosts \
    home/.mozilla/native-messaging-hosts
chromeOrigins=("chrome-extension://$chromeId/")
expect_sound_status '.sound and ([.browsers[].manifests[] | select(.found)] | length == 3)
    and (.browsers[] | select(.name == "Chromium") | .profile == "sandboxed")'

# A hand-edited manifest with a malformed id, and one whose executable is gone, are broken.
librewolfHosts="$HOME/.librewolf/native-messaging-hosts"
mkdir -p "$librewolfHosts"
printf '{ "allowed_extensions" : [ "%s",\n "not an id" ], "type":"stdio",\n"name":\n "%s", "path" : "%s" }' \
    "$firefoxId" com.quorvel.nativemessagehost "${host//\"/\\\"}" >"$librewolfHosts/$manifest"
mkdir "$work/gone"
cp "$host" "$work/gone/host"
"$script" install --executable "$work/gone/host" --chrome-extension-id "$chromeId" \
    --folder "$work/custom/hosts" --family chrome >/dev/null
jq -e --arg path "$work/gone/host" '.path == $path' "$work/custom/hosts/$manifest" >/dev/null ||
    fail "--folder wrote no manifest"
"$script" status --folder "$work/custom/hosts" --family chrome >/dev/null || fail "--folder manifest not sound"
rm -r "$work/gone"
if "$script" status --folder "$work/custom/hosts" --family chrome >"$work/out"; then
    fail "a manifest of a missing executable passed: $(cat "$work/out")"
fi
grep -q "path is not an executable file" "$work/out" || fail "status hid the broken path: $(cat "$work/out")"
if "$script" status --json >"$work/out"; then fail "a malformed id passed"; fi
jq -e --arg id "$firefoxId" '(.sound | not) and (.browsers[] | select(.name == "LibreWolf")
    | .manifests[0] | .pathIsExecutable and .ids == [$id, "not an id"] and .malformedIds == ["not an id"])' \
    "$work/out" >/dev/null || fail "status --json hid the malformed id: $(cat "$work/out")"
rm -r "$HOME/.librewolf"
"$script" uninstall --executable "$work/gone/host" --folder "$work/custom/hosts" >/dev/null
installed=$(listing)
"$script" uninstall --executable "$work/another/QuorvelNativeMessageHost" >/dev/null
[ "$(listing)" = "$installed" ] || fail "uninstall removed manifests of another executable"
uninstall_leaves_nothing

# With --all every browser gets one. Installing again over the first install must not make
# uninstall forget the folders the first one made.
"$script" install --all --executable "$host" --chrome-extension-id "$otherChromeId" >/dev/null
"$script" install --all --executable "$host" "${ids[@]}" >/dev/null
expect_manifests home/.mozilla/native-messaging-hosts home/.librewolf/native-messaging-hosts \
    home/.config/{google-chrome,google-chrome-beta,google-chrome-unstable,chromium}/NativeMessagingHosts \
    home/.config/{microsoft-edge,BraveSoftware/Brave-Browser,vivaldi}/NativeMessagingHosts
expect_sound_status '.sound'
uninstall_leaves_nothing

# --system writes for every browser with a system folder, under the temporary root.
"$script" install --system --executable "$host" "${ids[@]}" >/dev/null
expect_manifests root/etc/opt/chrome/native-messaging-hosts root/etc/chromium/native-messaging-hosts \
    root/etc/opt/edge/native-messaging-hosts root/usr/lib/mozilla/native-messaging-hosts \
    root/usr/lib64/mozilla/native-messaging-hosts root/usr/lib/librewolf/native-messaging-hosts \
    root/usr/lib64/librewolf/native-messaging-hosts
expect_sound_status '[.browsers[].manifests[] | select(.found) | .scope] | length == 7 and all(. == "system")'
uninstall_leaves_nothing --system

# On macOS, Brave reads Chrome's folder: a Brave user gets a manifest there too.
brave="home/Library/Application Support/BraveSoftware/Brave-Browser"
mkdir -p "$work/$brave"
before=$(listing)
MANIFEST_PLATFORM=Darwin "$script" install --executable "$host" "${ids[@]}" >/dev/null
expect_manifests "$brave/NativeMessagingHosts" \
    "home/Library/Application Support/Google/Chrome/NativeMessagingHosts"
MANIFEST_PLATFORM=Darwin uninstall_leaves_nothing
echo "All manifest checks passed."
