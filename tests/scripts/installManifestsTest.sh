#!/usr/bin/env bash
# Installs the host from the build tree into a temporary prefix, then registers, inspects and
# unregisters it with the manifest script in a temporary home folder and a temporary root.
# Usage: installManifestsTest.sh MANIFEST_SCRIPT BUILD_DIR
# Some checks read "A && B || fail", meant to fail when either A or B does.
# shellcheck disable=SC2015
set -euo pipefail

script=$1 buildDir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Linux's folders until the macOS checks at the end.
export HOME="$work/home" MANIFEST_ROOT="$work/root" MANIFEST_PLATFORM=Linux

fail() { echo "FAILED: $*" >&2; exit 1; }
listing() { (cd "$work" && find home root | sort); }

manifest=com.quorvel.nativemessagehost.json firefoxId=quorvel@example.com
chromeId=abcdefghijklmnopabcdefghijklmnop chromeId2=ponmlkjihgfedcbaponmlkjihgfedcba
chromeOrigins=("chrome-extension://$chromeId/" "chrome-extension://$chromeId2/")
ids=(--chrome-extension-id "$chromeId" --chrome-extension-id "$chromeId2" --firefox-extension-id "$firefoxId")

# The prefix has a space and quotes, which the manifest must escape.
prefix="$work/pre fix \"q\""
cmake --install "$buildDir" --prefix "$prefix" >/dev/null
host="$prefix/bin/QuorvelNativeMessageHost"
[ "$(find "$prefix" -type f)" = "$host" ] || fail "installed more than the host: $(find "$prefix" -type f)"

# Runs the script, which must refuse its arguments with a message and write nothing.
refused() {
    ! "$script" "$@" >/dev/null 2>"$work/error" || fail "accepted: $*"
    [ -s "$work/error" ] && [ "$(listing)" = "$before" ] || fail "no message, or wrote something, for: $*"
}

# FOLDER...: exactly these folders under the work folder hold a manifest, each of which registers
# the installed host for the ids of the family that the folder's browser belongs to.
expect_manifests() {
    local folder file key allowed
    [ "$(listing | grep -F "/$manifest")" = "$(printf "%s/$manifest\n" "$@" | sort)" ] ||
        fail "expected manifests in exactly $*: $(listing)"
    for folder in "$@"; do
        file="$work/$folder/$manifest" key=allowed_origins allowed=("${chromeOrigins[@]}")
        [[ ! $folder =~ [Mm]ozilla|[Ll]ibre[Ww]olf ]] || key=allowed_extensions allowed=("$firefoxId")
        jq -e --arg path "$host" --arg key "$key" --args 'has("description") and del(.description) ==
            {name: "com.quorvel.nativemessagehost", path: $path, type: "stdio", ($key): $ARGS.positional}' \
            "${allowed[@]}" <"$file" >/dev/null || fail "wrong manifest in $folder: $(cat "$file")"
    done
}

uninstall_leaves_nothing() {
    "$script" uninstall --executable "$host" "$@" >/dev/null
    [ "$(listing)" = "$before" ] || fail "uninstall $* left: $(diff <(echo "$before") <(listing))"
}

