#!/usr/bin/env bash
# Installs the host and the registration tool from the build tree into a temporary prefix, then
# registers, inspects and unregisters the host with the tool in a temporary home folder and a
# temporary root, as a fake user (the tests' fake user library) whose home is that folder.
# Usage: registrationTest.sh BUILD_DIR FAKE_USER_LIBRARY
# Some checks read "A && B || fail", meant to fail when either A or B does.
# shellcheck disable=SC2015
set -euo pipefail

buildDir=$1 fakeUserLibrary=$2
# Its real path, which the tool names where it checks the folders on the way as root (on macOS,
# /var is a link).
work=$(cd "$(mktemp -d)" && pwd -P)
trap 'rm -rf "$work"' EXIT
# Linux's folders until the macOS checks at the end.
export HOME="$work/home" MANIFEST_ROOT="$work/root" MANIFEST_PLATFORM=Linux
printf %s "$HOME" >"$work/user"
preload=LD_PRELOAD
[ "$(uname)" != Darwin ] || preload=DYLD_INSERT_LIBRARIES

fail() { echo "FAILED: $*" >&2; exit 1; }
# The SHA-1 of standard input in hex, as sha1sum (Linux) or shasum (macOS) gives it.
sha1() { { command -v sha1sum >/dev/null && sha1sum || shasum -a 1; } | cut -c1-40; }
listing() { (cd "$work" && find home root | sort); }

manifest=com.quorvel.nativemessagehost.json firefoxId=quorvel@example.com
chromeId=abcdefghijklmnopabcdefghijklmnop chromeId2=ponmlkjihgfedcbaponmlkjihgfedcba
chromeOrigins=("chrome-extension://$chromeId/" "chrome-extension://$chromeId2/")
ids=(--chrome-extension-id "$chromeId" --chrome-extension-id "$chromeId2" --firefox-extension-id "$firefoxId")

# The prefix has a space and quotes, which the manifest must escape.
prefix="$work/pre fix \"q\""
cmake --install "$buildDir" --prefix "$prefix" >/dev/null
host="$prefix/bin/QuorvelNativeMessageHost"
[ "$(find "$prefix" -type f | sort)" = "$(printf '%s\n' "$prefix/bin/QuorvelHostRegistration" "$host")" ] ||
    fail "installed other than the host and the tool: $(find "$prefix" -type f)"
# Exported by the subshell, whose exec hands them to the tool directly: on macOS, system
# programs such as /usr/bin/env drop DYLD_* variables. AddressSanitizer refuses to start when
# another library is preloaded ahead of it, unless told.
tool() (
    export "$preload=$fakeUserLibrary" QUORVEL_FAKE_USER_FILE="$work/user" \
        ASAN_OPTIONS="${ASAN_OPTIONS:-}:verify_asan_link_order=0"
    exec "$prefix/bin/QuorvelHostRegistration" "$@"
)

# Runs the tool, which must refuse its arguments with a message and exit 2, writing nothing.
refused() {
    local status=0
    tool "$@" >/dev/null 2>"$work/error" || status=$?
    [ "$status" = 2 ] && [ -s "$work/error" ] && [ "$(listing)" = "$before" ] ||
        fail "not refused with status 2 and a message, or wrote something: $*"
}

# STATUS TEXT ARGUMENTS...: the tool exits with STATUS and prints a line holding TEXT.
expect_run() {
    local status=0
    tool "${@:3}" >"$work/out" 2>&1 || status=$?
    [ "$status" = "$1" ] && grep -qF -- "$2" "$work/out" ||
        fail "${*:3}: exit $status, expected $1 and '$2': $(cat "$work/out")"
}

