#!/usr/bin/env bash
# Registers the host with browsers by writing its native messaging manifest where each browser
# looks for it, per user or for all users, removes what an earlier install wrote, and reports
# where the host is registered and whether each manifest would work.
set -euo pipefail

readonly HOST_NAME=com.quorvel.nativemessagehost
readonly MANIFEST="$HOST_NAME.json"
readonly DESCRIPTION="Quorvel native messaging host"
readonly CREATED_RECORD=".$HOST_NAME.created"
readonly SCRIPT=${0##*/}

usage() {
    cat <<EOF
Usage: $SCRIPT install --executable PATH [--chrome-extension-id ID]...
                           [--firefox-extension-id ID]... [--all | --system]
       $SCRIPT install --executable PATH --folder DIR --family chrome|firefox
                           and that family's --chrome-extension-id or --firefox-extension-id
       $SCRIPT uninstall --executable PATH [--system | --folder DIR]
       $SCRIPT status [--json] [--folder DIR --family chrome|firefox]
       $SCRIPT --help

install    writes $MANIFEST for each Chromium-family browser when a
           --chrome-extension-id is given, and for each Firefox-family browser when a
           --firefox-extension-id is given: only for browsers whose profile folder exists
           in this user's home folder, or for all of them with --all. Says why it
           skips a browser, e.g. one in use only as a Flatpak or Snap build.
uninstall  removes the manifests whose executable is PATH, and the folders that
           install created for them.
status     tells for each browser whether its profile folder exists and whether a
           manifest of the host is there (user and system), with its path and ids;
           exits with 0 when every manifest found is sound, 1 otherwise.

--executable PATH           absolute path of the installed QuorvelNativeMessageHost
--chrome-extension-id ID    32 letters a to p; may be repeated
--firefox-extension-id ID   an id like name@domain or a {GUID}; may be repeated
--all                       write for every browser, even one without a profile folder
--system                    for all users: the browsers' system folders instead of the
                            user's (needs root)
--folder DIR                a folder the table does not know, for a browser of --family
--json                      status as JSON

Environment, for tests and packagers:
MANIFEST_ROOT               a folder that stands in for / under which --system writes
                            and status looks (default: /)
MANIFEST_PLATFORM           Darwin or Linux: whose folders to use (default: uname)
EOF
}

fail() {
    echo "$SCRIPT: $*" >&2
    echo "Run '$SCRIPT --help' for usage." >&2
    exit 2
}

# One line per browser: family|name|profile folders|user manifest folder|system manifest
# folders|sandboxed builds' folders. Profile, user and sandbox folders are under the home
# folder, system folders under MANIFEST_ROOT; lists are separated by ';'. A browser is in use
# when one of its profile folders exists. Where each browser looks, and the source that says so:
# - Chromium family: NativeMessagingHosts in the user data folder, and one system folder for
#   all channels of a brand (Chromium chrome/common/chrome_paths.cc).
# - Chrome's channels: Chromium docs/user_data_dir.md, docs/mac/flavors_of_chrome.md; Linux
#   has no Canary.
# - Edge: its developer guide, "Native messaging", which names the Beta, Dev and Canary
#   folders on macOS and only the stable channel's on Linux.
# - Brave reads Chrome's system folder, and on macOS Chrome's user folder too, instead of its
#   own (brave-core app/brave_main_delegate.cc): on macOS Chrome's is written for Brave users.
# - Vivaldi: its published source, chrome_paths_mac.mm and chrome_paths_linux.cc; its system
#   folder is Chromium's in current releases, Chrome's in older ones (chrome_paths.cc).
# - Firefox, its Developer Edition and Nightly share one folder (Firefox
#   NativeManifests.sys.mjs, MDN "Native manifests"); it keeps ~/.mozilla for them where its
#   profiles moved to ~/.config, and reads /usr/lib64 for /usr/lib where built so.
# - LibreWolf: its source, patches/mozilla_dirs.patch, renames Firefox's folders.
# - Sandboxes on Linux: a Flatpak browser cannot start a host outside it; Chromium's snap
#   runs the host in its confinement; Firefox's snap reads the usual folders through a portal.
browsers() {
    if [ "$platform" = Darwin ]; then
        local support="Library/Application Support"
        printf '%s\n' \
            "chrome|Google Chrome|$support/Google/Chrome;$support/BraveSoftware/Brave-Browser|$support/Google/Chrome/NativeMessagingHosts|/Library/Google/Chrome/NativeMessagingHosts|" \
            "chrome|Google Chrome Beta|$support/Google/Chrome Beta|$support/Google/Chrome Beta/NativeMessagingHosts||" \
            "chrome|Google Chrome Dev|$support/Google/Chrome Dev|$support/Google/Chrome Dev/NativeMessagingHosts||" \
            "chrome|Google Chrome Canary|$support/Google/Chrome Canary|$support/Google/Chrome Canary/NativeMessagingHosts||" \
            "chrome|Chromium|$support/Chromium|$support/Chromium/NativeMessagingHosts|/Library/Application Support/Chromium/NativeMessagingHosts|" \
            "chrome|Microsoft Edge|$support/Microsoft Edge|$support/Microsoft Edge/NativeMessagingHosts|/Library/Microsoft/Edge/NativeMessagingHosts|" \
            "chrome|Microsoft Edge Beta|$support/Microsoft Edge Beta|$support/Microsoft Edge Beta/NativeMessagingHosts||" \
            "chrome|Microsoft Edge Dev|$support/Microsoft Edge Dev|$support/Microsoft Edge Dev/NativeMessagingHosts||" \
            "chrome|Microsoft Edge Canary|$support/Microsoft Edge Canary|$support/Microsoft Edge Canary/NativeMessagingHosts||" \
            "chrome|Brave|$support/BraveSoftware/Brave-Browser|$support/BraveSoftware/Brave-Browser/NativeMessagingHosts||" \
            "chrome|Vivaldi|$support/Vivaldi|$support/Vivaldi/NativeMessagingHosts||" \
            "firefox|Firefox (with Developer Edition, Nightly)|$support/Firefox|$support/Mozilla/NativeMessagingHosts|/Library/Application Support/Mozilla/NativeMessagingHosts|" \
            "firefox|LibreWolf|$support/LibreWolf|$support/LibreWolf/NativeMessagingHosts|/Library/Application Support/LibreWolf/NativeMessagingHosts|"
    else
        printf '%s\n' \
            "chrome|Google Chrome|.config/google-chrome|.config/google-chrome/NativeMessagingHosts|/etc/opt/chrome/native-messaging-hosts|.var/app/com.google.Chrome" \
            "chrome|Google Chrome Beta|.config/google-chrome-beta|.config/google-chrome-beta/NativeMessagingHosts||" \
            "chrome|Google Chrome Dev|.config/google-chrome-unstable|.config/google-chrome-unstable/NativeMessagingHosts||" \
            "chrome|Chromium|.config/chromium|.config/chromium/NativeMessagingHosts|/etc/chromium/native-messaging-hosts|.var/app/org.chromium.Chromium;snap/chromium" \
            "chrome|Microsoft Edge|.config/microsoft-edge|.config/microsoft-edge/NativeMessagingHosts|/etc/opt/edge/native-messaging-hosts|.var/app/com.microsoft.Edge" \
            "chrome|Brave|.config/BraveSoftware/Brave-Browser|.config/BraveSoftware/Brave-Browser/NativeMessagingHosts||.var/app/com.brave.Browser" \
            "chrome|Vivaldi|.config/vivaldi|.config/vivaldi/NativeMessagingHosts||.var/app/com.vivaldi.Vivaldi" \
            "firefox|Firefox (with Developer Edition, Nightly)|.mozilla;.config/mozilla;snap/firefox|.mozilla/native-messaging-hosts|/usr/lib/mozilla/native-messaging-hosts;/usr/lib64/mozilla/native-messaging-hosts|.var/app/org.mozilla.firefox" \
            "firefox|LibreWolf|.librewolf|.librewolf/native-messaging-hosts|/usr/lib/librewolf/native-messaging-hosts;/usr/lib64/librewolf/native-messaging-hosts|.var/app/io.gitlab.librewolf-community"
    fi
}

# Splits a ';'-separated list into the array listItems.
split_list() {
    listItems=()
    [ -z "$1" ] || IFS=';' read -r -a listItems <<<"$1"
}

# Sets existingFolder to the first folder of the list, under the home folder, that exists.
first_existing() {
    local folder
    split_list "$1"
    for folder in ${listItems[@]+"${listItems[@]}"}; do
        [ ! -d "$home/$folder" ] || { existingFolder="$home/$folder"; return 0; }
    done
    return 1
}

# Why a browser whose only profile is a sandboxed build's (under FOLDER) gets no manifest.
sandbox_note() {
    if [[ $1 == .var/app/* ]]; then
        echo "only its Flatpak build is in use ($home/$1), which cannot start a host installed outside its sandbox"
    else
        echo "only its Snap build is in use ($home/$1), which runs a host in its confinement, with a /tmp of its own away from the agent's socket"
    fi
}

json_string() {
    local text=${1//\\/\\\\}
    text=${text//\"/\\\"}
    printf '"%s"' "${text//$'\t'/\\t}"
}

# Prints the JSON array of its arguments, each put between PREFIX and SUFFIX.
json_array() {
    local prefix=$1 suffix=$2 separator="" item
    shift 2
    printf '['
    for item in "$@"; do
        printf '%s%s' "$separator" "$(json_string "$prefix$item$suffix")"
        separator=", "
    done
    printf ']'
}

# The line that names the executable, written the same way by install and looked for by uninstall.
path_line() {
    printf '    "path": %s,' "$(json_string "$executable")"
}

manifest() {
    local family=$1
    printf '{\n    "name": "%s",\n    "description": "%s",\n%s\n    "type": "stdio",\n' \
        "$HOST_NAME" "$DESCRIPTION" "$(path_line)"
    if [ "$family" = chrome ]; then
        printf '    "allowed_origins": %s\n}\n' "$(json_array chrome-extension:// / "${chromeIds[@]}")"
    else
        printf '    "allowed_extensions": %s\n}\n' "$(json_array "" "" "${firefoxIds[@]}")"
    fi
}

has_ids() {
    if [ "$1" = chrome ]; then
        [ "${#chromeIds[@]}" -gt 0 ]
    else
        [ "${#firefoxIds[@]}" -gt 0 ]
    fi
}

is_chrome_id() {
    [[ $1 =~ ^[a-p]{32}$ ]]
}

is_firefox_id() {
    [[ $1 =~ ^[A-Za-z0-9._-]*@[A-Za-z0-9._-]+$ ||
        $1 =~ ^\{[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\}$ ]]
}

# Creates FOLDER and notes in it how many folders, counted upwards from it, did not exist, so
# that uninstall removes exactly those. A folder that already exists keeps its note.
create_folder() {
    local folder=$1 missing=0
    while [ ! -d "$folder" ]; do
        missing=$((missing + 1))
        folder=$(dirname "$folder")
    done
    [ "$missing" -gt 0 ] || return 0
    mkdir -p "$1"
    echo "$missing" >"$1/$CREATED_RECORD"
}

# FAMILY NAME FOLDER
write_manifest() {
    create_folder "$3"
    manifest "$1" >"$3/$MANIFEST"
    echo "$2: wrote $3/$MANIFEST"
}

install_for_user() {
    local family=$1 name=$2 profiles=$3 folder=$4 sandboxed=$5
    if first_existing "$profiles" || [ "$all" = true ]; then
        write_manifest "$family" "$name" "$home/$folder"
    elif first_existing "$sandboxed"; then
        echo "$name: skipped, $(sandbox_note "${existingFolder#"$home/"}")"
    else
        echo "$name: skipped, no profile folder ($home/${profiles%%;*}; --all writes it anyway)"
    fi
}

install_for_system() {
    local family=$1 name=$2 folder
    [ -n "$3" ] || { echo "$name: reads the system folder of a browser above"; return 0; }
    split_list "$3"
    for folder in "${listItems[@]}"; do
        write_manifest "$family" "$name" "$root$folder"
    done
}

install_manifests() {
    local family name profiles userFolder systemFolders sandboxed
    if [ -n "$folder" ]; then
        write_manifest "$folderFamily" "$folder" "$folder"
        return 0
    fi
    while IFS='|' read -r family name profiles userFolder systemFolders sandboxed; do
        if ! has_ids "$family"; then
            echo "$name: skipped, no --$family-extension-id given"
        elif [ "$system" = true ]; then
            install_for_system "$family" "$name" "$systemFolders"
        else
            install_for_user "$family" "$name" "$profiles" "$userFolder" "$sandboxed"
        fi
    done < <(browsers)
}

# Removes the folders that create_folder made for a manifest folder, as far as they are empty.
# A folder still in use by another manifest gets the note of what is left to remove, for the
# removal that empties it; that removal goes on upwards from where its own note ends.
remove_created_folders() {
    local folder=$1 record="$1/$CREATED_RECORD" levels
    [ -f "$record" ] || return 0
    levels=$(cat "$record")
    rm -- "$record"
    while [ "$levels" -gt 0 ]; do
        rmdir "$folder" 2>/dev/null || { echo "$levels" >"$folder/$CREATED_RECORD"; return 0; }
        levels=$((levels - 1))
        folder=$(dirname "$folder")
    done
    remove_created_folders "$folder"
}

# NAME FOLDER
remove_manifest() {
    local file="$2/$MANIFEST"
    [ -f "$file" ] || return 0
    if grep -Fxq -- "$(path_line)" "$file"; then
        rm -- "$file"
        remove_created_folders "$2"
        echo "$1: removed $file"
    else
        echo "$1: left $file, it registers another executable"
    fi
}

# Prints each manifest folder of the scope that the arguments ask for, as NAME|FOLDER.
manifest_folders() {
    local family name profiles userFolder systemFolders sandboxed systemFolder
    if [ -n "$folder" ]; then
        echo "$folder|$folder"
        return 0
    fi
    while IFS='|' read -r family name profiles userFolder systemFolders sandboxed; do
        if [ "$system" = true ]; then
            split_list "$systemFolders"
            for systemFolder in ${listItems[@]+"${listItems[@]}"}; do
                echo "$name|$root$systemFolder"
            done
        else
            echo "$name|$home/$userFolder"
        fi
    done < <(browsers)
}

uninstall_manifests() {
    local name manifestFolder
    while IFS='|' read -r name manifestFolder; do
        remove_manifest "$name" "$manifestFolder"
    done < <(manifest_folders)
}

# What status understands of a manifest, without jq: the JSON this script writes, and JSON
# edited by hand. It takes the first of repeated keys and does not decode \u escapes.
readonly JSON_STRING='"(([^"\\]|\\.)*)"'
manifestText=""

# Sets unescaped to the JSON string content TEXT with its escapes undone.
unescape() {
    local rest=$1 pattern='^([^\\]*)\\(.)(.*)$'
    unescaped=""
    while [[ $rest =~ $pattern ]]; do
        unescaped+=${BASH_REMATCH[1]}${BASH_REMATCH[2]}
        rest=${BASH_REMATCH[3]}
    done
    unescaped+=$rest
}

# Sets unescaped to the string value of KEY in manifestText, or to nothing.
manifest_string() {
    local pattern="\"$1\"[[:space:]]*:[[:space:]]*$JSON_STRING"
    unescaped=""
    [[ $manifestText =~ $pattern ]] || return 0
    unescape "${BASH_REMATCH[1]}"
}

# Sets manifestStrings to the strings of the array KEY in manifestText.
manifest_strings() {
    local pattern="\"$1\"[[:space:]]*:[[:space:]]*\[([^]]*)\]" item="^[^\"]*$JSON_STRING(.*)$" rest
    manifestStrings=()
    [[ $manifestText =~ $pattern ]] || return 0
    rest=${BASH_REMATCH[1]}
    while [[ $rest =~ $item ]]; do
        rest=${BASH_REMATCH[3]}
        unescape "${BASH_REMATCH[1]}"
        manifestStrings+=("$unescaped")
    done
}

is_allowed_entry() {
    if [ "$1" = chrome ]; then
        [[ $2 == chrome-extension://*/ ]] && is_chrome_id "${2:19:${#2}-20}"
    else
        is_firefox_id "$2"
    fi
}

# Reads FILE, a manifest of the FAMILY, into manifestPath, pathIsExecutable, allowedIds,
# malformedIds and problems (empty when the manifest is sound).
inspect_manifest() {
    local family=$1 key=allowed_extensions id
    [ "$family" = firefox ] || key=allowed_origins
    read -r -d '' manifestText <"$2" || true
    pathIsExecutable=false malformedIds=() problems=()
    manifest_string name
    [ "$unescaped" = "$HOST_NAME" ] || problems+=("its name is not $HOST_NAME")
    manifest_string type
    [ "$unescaped" = stdio ] || problems+=("its type is not stdio")
    manifest_string path
    manifestPath=$unescaped
    if [[ $manifestPath == /* ]] && [ -f "$manifestPath" ] && [ -x "$manifestPath" ]; then
        pathIsExecutable=true
    else
        problems+=("its path is not an executable file: '$manifestPath'")
    fi
    manifest_strings "$key"
    allowedIds=(${manifestStrings[@]+"${manifestStrings[@]}"})
    [ "${#allowedIds[@]}" -gt 0 ] || problems+=("it allows no id in $key")
    for id in ${allowedIds[@]+"${allowedIds[@]}"}; do
        is_allowed_entry "$family" "$id" || { malformedIds+=("$id"); problems+=("malformed id: '$id'"); }
    done
}

# SCOPE FILE: prints what status found there, after inspect_manifest when the file exists.
report_manifest_text() {
    local problem
    if [ ! -f "$2" ]; then
        printf '  %-7s none: %s\n' "$1" "$2"
    elif [ "${#problems[@]}" -eq 0 ]; then
        printf '  %-7s sound: %s\n          runs %s, allows %s\n' "$1" "$2" "$manifestPath" \
            "${allowedIds[*]}"
    else
        printf '  %-7s BROKEN: %s\n' "$1" "$2"
        for problem in "${problems[@]}"; do
            printf '          %s\n' "$problem"
        done
    fi
}

report_manifest_json() {
    printf '%s\n      {"scope": "%s", "file": %s, "found": ' "$manifestSeparator" "$1" \
        "$(json_string "$2")"
    if [ ! -f "$2" ]; then
        printf 'false}'
    else
        printf 'true, "sound": %s, "path": %s, "pathIsExecutable": %s, "ids": %s, ' \
            "$([ "${#problems[@]}" -eq 0 ] && echo true || echo false)" \
            "$(json_string "$manifestPath")" "$pathIsExecutable" \
            "$(json_array "" "" ${allowedIds[@]+"${allowedIds[@]}"})"
        printf '"malformedIds": %s, "problems": %s}' \
            "$(json_array "" "" ${malformedIds[@]+"${malformedIds[@]}"})" \
            "$(json_array "" "" ${problems[@]+"${problems[@]}"})"
    fi
    manifestSeparator=,
}

# NAME FAMILY PROFILE NOTE: PROFILE is found, missing, sandboxed or unknown, NOTE says more.
report_browser_text() {
    echo "$1: profile $3${4:+: $4}"
}

report_browser_json() {
    [ -z "$browserSeparator" ] || printf '\n    ]},'
    printf '\n    {"name": %s, "family": "%s", "profile": "%s", "note": %s, "manifests": [' \
        "$(json_string "$1")" "$2" "$3" "$(json_string "$4")"
    browserSeparator=, manifestSeparator=""
}

report_end_text() {
    if [ "$allSound" = true ]; then
        echo "Every manifest found is sound."
    else
        echo "Some manifest is broken: the browser will not start the host from it."
    fi
}

report_end_json() {
    [ -z "$browserSeparator" ] || printf '\n    ]}'
    printf '\n  ],\n  "sound": %s\n}\n' "$allSound"
}

# FAMILY SCOPE FOLDER
check_manifest() {
    local file="$3/$MANIFEST"
    if [ -f "$file" ]; then
        inspect_manifest "$1" "$file"
        [ "${#problems[@]}" -eq 0 ] || allSound=false
    fi
    "report_manifest_$format" "$2" "$file"
}

# FAMILY NAME PROFILES USER-FOLDER SYSTEM-FOLDERS SANDBOXED
check_browser() {
    local profile note="" systemFolder
    if first_existing "$3"; then
        note=$existingFolder profile=found
    elif first_existing "$6"; then
        note=$(sandbox_note "${existingFolder#"$home/"}") profile=sandboxed
    else
        profile=missing
    fi
    "report_browser_$format" "$2" "$1" "$profile" "$note"
    check_manifest "$1" user "$home/$4"
    split_list "$5"
    for systemFolder in ${listItems[@]+"${listItems[@]}"}; do
        check_manifest "$1" system "$root$systemFolder"
    done
}

report_status() {
    local family name profiles userFolder systemFolders sandboxed
    allSound=true browserSeparator="" manifestSeparator=""
    [ "$format" = text ] || printf '{\n  "browsers": ['
    if [ -n "$folder" ]; then
        "report_browser_$format" "$folder" "$folderFamily" unknown ""
        check_manifest "$folderFamily" folder "$folder"
    else
        while IFS='|' read -r family name profiles userFolder systemFolders sandboxed; do
            check_browser "$family" "$name" "$profiles" "$userFolder" "$systemFolders" "$sandboxed"
        done < <(browsers)
    fi
    "report_end_$format"
    [ "$allSound" = true ]
}

take_value() {
    [ "$#" -ge 2 ] || fail "$1 needs a value"
}

validate_executable() {
    [ -n "$executable" ] || fail "--executable is required"
    [[ $executable == /* ]] || fail "the executable path must be absolute: $executable"
    [[ $executable != *[[:cntrl:]]* ]] || fail "the executable path contains a control character"
    if [ "$action" = install ] && { [ ! -f "$executable" ] || [ ! -x "$executable" ]; }; then
        fail "no executable file at $executable"
    fi
}

# The ${a[@]+...} form keeps bash 3.2, the one macOS ships, from calling an empty array unbound.
validate_ids() {
    local id
    for id in ${chromeIds[@]+"${chromeIds[@]}"}; do
        is_chrome_id "$id" || fail "malformed --chrome-extension-id (32 letters a to p): $id"
    done
    for id in ${firefoxIds[@]+"${firefoxIds[@]}"}; do
        is_firefox_id "$id" || fail "malformed --firefox-extension-id (name@domain or {GUID}): $id"
    done
}

# --folder names a folder of its own; --family says which manifest goes there.
validate_folder() {
    [ -n "$folder" ] || { [ -z "$folderFamily" ] || fail "--family goes with --folder"; return 0; }
    [[ $folder == /*[!/]* ]] || fail "the folder must be an absolute path below /: $folder"
    if [ "$system" = true ] || [ "$all" = true ]; then fail "--folder excludes --system and --all"; fi
    folder=${folder%/}
    [ "$action" = uninstall ] || [ "$folderFamily" = chrome ] || [ "$folderFamily" = firefox ] ||
        fail "--folder needs --family chrome or --family firefox"
    [ "$action" != install ] || has_ids "$folderFamily" ||
        fail "--family $folderFamily needs a --$folderFamily-extension-id"
}

# Writing into the system folders needs root, unless they stand under a MANIFEST_ROOT.
validate_system() {
    [ "$system" = true ] || return 0
    [ "$all" = false ] || fail "--system writes for every browser already; drop --all"
    [ -n "$root" ] || [ "$(id -u)" -eq 0 ] ||
        fail "--system writes into the system folders and needs root: run it with sudo"
}

validate_arguments() {
    local idCount=$((${#chromeIds[@]} + ${#firefoxIds[@]}))
    [ -n "$action" ] || fail "say install, uninstall or status"
    [[ ${HOME:-} == /* ]] || fail "HOME must be an absolute path"
    [[ -z $root || $root == /* ]] || fail "MANIFEST_ROOT must be an absolute path"
    [ "$json" = false ] || [ "$action" = status ] || fail "--json goes with status"
    if [ "$action" = status ]; then
        if [ -n "$executable" ] || [ "$idCount" -gt 0 ] || [ "$all" = true ] || [ "$system" = true ]; then
            fail "status takes only --json, --folder and --family"
        fi
    else
        validate_executable
    fi
    if [ "$action" = install ]; then
        [ "$idCount" -gt 0 ] ||
            fail "install needs at least one --chrome-extension-id or --firefox-extension-id"
        validate_ids
    elif [ "$idCount" -gt 0 ] || [ "$all" = true ]; then
        fail "$action takes no extension id and no --all"
    fi
    validate_folder
    validate_system
}

action="" executable="" all=false system=false folder="" folderFamily="" json=false
chromeIds=() firefoxIds=()
while [ "$#" -gt 0 ]; do
    case "$1" in
        -h | --help) usage; exit 0 ;;
        install | uninstall | status)
            [ -z "$action" ] || fail "give only one of install, uninstall and status"
            action=$1 ;;
        --executable) take_value "$@"; executable=$2; shift ;;
        --chrome-extension-id) take_value "$@"; chromeIds+=("$2"); shift ;;
        --firefox-extension-id) take_value "$@"; firefoxIds+=("$2"); shift ;;
        --folder) take_value "$@"; folder=$2; shift ;;
        --family) take_value "$@"; folderFamily=$2; shift ;;
        --all) all=true ;;
        --system) system=true ;;
        --json) json=true ;;
        *) fail "unknown argument: $1" ;;
    esac
    shift
done

root=${MANIFEST_ROOT:-}
root=${root%/}
platform=${MANIFEST_PLATFORM:-$(uname)}
validate_arguments
home=${HOME%/}
case "$action" in
    install) install_manifests ;;
    uninstall) uninstall_manifests ;;
    status)
        format=text
        [ "$json" = false ] || format=json
        report_status ;;
esac
