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

have_nss_wrapper() {
    local library
    for library in /usr/lib/libnss_wrapper.so /usr/lib/*/libnss_wrapper.so /usr/local/lib/libnss_wrapper.so; do
        [ -f "$library" ] && return 0
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
# versioned folder rather than on PATH; fails when there is none.
llvm_tool() {
    command -v "$1" || { ls /usr/lib/llvm-*/bin/"$1" 2>/dev/null | sort -V | tail -1; }
}

# Prints the Debian packages that are missing (always nlohmann/json, which the registration tool
# reads manifests with; header-only, so the macOS build takes it as it is); with "tests", also what
# the test suite needs;
# with "bench", also Google Benchmark and socat (one of the references the host is measured by);
# with "fuzz", also clang and its fuzzer runtime; with "macos", also what cross-building for macOS
# needs: npm (to fetch the Zig toolchain), llvm (llvm-objdump and llvm-lipo) and GoogleTest's
# sources; with "browsers", the browsers that the browser tests drive the host from, and strace,
# which records how the host ends.
missing_packages() {
    command -v cmake >/dev/null || echo cmake
    command -v make >/dev/null || echo make
    have_header nlohmann/json.hpp || echo nlohmann-json3-dev
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
    if [ "$(uname)" != Darwin ]; then
        have_nss_wrapper || echo libnss-wrapper
    fi
    [ "${1:-}" = bench ] || return 0
    have_header benchmark/benchmark.h || echo libbenchmark-dev
    command -v socat >/dev/null || echo socat
}

# Usage: require_prerequisites [tests|bench|fuzz|macos|browsers]
require_prerequisites() {
    local missing
    missing=$(missing_packages "${1:-}" | sort -u | tr '\n' ' ')
    [ -z "${missing// /}" ] && return 0

    if [ "$(uname)" = Darwin ]; then
        echo "Missing: $missing" >&2
        echo "Install with: brew install cmake nlohmann-json googletest jq google-benchmark socat" >&2
        echo "(fuzzing also needs a clang with libFuzzer: brew install llvm)" >&2
        echo "(nss_wrapper is not available on macOS; tests that need a fake user entry skip.)" >&2
        exit 1
    fi
    if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
        echo "Installing: $missing"
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        # shellcheck disable=SC2086
        apt-get install -y -qq $missing >/dev/null
        return 0
    fi
    echo "Missing: $missing" >&2
    echo "Install with: sudo apt-get install -y $missing" >&2
    exit 1
}
