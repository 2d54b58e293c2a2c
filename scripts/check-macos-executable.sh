#!/usr/bin/env bash
# Checks that a file is an executable that macOS 11 runs, slice by slice: a Mach-O executable for
# exactly the given architectures, each with minimum OS 11.0, a code signature (arm64 macOS
# refuses unsigned code; ad hoc is enough) and no library linked but the system's. Says what is
# wrong and fails otherwise. Needs llvm-objdump and llvm-lipo (Debian package llvm).
# Usage: scripts/check-macos-executable.sh FILE ARCH...   (ARCH: arm64 or x86_64)
set -euo pipefail

if [ $# -lt 2 ]; then
    echo "Usage: scripts/check-macos-executable.sh FILE ARCH...   (ARCH: arm64 or x86_64)" >&2
    exit 2
fi
file=$1
shift
source "$(dirname "$0")/prerequisites.sh"
lipo=$(llvm_tool llvm-lipo) || { echo "llvm-lipo not found (Debian package llvm)" >&2; exit 1; }

sorted() {
    tr ' ' '\n' | grep . | sort | paste -sd ' '
}

# Prints what is wrong with one slice of the file, from its Mach-O header and load commands.
slice_problems() {
    llvm-objdump --macho --private-headers --arch="$1" "$file" | awk -v arch="$1" '
        /^ *magic +cputype/ { getline; cputype = $2; filetype = $5 }
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
            if (filetype != "EXECUTE") print "file type is " filetype ", not EXECUTE (an executable)"
            if (platform != "macos") print "platform is \"" platform "\" (LC_BUILD_VERSION), not macos"
            if (minos != "11.0") print "minimum macOS is \"" minos "\" (LC_BUILD_VERSION), not 11.0"
            if (signature + 0 == 0) print "no code signature (LC_CODE_SIGNATURE; arm64 macOS refuses unsigned code)"
        }'
}

if ! archs=$("$lipo" -archs "$file" 2>&1); then
    echo "$file: not a Mach-O file (llvm-lipo cannot read it)" >&2
    exit 1
fi
if [ "$(sorted <<<"$archs")" != "$(sorted <<<"$*")" ]; then
    echo "$file: architectures are $(sorted <<<"$archs"), not $(sorted <<<"$*")" >&2
    exit 1
fi
failed=0
for arch in "$@"; do
    problems=$(slice_problems "$arch")
    if [ -n "$problems" ]; then
        awk -v prefix="$file ($arch): " '{ print prefix $0 }' <<<"$problems" >&2
        failed=1
    else
        echo "$file ($arch): Mach-O executable for macOS 11.0, signed, links only the system"
    fi
done
exit "$failed"
