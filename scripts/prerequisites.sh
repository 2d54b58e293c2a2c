# Checks what building, testing and benchmarking the host need; installs what is missing with
# apt-get when run as root on Debian or Ubuntu, and otherwise says what to install and stops.
# Source it and call require_prerequisites.

# Whether a header is where compilers look by default (or where Homebrew puts it).
have_header() {
    local dir
    for dir in /usr/include /usr/local/include /opt/homebrew/include; do
        [ -f "$dir/$1" ] && return 0
    done
    return 1
}

# Whether clang can build a libFuzzer target with AddressSanitizer.
have_libfuzzer() {
    command -v clang++ >/dev/null || return 1
    local program='extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }'
    echo "$program" | clang++ -fsanitize=fuzzer,address -x c++ - -o /dev/null 2>/dev/null
}

# Prints the path of an LLVM tool, such as llvm-lipo, which Debian's llvm package keeps in its
# versioned folder rather than on PATH, and Xcode names without "llvm-"; fails when there is none.
llvm_tool() {
    command -v "$1" && return 0
    if [ "$(uname)" = Darwin ]; then
        command -v "${1#llvm-}"
    else
        ls /usr/lib/llvm-*/bin/"$1" 2>/dev/null | sort -V | tail -1 | grep .
    fi
}

# Prints the Debian packages that are missing (always nlohmann/json and CLI11, which the
# registration tool reads manifests and its command line with; header-only, so the macOS build
# takes them as they are); with "tests", also
# what the test suite needs; with "bench", also Google Benchmark and socat (one of the references
# the host is measured by); with "fuzz", also clang and its fuzzer runtime; with "macos", also
# what cross-building for macOS needs: npm (to fetch the Zig toolchain), llvm (llvm-objdump and
# llvm-lipo) and GoogleTest's sources; with "browsers", the browsers that the browser tests drive
# the host from, and strace, which records how the host ends; with "workflows", only npm, which
# brings the workflows' linter; with "hardening", also Debian's hardening-check.
missing_packages() {
    command -v cmake >/dev/null || echo cmake
    command -v make >/dev/null || echo make
    if [ "${1:-}" = workflows ]; then
        command -v npm >/dev/null || echo npm
        return 0
    fi
    have_header nlohmann/json.hpp || echo nlohmann-json3-dev
    have_header CLI/CLI.hpp || echo libcli11-dev
    if [ "${1:-}" = hardening ]; then
        command -v hardening-check >/dev/null || echo devscripts
    fi
    if [ "${1:-}" = macos ]; then
        command -v npm >/dev/null || echo npm
        command -v llvm-objdump >/dev/null || echo llvm
        [ -f /usr/src/googletest/CMakeLists.txt ] || echo googletest
        return 0
    fi
    { command -v c++ || command -v g++ || command -v clang++; } >/dev/null || echo g++
    if [ "${1:-}" = fuzz ]; then
        have_libfuzzer || echo clang libclang-rt-dev
        return 0
    fi
    if [ "${1:-}" = browsers ]; then
        command -v chromium >/dev/null || echo chromium
        command -v firefox-esr >/dev/null || echo firefox-esr
        command -v strace >/dev/null || echo strace
        return 0
    fi
    [ "${1:-}" = tests ] || [ "${1:-}" = bench ] || return 0
    have_header gtest/gtest.h || echo libgtest-dev
    command -v jq >/dev/null || echo jq
    command -v python3 >/dev/null || echo python3
    [ "${1:-}" = bench ] || return 0
    have_header benchmark/benchmark.h || echo libbenchmark-dev
    command -v socat >/dev/null || echo socat
}

# The Homebrew formulae that stand for the given Debian packages on a Mac, where the compiler,
# make and python3 come with Xcode's command line tools instead (xcode-select --install).
homebrew_formulae() {
    local package
    for package in "$@"; do
        case $package in
            g++ | make | python3) ;;
            libgtest-dev) echo googletest ;;
            libbenchmark-dev) echo google-benchmark ;;
            nlohmann-json3-dev) echo nlohmann-json ;;
            libcli11-dev) echo cli11 ;;
            clang | libclang-rt-dev) echo llvm ;;
            *) echo "$package" ;;
        esac
    done | sort -u | paste -sd ' ' -
}

# Whether require_prerequisites installs what is missing: as root, with apt-get.
can_install_packages() {
    [ "$(uname)" != Darwin ] && [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null
}

# Usage: require_prerequisites [tests|bench|fuzz|macos|browsers|workflows|hardening]
require_prerequisites() {
    local missing recommends=""
    # devscripts recommends dozens of packages, none of which hardening-check needs.
    [ "${1:-}" = hardening ] && recommends=--no-install-recommends
    missing=$(missing_packages "${1:-}" | sort -u | tr '\n' ' ')
    [ -z "${missing// /}" ] && return 0

    if [ "$(uname)" = Darwin ]; then
        # shellcheck disable=SC2086
        echo "Missing: $missing; install with: brew install $(homebrew_formulae $missing)" >&2
        echo "(the compiler, make and python3 come with Xcode's tools: xcode-select --install)" >&2
        exit 1
    fi
    if can_install_packages; then
        echo "Installing: $missing"
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        # shellcheck disable=SC2086
        apt-get install -y -qq $recommends $missing >/dev/null
        return 0
    fi
    echo "Missing: $missing" >&2
    echo "Install with: sudo apt-get install -y $missing" >&2
    exit 1
}
