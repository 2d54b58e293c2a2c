#!/usr/bin/env bash
# Checks that a file is an executable that macOS 11 runs, slice by slice: a Mach-O executable for
# exactly the given architectures, each with minimum OS 11.0, a code signature (arm64 macOS
# refuses unsigned code; ad hoc is enough) and no library linked but the system's. With
# --interposes, the file is instead a dynamic library that replaces exactly the given functions
# through dyld interposing (its __interpose section), as the tests' fake user library does.
# Says what is wrong and fails otherwise. Needs llvm-objdump and llvm-lipo (Debian package llvm;
# on a Mac, Xcode's objdump and lipo).
# Usage: scripts/check-macos-executable.sh [--interposes FUNCTION]... FILE ARCH...
#        (ARCH: arm64 or x86_64)
set -euo pipefail

usage="Usage: scripts/check-macos-executable.sh [--interposes FUNCTION]... FILE ARCH...   (ARCH: arm64 or x86_64)"
interposed=()
while [ "${1:-}" = --interposes ] && [ $# -gt 1 ]; do
    interposed+=("$2")
    shift 2
done
if [ $# -lt 2 ]; then
    echo "$usage" >&2
    exit 2
fi
file=$1
shift
filetype=EXECUTE kind="Mach-O executable"
if [ ${#interposed[@]} -gt 0 ]; then
    filetype=DYLIB kind="Mach-O dynamic library"
fi
source "$(dirname "$0")/prerequisites.sh"
lipo=$(llvm_tool llvm-lipo) || { echo "llvm-lipo not found (Debian package llvm)" >&2; exit 1; }
objdump=$(llvm_tool llvm-objdump) || { echo "llvm-objdump not found (Debian package llvm)" >&2; exit 1; }

# The words of standard input in order, one space apart; fails when there are none. BSD paste
# needs its file operand.
sorted() {
    tr ' ' '\n' | grep . | sort | paste -sd ' ' -
}

# Whether two lists hold the same words, neither of them empty: a tool whose answer is empty
# must not pass for one that agrees.
same_words() {
    local first second
    first=$(sorted <<<"$1") && second=$(sorted <<<"$2") && [ "$first" = "$second" ]
}

# Prints what is wrong with one slice of the file, from its Mach-O header and load commands.
slice_problems() {
    "$objdump" --macho --private-headers --arch="$1" "$file" | awk -v arch="$1" -v filetype="$filetype" '
        /^ *magic +cputype/ { getline; cputype = $2; type = $5 }
        $1 == "cmd" { command = $2 }
        command == "LC_BUILD_VERSION" && $1 == "platform" { platform = $2 }
        command == "LC_BUILD_VERSION" && $1 == "minos" { minos = $2 }
        command == "LC_CODE_SIGNATURE" && $1 == "datasize" { signature = $2 }
        command ~ /^LC_(LOAD|LOAD_WEAK|REEXPORT|LAZY_LOAD|LOAD_UPWARD)_DYLIB$/ && $1 == "name" {
            library = $0
            sub(/^ *name /, "", library)
            sub(/ \(offset [0-9]+\)$/, "", library)
            if (library != "/usr/lib/libSystem.B.dylib" && library != "/usr/lib/libc++.1.dylib")
                print "links " library ", which is not a library of the system"
        }
        END {
            wanted = arch == "arm64" ? "ARM64" : "X86_64"
            if (cputype != wanted) print "CPU type is " cputype ", not " wanted
            if (type != filetype) print "file type is " type ", not " filetype
            if (platform != "macos") print "platform is \"" platform "\" (LC_BUILD_VERSION), not macos"
            if (minos != "11.0") print "minimum macOS is \"" minos "\" (LC_BUILD_VERSION), not 11.0"
            if (signature + 0 == 0) print "no code signature (LC_CODE_SIGNATURE; arm64 macOS refuses unsigned code)"
        }'
    [ ${#interposed[@]} -eq 0 ] && return 0
    local replaced
    replaced=$("$objdump" --macho --bind --arch="$1" "$file" |
        awk '$2 == "__interpose" { sub(/^_/, "", $NF); print $NF }')
    if ! same_words "$replaced" "${interposed[*]}"; then
        echo "interposes \"${replaced//$'\n'/ }\" (__interpose section), not \"${interposed[*]}\""
    fi
}

if ! archs=$("$lipo" -archs "$file" 2>&1); then
    echo "$file: not a Mach-O file (llvm-lipo cannot read it)" >&2
    exit 1
fi
if ! same_words "$archs" "$*"; then
    echo "$file: architectures are \"$(sorted <<<"$archs")\", not \"$*\"" >&2
    exit 1
fi
failed=0
for arch in "$@"; do
    problems=$(slice_problems "$arch")
    if [ -n "$problems" ]; then
        awk -v prefix="$file ($arch): " '{ print prefix $0 }' <<<"$problems" >&2
        failed=1
    else
        echo "$file ($arch): $kind for macOS 11.0, signed, links only the system${interposed[*]:+, interposes ${interposed[*]}}"
    fi
done
exit "$failed"