# FOLDER...: exactly these folders under the work folder hold a manifest, each of which registers
# the installed host for the ids of the family that the folder's browser belongs to.
expect_manifests() {
    local folder file key allowed
    [ "$(listing | grep -F "/$manifest")" = "$(printf "%s/$manifest\n" "$@" | sort)" ] ||
        fail "expected manifests in exactly $*: $(listing)"
    for folder in "$@"; do
        file="$work/$folder/$manifest" key=allowed_origins allowed=("${chromeOrigins[@]}")
        [[ ! $folder =~ [Mm]ozilla|[Ll]ibre[Ww]olf|[Ww]aterfox ]] || key=allowed_extensions allowed=("$firefoxId")
        jq -e --arg path "$host" --arg key "$key" --args 'has("description") and del(.description) ==
            {name: "com.quorvel.nativemessagehost", path: $path, type: "stdio", ($key): $ARGS.positional}' \
            "${allowed[@]}" <"$file" >/dev/null || fail "wrong manifest in $folder: $(cat "$file")"
    done
}

# ARGUMENTS...: status --json into $work/status, whatever it judges (exit 0 or 1).
status_json() { tool status --json "$@" >"$work/status" || [ $? = 1 ]; }

uninstall_leaves_nothing() {
    tool uninstall --executable "$host" "$@" >/dev/null
    [ "$(listing)" = "$before" ] || fail "uninstall $* left: $(diff <(echo "$before") <(listing))"
}

