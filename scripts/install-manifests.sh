#!/usr/bin/env bash
# Registers the host with this user's browsers by writing its native messaging manifest where
# each browser looks for it, or removes what an earlier install wrote.
set -euo pipefail

readonly HOST_NAME=com.quorvel.nativemessagehost
readonly DESCRIPTION="Quorvel native messaging host"
readonly CREATED_RECORD=".$HOST_NAME.created"
readonly SCRIPT=${0##*/}

usage() {
    cat <<EOF
Usage: $SCRIPT install --executable PATH [--chrome-extension-id ID]...
                           [--firefox-extension-id ID]... [--all]
       $SCRIPT uninstall --executable PATH
       $SCRIPT --help

install    writes $HOST_NAME.json for Google Chrome, Chromium, Microsoft Edge and
           Brave when a --chrome-extension-id is given, and for Firefox when a
           --firefox-extension-id is given; only for browsers whose profile folder
           exists in this user's home folder, or for all of them with --all.
uninstall  removes the manifests whose executable is PATH, and the folders that
           install created for them.

--executable PATH           absolute path of the installed QuorvelNativeMessageHost
--chrome-extension-id ID    32 letters a to p; may be repeated
--firefox-extension-id ID   an id like name@domain or a {GUID}; may be repeated
--all                       write for every browser, even one without a profile folder
EOF
}

fail() {
    echo "$SCRIPT: $*" >&2
    echo "Run '$SCRIPT --help' for usage." >&2
    exit 2
}

# One line per browser: family|name|profile folder|manifest folder, both under the home folder.
browsers() {
    if [ "$(uname)" = Darwin ]; then
        local support="Library/Application Support"
        printf '%s\n' \
            "chrome|Google Chrome|$support/Google/Chrome|$support/Google/Chrome/NativeMessagingHosts" \
            "chrome|Chromium|$support/Chromium|$support/Chromium/NativeMessagingHosts" \
            "chrome|Microsoft Edge|$support/Microsoft Edge|$support/Microsoft Edge/NativeMessagingHosts" \
            "chrome|Brave|$support/BraveSoftware/Brave-Browser|$support/BraveSoftware/Brave-Browser/NativeMessagingHosts" \
            "firefox|Firefox|$support/Firefox|$support/Mozilla/NativeMessagingHosts"
    else
        printf '%s\n' \
            "chrome|Google Chrome|.config/google-chrome|.config/google-chrome/NativeMessagingHosts" \
            "chrome|Chromium|.config/chromium|.config/chromium/NativeMessagingHosts" \
            "chrome|Microsoft Edge|.config/microsoft-edge|.config/microsoft-edge/NativeMessagingHosts" \
            "chrome|Brave|.config/BraveSoftware/Brave-Browser|.config/BraveSoftware/Brave-Browser/NativeMessagingHosts" \
            "firefox|Firefox|.mozilla|.mozilla/native-messaging-hosts"
    fi
}

json_string() {
    local text=${1//\\/\\\\}
    printf '"%s"' "${text//\"/\\\"}"
}

# Prints the JSON array of its arguments, each put between PREFIX and SUFFIX.
json_array() {
    local prefix=$1 suffix=$2 separator="" item
    shift 2
    printf '['
    for item in "$@"; do
        printf '%s"%s%s%s"' "$separator" "$prefix" "$item" "$suffix"
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

install_manifests() {
    local family name profile folder
    while IFS='|' read -r family name profile folder; do
        if ! has_ids "$family"; then
            echo "$name: skipped, no --$family-extension-id given"
        elif [ "$all" = false ] && [ ! -d "$home/$profile" ]; then
            echo "$name: skipped, $home/$profile does not exist (--all writes it anyway)"
        else
            create_folder "$home/$folder"
            manifest "$family" >"$home/$folder/$HOST_NAME.json"
            echo "$name: wrote $home/$folder/$HOST_NAME.json"
        fi
    done < <(browsers)
}

# Removes the folders that create_folder made for a manifest folder, as far as they are empty.
remove_created_folders() {
    local folder=$1 record="$1/$CREATED_RECORD" levels
    [ -f "$record" ] || return 0
    levels=$(cat "$record")
    rm -- "$record"
    while [ "$levels" -gt 0 ] && rmdir "$folder" 2>/dev/null; do
        levels=$((levels - 1))
        folder=$(dirname "$folder")
    done
}

uninstall_manifests() {
    local family name profile folder file
    while IFS='|' read -r family name profile folder; do
        file="$home/$folder/$HOST_NAME.json"
        [ -f "$file" ] || continue
        if grep -Fxq -- "$(path_line)" "$file"; then
            rm -- "$file"
            remove_created_folders "$home/$folder"
            echo "$name: removed $file"
        else
            echo "$name: left $file, it registers another executable"
        fi
    done < <(browsers)
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
        [[ $id =~ ^[a-p]{32}$ ]] || fail "malformed --chrome-extension-id (32 letters a to p): $id"
    done
    for id in ${firefoxIds[@]+"${firefoxIds[@]}"}; do
        [[ $id =~ ^[A-Za-z0-9._-]*@[A-Za-z0-9._-]+$ ||
            $id =~ ^\{[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\}$ ]] ||
            fail "malformed --firefox-extension-id (name@domain or {GUID}): $id"
    done
}

validate_arguments() {
    local idCount=$((${#chromeIds[@]} + ${#firefoxIds[@]}))
    [ -n "$action" ] || fail "say install or uninstall"
    [[ ${HOME:-} == /* ]] || fail "HOME must be an absolute path"
    validate_executable
    if [ "$action" = install ]; then
        [ "$idCount" -gt 0 ] ||
            fail "install needs at least one --chrome-extension-id or --firefox-extension-id"
        validate_ids
    elif [ "$idCount" -gt 0 ] || [ "$all" = true ]; then
        fail "uninstall takes only --executable"
    fi
}

action="" executable="" all=false
chromeIds=() firefoxIds=()
while [ "$#" -gt 0 ]; do
    case "$1" in
        -h | --help) usage; exit 0 ;;
        install | uninstall)
            [ -z "$action" ] || fail "give only one of install and uninstall"
            action=$1 ;;
        --executable) take_value "$@"; executable=$2; shift ;;
        --chrome-extension-id) take_value "$@"; chromeIds+=("$2"); shift ;;
        --firefox-extension-id) take_value "$@"; firefoxIds+=("$2"); shift ;;
        --all) all=true ;;
        *) fail "unknown argument: $1" ;;
    esac
    shift
done

validate_arguments
home=${HOME%/}
if [ "$action" = install ]; then
    install_manifests
else
    uninstall_manifests
fi
