#!/usr/bin/env bash
# Builds the library and runs every test.
#   scripts/test.sh [release]   Release build (-O2), the default
#   scripts/test.sh sanitize    AddressSanitizer + UndefinedBehaviorSanitizer, leaks checked
#   scripts/test.sh m32         32-bit build (-m32): the record layouts with 4-byte pointers
#   scripts/test.sh windows     32-bit Windows build (MinGW-w64), tests run under Wine; prints
#                               "SKIPPED: windows: ..." and succeeds when the package archive
#                               keeps the cross compiler or Wine from being installed
# Build trees go to build/<mode>. Missing Debian packages are installed first
# (scripts/deps.sh: exit status 3 is an optional step skipped, having said why).
set -euo pipefail
cd "$(dirname "$0")/.."

mode="${1:-release}"
jobs="$(nproc 2>/dev/null || echo 2)"
case "$mode" in
    release|sanitize) group= ;;
    m32|windows) group="$mode" ;;
    *) echo "usage: scripts/test.sh [release|sanitize|m32|windows]" >&2; exit 2 ;;
esac
status=0
scripts/deps.sh $group || status=$?
[[ $status -eq 3 ]] && exit 0
[[ $status -eq 0 ]] || exit "$status"

case "$mode" in
    release)
        options=(-DCMAKE_BUILD_TYPE=Release)
        ;;
    sanitize)
        options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVLOMS_SANITIZERS=ON -DTAVLOMS_BUILD_BENCH=OFF)
        export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1"
        export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
        ;;
    m32)
        options=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32
                 -DTAVLOMS_GTEST_FROM_SOURCE=ON -DTAVLOMS_BUILD_BENCH=OFF)
        ;;
    windows)
        options=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-i686.cmake" -DCMAKE_BUILD_TYPE=Release
                 -DTAVLOMS_GTEST_FROM_SOURCE=ON -DTAVLOMS_BUILD_BENCH=OFF)
        # A Wine of the build's own, started once for all tests and stopped
        # afterwards.
        export WINEPREFIX="$PWD/build/$mode/wine"
        export WINEDEBUG=-all
        mkdir -p "$WINEPREFIX"
        wineserver -p
        trap 'wineserver -k 2>/dev/null || true' EXIT
        wine wineboot >/dev/null 2>&1
        ;;
esac

build="build/$mode"
echo "== $mode: configuring $build"
cmake -S . -B "$build" "${options[@]}" >/dev/null
echo "== $mode: building"
cmake --build "$build" -j "$jobs"
echo "== $mode: testing"
ctest --test-dir "$build" -j "$jobs" --output-on-failure