# --all|--system FOLDER...: installing, then again with more ids, writes exactly the FOLDERs'
# manifests, all found sound by status, with the browsers not in use still not in use, and
# uninstall removes them with the folders it made.
install_everywhere() {
    tool install "$1" --executable "$host" --chrome-extension-id "$chromeId" >/dev/null
    tool install "$1" --executable "$host" "${ids[@]}" >/dev/null
    expect_manifests "${@:2}"
    status_json && jq -e ".sound and .manifestsFound == $# - 1 and ([.browsers[] |
        select(.profile == \"found\")] | length) == $inUse" "$work/status" >/dev/null ||
        fail "status --json: not the $(($# - 1)) manifests of $1 sound, or another browser in use"
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
before=$(listing) inUse=3

refused uninstall --executable bin/QuorvelNativeMessageHost
# A mistyped command or option is refused with the name meant; each command has its own help.
refused statsu
grep -qF "did you mean status?" "$work/error" || fail "no suggestion for statsu: $(cat "$work/error")"
refused install --executable="$host" "${ids[@]}" --sytem
grep -qF "did you mean --system?" "$work/error" || fail "no suggestion for --sytem: $(cat "$work/error")"
expect_run 0 "--firefox-extension-id" install --help
[ "$(tool --version)" = 1.2.0 ] || fail "--version does not print the host's version"
refused install --executable "$work/missing" "${ids[@]}"
# What install must refuse after --executable HOST: a case a string, split into words.
for bad in "--chrome-extension-id ${chromeId/p/q}" "--chrome-extension-id ${chromeId}a" \
    "--firefox-extension-id quorvel" "--firefox-extension-id {1234-5678}" "${ids[*]} --colour" \
    "${ids[*]} --folder c --family chrome" "${ids[*]} --folder $work/c --family safari" \
    "--chrome-extension-id $chromeId --folder $work/c --family firefox"; do
    # shellcheck disable=SC2086
    refused install --executable "$host" $bad
done

# Nothing registered: status says which browser would not start the host and what its
# extension gets; the agent's socket is the fake user's, where nobody listens.
expect_run 1 "Some browser in use would not start the host" status
grep -qF 'The extension gets: "No such native application com.quorvel.nativemessagehost"' "$work/out" ||
    fail "status does not give Firefox's error: $(cat "$work/out")"
status_json && jq -e '(.sound | not) and .manifestsFound == 0 and (.starts | not)' "$work/status" >/dev/null ||
    fail "status --json: sound or starting without a manifest: $(cat "$work/status")"
grep -qF "nothing listens at /tmp/quorvel$(printf %s "$HOME" | sha1) " "$work/out" ||
    fail "status does not look for the agent at the fake user's socket: $(cat "$work/out")"

# A portable LibreWolf reads a folder that the tool's table does not know.
portable="$MANIFEST_ROOT/opt/librewolf/native-messaging-hosts"
tool install --executable "$host" "${ids[@]}" >/dev/null
tool install --executable "$host" "${ids[@]}" --folder "$portable" --family firefox >/dev/null
expect_manifests home/.config/{google-chrome,BraveSoftware/Brave-Browser}/NativeMessagingHosts \
    home/.mozilla/native-messaging-hosts root/opt/librewolf/native-messaging-hosts
# Every browser in use starts the host but Chromium, whose Flatpak finds no manifest.
status_json --chrome-extension-id "$chromeId" && jq -e '.sound and .manifestsFound == 3
    and .agent.listener == "nothing" and (.starts | not) and ([.browsers[] | select(.profile != "missing")
    | select(.starts | not) | .name] == ["Chromium"]) and (.browsers[] | select(.name == "Chromium") |
    .profile == "sandboxed" and (.note | test("Flatpak")) and .browserError == "Specified native messaging host not found."
    and (.fix | test("package"))) and (.browsers[] | select(.name == "Google Chrome") | .browserError == null
    and .fix == null and (.reads | endswith("google-chrome/NativeMessagingHosts/'"$manifest"'")))' \
    "$work/status" >/dev/null || fail "status --json: not the three sound manifests, or not Chromium's Flatpak alone failing"
expect_run 1 "Some browser in use would not start the host" status
expect_run 0 "Every browser in use would start the host." status --folder "$portable" --family firefox

# An administrator's policy that blocklists every host forbids Chrome until it allows this one.
policies="$MANIFEST_ROOT/etc/opt/chrome/policies/managed"
mkdir -p "$policies" && echo '{"NativeMessagingBlocklist": ["*"]}' >"$policies/block.json"
status_json && jq -e '.browsers[] | select(.name == "Google Chrome") | (.starts | not) and
    .browserError == "Access to the native messaging host was disabled by the system administrator."
    and (.fix | test("NativeMessagingAllowlist")) and .policy.files == ["'"$policies/block.json"'"]' \
    "$work/status" >/dev/null || fail "status --json: Chrome not forbidden by the blocklist"
echo '{"NativeMessagingAllowlist": ["com.quorvel.nativemessagehost"]}' >"$policies/zallow.json"
status_json --chrome-extension-id="$chromeId2" && jq -e '.browsers[] | select(.name == "Google Chrome")
    | .starts and .policy.allowlist == ["com.quorvel.nativemessagehost"]' "$work/status" >/dev/null ||
    fail "status --json: the allowlist did not let Chrome start the host"
rm -r "${MANIFEST_ROOT:?}/etc"
status_json --chrome-extension-id "${chromeId/a/b}" && jq -e '.browsers[] | select(.name == "Google Chrome")
    | .browserError == "Access to the specified native messaging host is forbidden." and (.fix | test("--chrome-extension-id"))' \
    "$work/status" >/dev/null || fail "status --json: an id the manifest does not allow is not forbidden"

# Firefox's manifest, edited by hand for an executable that is not there and a malformed id, is
# broken twice over and not uninstall's to remove; Chrome's, cut short, is not JSON.
firefoxManifest="$HOME/.mozilla/native-messaging-hosts/$manifest"
chromeManifest="$HOME/.config/google-chrome/NativeMessagingHosts/$manifest"
printf '{ "allowed_extensions" : [ "%s",\n "not an id" ], "type":"stdio", "description": "",\n"name":\n "%s", "path" : "%s" }' \
    "$firefoxId" com.quorvel.nativemessagehost "$work/elsewhere/host" >"$firefoxManifest"
head -c $(($(wc -c <"$chromeManifest") - 2)) "$chromeManifest" >"$work/cut" &&
    cat "$work/cut" >"$chromeManifest"
expect_run 1 "malformed id: 'not an id'" status
grep -qF "no file is at $work/elsewhere/host: the host was moved or removed" "$work/out" &&
    grep -q "BROKEN: $chromeManifest" "$work/out" && grep -q "it is not valid JSON: parse error" "$work/out" ||
    fail "status missed what is broken: $(cat "$work/out")"
status_json && jq -e '(.starts | not) and ([.browsers[].manifests[] | select(.found and .sound == false)]
    | length == 2 and (.[1] | (.pathIsExecutable | not) and .ids == ["quorvel@example.com", "not an id"]
    and .malformedIds == ["not an id"]))' "$work/status" >/dev/null || fail "status --json: $(cat "$work/status")"
# Uninstall knows Chrome's again once a tool has re-indented it with its keys in another order.
tool install --executable "$host" --chrome-extension-id "$chromeId" >/dev/null
jq -S . "$chromeManifest" >"$work/sorted" && cp "$work/sorted" "$chromeManifest"
tool uninstall --executable "$host" >/dev/null
[ -f "$firefoxManifest" ] && [ ! -e "$chromeManifest" ] && rm -r "$HOME/.mozilla" ||
    fail "uninstall removed another executable's manifest or left its own"
uninstall_leaves_nothing --folder "$portable"

# A folder that cannot be written is named, the others are written, and the run fails.
brave="$HOME/.config/BraveSoftware/Brave-Browser/NativeMessagingHosts"
touch "$brave"
expect_run 1 "Brave: cannot write $brave: it is not a folder" install --executable "$host" "${ids[@]}"
grep -q "Google Chrome: wrote" "$work/out" || fail "a folder that cannot be written stopped the run"
rm "$brave"
uninstall_leaves_nothing

# What no browser reads, or none should: the tool neither crashes nor waits nor reads without
# end, says why each is broken, leaves each where uninstall meets it, and shows U+FFFD for bytes
# that are not UTF-8, in text and in JSON.
judged() {
    expect_run 1 "$1" status
    iconv -f UTF-8 -t UTF-8 "$work/out" >/dev/null || fail "status wrote bytes that are not UTF-8"
    status_json && jq -e --arg problem "$1" '[.browsers[].manifests[].problems // [] | .[]
        | select(startswith($problem))] | length == 1' "$work/status" >/dev/null ||
        fail "status --json does not say '$1': $(cat "$work/status")"
}
tool install --executable "$host" "${ids[@]}" >/dev/null
printf '{"name": "\377"}' >"$chromeManifest"
judged "it is not valid JSON: parse error at line 1, column 11: syntax error while parsing value - invalid string: ill-formed UTF-8 byte"
rm "$chromeManifest" && mkfifo "$chromeManifest"
judged "it is a FIFO, not a regular file"
rm "$chromeManifest" && ln -s /dev/zero "$chromeManifest"
judged "it is a character device, not a regular file"
expect_run 0 "Google Chrome: left $chromeManifest, it is a character device" uninstall --executable "$host"
rm "$chromeManifest" && tool install --executable "$host" "${ids[@]}" >/dev/null
{ printf '{"allowed_origins": '; head -c 80000 /dev/zero | tr '\0' '['; } >"$chromeManifest"
judged "it nests arrays and objects more than 200 levels deep: not read further"
# Sparse, 5 GiB: nothing is written, and the tool reads none of it.
rm "$chromeManifest" && dd if=/dev/zero of="$chromeManifest" bs=1 count=0 seek=5368709120 2>/dev/null
judged "it is too large: 5368709120 bytes, more than the 1048576 a manifest may have"
rm "$chromeManifest"
uninstall_leaves_nothing
shown="$work/"$'\357\277\275'/.config/google-chrome/NativeMessagingHosts
HOME="$work/"$'\377' tool status >"$work/out" || true
grep -qF "$shown" "$work/out" || fail "status does not show an \$HOME that is not UTF-8 with U+FFFD"
HOME="$work/"$'\377' status_json && jq -e --arg home "$shown" '[.browsers[].manifests[].file
    | select(startswith($home))] | length > 0' "$work/status" >/dev/null ||
    fail "status --json does not show an \$HOME that is not UTF-8 with U+FFFD"