# --all|--system FOLDER...: installing, then again with more ids, writes exactly the FOLDERs'
# manifests, all found sound by status, and uninstall removes them with the folders it made.
install_everywhere() {
    "$script" install "$1" --executable "$host" --chrome-extension-id "$chromeId" >/dev/null
    "$script" install "$1" --executable "$host" "${ids[@]}" >/dev/null
    expect_manifests "${@:2}"
    "$script" status --json | jq -e ".sound and ([.browsers[].manifests[] | select(.found)] | length)
        == $# - 1" >/dev/null || fail "status --json does not find the $(($# - 1)) manifests of $1 sound"
    # Uninstall has no --all: it removes what either scope wrote.
    # shellcheck disable=SC2086
    uninstall_leaves_nothing ${1#--all}
}

# Google Chrome and Brave have a profile folder, Firefox only its snap (which reads the usual
# folder), Chromium only its Flatpak (which cannot start the host); the others none. On macOS,
# only Brave has one.
mac="home/Library/Application Support"
mkdir -p "$MANIFEST_ROOT" "$HOME/.config/google-chrome" "$HOME/.config/BraveSoftware/Brave-Browser" \
    "$HOME/snap/firefox" "$HOME/.var/app/org.chromium.Chromium" "$work/$mac/BraveSoftware/Brave-Browser"
before=$(listing)

refused uninstall --executable bin/QuorvelNativeMessageHost
refused install --executable "$work/missing" "${ids[@]}"
# What install must refuse after --executable HOST: a case a string, split into words.
for bad in "--chrome-extension-id ${chromeId/p/q}" "--chrome-extension-id ${chromeId}a" \
    "--firefox-extension-id quorvel" "--firefox-extension-id {1234-5678}" "${ids[*]} --colour" \
    "${ids[*]} --folder c --family chrome" "${ids[*]} --folder $work/c --family safari" \
    "--chrome-extension-id $chromeId --folder $work/c --family firefox"; do
    # shellcheck disable=SC2086
    refused install --executable "$host" $bad
done

# A portable LibreWolf reads a folder that the script's table does not know.
portable="$MANIFEST_ROOT/opt/librewolf/native-messaging-hosts"
"$script" install --executable "$host" "${ids[@]}" >/dev/null
"$script" install --executable "$host" "${ids[@]}" --folder "$portable" --family firefox >/dev/null
expect_manifests home/.config/{google-chrome,BraveSoftware/Brave-Browser}/NativeMessagingHosts \
    home/.mozilla/native-messaging-hosts root/opt/librewolf/native-messaging-hosts
"$script" status --json | jq -e '.sound and ([.browsers[].manifests[] | select(.found)] | length == 3)
    and (.browsers[] | select(.name == "Chromium") | .profile == "sandboxed" and (.note | test("Flatpak")))' \
    >/dev/null || fail "status --json: not the three sound manifests and Chromium's Flatpak"
"$script" status --folder "$portable" --family firefox >/dev/null || fail "the --folder manifest is not sound"

# Firefox's manifest, edited by hand for an executable that is not there and a malformed id, is
# broken twice over and not uninstall's to remove.
firefoxManifest="$HOME/.mozilla/native-messaging-hosts/$manifest"
printf '{ "allowed_extensions" : [ "%s",\n "not an id" ], "type":"stdio",\n"name":\n "%s", "path" : "%s" }' \
    "$firefoxId" com.quorvel.nativemessagehost "$work/elsewhere/host" >"$firefoxManifest"
! "$script" status >"$work/out" && grep -q "path is not an executable file" "$work/out" &&
    grep -q "malformed id: 'not an id'" "$work/out" || fail "status missed what is broken: $(cat "$work/out")"
! "$script" status --json >"$work/out" && jq -e '.browsers[].manifests[] | select(.sound == false)
    | (.pathIsExecutable | not) and .ids == ["quorvel@example.com", "not an id"]
    and .malformedIds == ["not an id"]' "$work/out" >/dev/null || fail "status --json: $(cat "$work/out")"
"$script" uninstall --executable "$host" >/dev/null
[ -f "$firefoxManifest" ] && rm -r "$HOME/.mozilla" || fail "uninstall removed another executable's manifest"
uninstall_leaves_nothing --folder "$portable"

install_everywhere --all home/{.mozilla,.librewolf}/native-messaging-hosts \
    home/.config/{google-chrome{,-beta,-unstable},chromium,microsoft-edge,vivaldi}/NativeMessagingHosts \
    home/.config/BraveSoftware/Brave-Browser/NativeMessagingHosts
install_everywhere --system root/etc/{opt/chrome,chromium,opt/edge}/native-messaging-hosts \
    root/usr/{lib,lib64}/{mozilla,librewolf}/native-messaging-hosts

# On macOS, Brave reads Chrome's folder: a Brave user gets a manifest there too.
export MANIFEST_PLATFORM=Darwin
"$script" install --executable "$host" "${ids[@]}" >/dev/null
expect_manifests "$mac/"{BraveSoftware/Brave-Browser,Google/Chrome}/NativeMessagingHosts
uninstall_leaves_nothing
install_everywhere --all "$mac/"{Google/Chrome,Microsoft\ Edge}{,\ Beta,\ Dev,\ Canary}/NativeMessagingHosts \
    "$mac/"{Chromium,BraveSoftware/Brave-Browser,Vivaldi,Mozilla,LibreWolf}/NativeMessagingHosts
install_everywhere --system root/Library/{Google/Chrome,Microsoft/Edge}/NativeMessagingHosts \
    "root/Library/Application Support/"{Chromium,Mozilla,LibreWolf}/NativeMessagingHosts
echo "All manifest checks passed."