# Install and uninstall show such a home the same way. A manifest cannot name such an
# executable: refused before a folder is made. macOS's file system may refuse the name itself.
if mkdir -p "$work/"$'\377'/.config/google-chrome 2>/dev/null; then
    # WHAT ARGUMENTS...: the tool run under that home says WHAT of Chrome's manifest, in UTF-8.
    says_under_home() {
        HOME="$work/"$'\377' tool "${@:2}" >"$work/out" 2>&1 || fail "$2 failed: $(cat "$work/out")"
        iconv -f UTF-8 -t UTF-8 "$work/out" >/dev/null || fail "$2 wrote bytes that are not UTF-8"
        grep -qF "Google Chrome: $1 $shown/$manifest" "$work/out" ||
            fail "$2 does not show an \$HOME that is not UTF-8 with U+FFFD: $(cat "$work/out")"
    }
    says_under_home wrote install --executable "$host" "${ids[@]}"
    says_under_home removed uninstall --executable "$host"
    rm -r "$work/"$'\377'
    ln -s "$host" "$work/"$'\377'
    refused install --executable "$work/"$'\377' "${ids[@]}"
    rm "$work/"$'\377'
fi

# Runs at once serialise: every one of ten concurrent installs succeeds, and uninstall after them
# leaves nothing, burst after burst. The ten wait at a gate, a FIFO held open for reading and
# writing here, and start together when it gets a line for each.
gate="$work/gate"
mkfifo "$gate"
exec 3<>"$gate"
for burst in 1 2 3; do
    pids=()
    for run in 1 2 3 4 5 6 7 8 9 10; do
        { read -r _ <"$gate" && tool install --all --executable "$host" "${ids[@]}"; } >"$work/run$run" 2>&1 &
        pids+=($!)
    done
    printf 'go\n%.0s' 1 2 3 4 5 6 7 8 9 10 >&3
    for run in 1 2 3 4 5 6 7 8 9 10; do
        wait "${pids[$((run - 1))]}" || fail "concurrent install $run of burst $burst: $(cat "$work/run$run")"
    done
    uninstall_leaves_nothing
done
exec 3>&-

# Without a browser in use, install writes nothing and says what to do; with only a Flatpak
# build in use, it says that instead. The browsers look under $XDG_CONFIG_HOME, and so does it.
mv "$HOME" "$work/away" && mkdir -p "$HOME/.var/app/org.chromium.Chromium"
expect_run 1 "the browsers in use are sandboxed builds" install --executable "$host" "${ids[@]}"
rm -r "$HOME/.var"
expect_run 1 "Start the browser once" install --executable "$host" "${ids[@]}"
mkdir "$HOME/.mozilla"
expect_run 1 "the browsers in use are of a family given no extension id" install \
    --executable "$host" --chrome-extension-id "$chromeId"
rmdir "$HOME/.mozilla"
mkdir -p "$work/xdg/chromium"
XDG_CONFIG_HOME="$work/xdg" expect_run 0 "Chromium: wrote $work/xdg/chromium/NativeMessagingHosts/$manifest" \
    install --executable "$host" "${ids[@]}"
[ -f "$work/xdg/chromium/NativeMessagingHosts/$manifest" ] &&
    XDG_CONFIG_HOME="$work/xdg" tool uninstall --executable "$host" >/dev/null &&
    [ ! -e "$work/xdg/chromium/NativeMessagingHosts" ] && rm -r "$work/xdg" && rmdir "$HOME" &&
    mv "$work/away" "$HOME" || fail "install or uninstall for \$XDG_CONFIG_HOME went elsewhere: $(listing)"

# Install refuses what the browsers cannot start: a folder or a special file. As root, it does
# not run the executable with --version (the unit tests ask it as another user) and says so.
refused install --executable "$prefix/bin" "${ids[@]}"
refused install --executable /dev/null "${ids[@]}"
if [ "$(id -u)" = 0 ]; then
    expect_run 0 "Note: did not run $host --version" install --executable "$host" "${ids[@]}"
    uninstall_leaves_nothing
fi

install_everywhere --all home/{.mozilla,.librewolf,.waterfox}/native-messaging-hosts \
    home/.config/{google-chrome{,-beta,-unstable,-for-testing},chromium,microsoft-edge,vivaldi}/NativeMessagingHosts \
    home/.config/BraveSoftware/Brave-Browser/NativeMessagingHosts
# What a browser started after install --all put in a folder the tool made stays; records go.
tool install --all --executable "$host" "${ids[@]}" >/dev/null
mkdir "$HOME/.config/vivaldi/Default"
tool uninstall --executable "$host" >/dev/null
[ "$(listing)" = "$(printf '%s\n' "$before" home/.config/vivaldi home/.config/vivaldi/Default | sort)" ] ||
    fail "uninstall after a browser's start left: $(diff <(echo "$before") <(listing))"
rm -r "$HOME/.config/vivaldi"

# For all users, under any umask: folders 0755, manifests 0644.
(umask 077 && install_everywhere --system root/etc/{opt/chrome,chromium,opt/edge}/native-messaging-hosts \
    root/usr/{lib,lib64}/{mozilla,librewolf,waterfox}/native-messaging-hosts)
(umask 077 && tool install --system --executable "$host" "${ids[@]}" >/dev/null)
[ "$(find "$MANIFEST_ROOT"/* \( -type d ! -perm 0755 \) -o \( -type f ! -perm 0644 \))" = "" ] ||
    fail "system folders or manifests not open to all: $(ls -lR "$MANIFEST_ROOT")"
uninstall_leaves_nothing --system

# Uninstall leaves, and names, each manifest it cannot show is its own: one cut short (not
# JSON), one naming no executable, and a link to a manifest that is gone (unreadable).
notOurs=("$HOME/.config/"{google-chrome,BraveSoftware/Brave-Browser,chromium}"/NativeMessagingHosts/$manifest")
mkdir -p "${notOurs[@]%/*}"
printf '{"path": "%s"' "$host" >"${notOurs[0]}"
printf '{"name": "com.quorvel.nativemessagehost"}' >"${notOurs[1]}"
ln -s "$work/gone.json" "${notOurs[2]}"
expect_run 0 "left ${notOurs[2]}, this user cannot read it: No such file or directory" uninstall --executable "$host"
grep -qF "left ${notOurs[0]}, it names no executable" "$work/out" && [ "$(find "${notOurs[@]}" | wc -l)" -eq 3 ] &&
    grep -qF "left ${notOurs[1]}, it names no executable" "$work/out" || fail "uninstall took or did not name: $(cat "$work/out")"
rm -r "${notOurs[@]%/*}" "$HOME/.config/chromium"

# Layouts users have, which the browsers follow: a home folder reached through a link, the host
# installed through a relative link and a link to that (as package managers do), Chrome's profile
# moved and linked back, Firefox's manifest folder a link to a folder of the user's, and a
# portable browser's folder made before the tool ran. Install writes the path as given, status
# finds it sound, and uninstall removes the manifests and what it made, nothing else.
(
    links="$work/links" portable="$MANIFEST_ROOT/opt/portable" alias="$work/links/bin/alias"
    mkdir -p "$links/bin" "$links/native-messaging-hosts" "$HOME/.mozilla" "$portable"
    ln -s "../../pre fix \"q\"/bin/QuorvelNativeMessageHost" "$links/bin/host" && ln -s "$links/bin/host" "$alias"
    mv "$HOME/.config/google-chrome" "$links/" && ln -s "$links/google-chrome" "$HOME/.config/"
    ln -s "$links/native-messaging-hosts" "$HOME/.mozilla/"
    ln -s home "$work/linked-home" && export HOME="$work/linked-home"
    linked=$(listing)
    expect_run 0 "Firefox (with Developer Edition, Nightly): wrote" install --executable "$alias" "${ids[@]}"
    grep -qF "Google Chrome: wrote" "$work/out" || fail "no manifest in a linked profile: $(cat "$work/out")"
    tool install --executable "$alias" "${ids[@]}" --folder "$portable" --family firefox >/dev/null
    jq -se --arg path "$alias" 'map(.path) == [$path, $path, $path]' "$links"/{google-chrome/NativeMessagingHosts,native-messaging-hosts}/$manifest \
        "$portable/$manifest" >/dev/null || fail "a manifest does not name $alias as given"
    # Every browser in use starts the host through the links but Chromium, only a Flatpak here.
    status_json && jq -e '.sound and [.browsers[] | select(.profile != "missing") | select(.starts | not)
        | .name] == ["Chromium"] and ([.browsers[].manifests[] | select(.found) | .pathIsExecutable] | all)' \
        "$work/status" >/dev/null || fail "status --json through links: $(cat "$work/status")"
    tool uninstall --executable "$alias" >/dev/null
    tool uninstall --executable "$alias" --folder "$portable" >/dev/null
    [ "$(listing)" = "$linked" ] && [ -z "$(find "$links"/{google-chrome,native-messaging-hosts} -mindepth 1)" ] ||
        fail "uninstall through links left or removed: $(diff <(echo "$linked") <(listing)) $(find "$links")"
    rm "$work/linked-home" "$work/home/.config/google-chrome" && rm -r "$work/home/.mozilla" "$MANIFEST_ROOT/opt"
    mv "$links/google-chrome" "$work/home/.config/"
)

# As root, links that another user planted below the root lead nowhere: the folders behind them
# are named and left alone, the rest written, nothing changed where the links point. Root's own
# link is followed, but not into a folder another user can change; and a root that other users
# can write is refused whole.
if [ "$(id -u)" = 0 ]; then
    mkdir -p "$work/outside/mozilla" && chmod 0700 "$work/outside"
    ln -s "$work/outside" "$MANIFEST_ROOT/etc" && mkdir "$MANIFEST_ROOT/usr" &&
        ln -s "$work/outside" "$MANIFEST_ROOT/usr/lib" && chown -h 65534 "$MANIFEST_ROOT/etc" "$MANIFEST_ROOT/usr/lib"
    outside=$(cd "$work" && ls -lR outside)
    expect_run 1 "Google Chrome: cannot write $MANIFEST_ROOT/etc/opt/chrome/native-messaging-hosts: $MANIFEST_ROOT/etc is a symbolic link, which the tool does not follow" \
        install --system --executable "$host" "${ids[@]}"
    grep -q "Firefox (with Developer Edition, Nightly): wrote $MANIFEST_ROOT/usr/lib64/mozilla/" "$work/out" ||
        fail "a link in one system folder stopped the others: $(cat "$work/out")"
    tool uninstall --system --executable "$host" >/dev/null
    rm "$MANIFEST_ROOT/etc" "$MANIFEST_ROOT/usr/lib" && rmdir "$MANIFEST_ROOT/usr"
    [ "$(cd "$work" && ls -lR outside)" = "$outside" ] && [ "$(listing)" = "$before" ] ||
        fail "a write as root went through a link, or uninstall left: $(cd "$work" && ls -lR outside; listing)"
    mkdir "$work/theirs" && chown 65534 "$work/theirs" && ln -s "$work/theirs" "$MANIFEST_ROOT/etc"
    expect_run 1 "Nothing done: $work/theirs (owned by user id 65534) can be changed by a user other than root" \
        install --system --executable "$host" "${ids[@]}"
    rm "$MANIFEST_ROOT/etc" && rmdir "$work/theirs"
    chmod 0777 "$MANIFEST_ROOT"
    expect_run 1 "Nothing done: $MANIFEST_ROOT (mode 0777) can be changed by a user other than root" \
        install --system --executable "$host" "${ids[@]}"
    chmod 0755 "$MANIFEST_ROOT"
    [ "$(listing)" = "$before" ] || fail "a refused run wrote: $(listing)"
fi

# On macOS, Brave reads Chrome's folder: a Brave user gets a manifest there too.
export MANIFEST_PLATFORM=Darwin
inUse=2
tool install --executable "$host" "${ids[@]}" >/dev/null
expect_manifests "$mac/"{BraveSoftware/Brave-Browser,Google/Chrome}/NativeMessagingHosts
uninstall_leaves_nothing
install_everywhere --all "$mac/"{Google/Chrome,Microsoft\ Edge}{,\ Beta,\ Dev,\ Canary}/NativeMessagingHosts \
    "$mac/"{Chromium,BraveSoftware/Brave-Browser,Vivaldi,Arc/User\ Data,Mozilla,LibreWolf,Waterfox}/NativeMessagingHosts
install_everywhere --system root/Library/{Google/Chrome,Microsoft/Edge}/NativeMessagingHosts \
    "root/Library/Application Support/"{Chromium,Mozilla,LibreWolf,Waterfox}/NativeMessagingHosts
echo "All registration checks passed."
