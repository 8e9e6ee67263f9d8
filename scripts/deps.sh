#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/deps.sh          compiler, CMake, GoogleTest, Google Benchmark, pkg-config,
#                            nlohmann JSON (header-only, for the JSON converter module)
#   scripts/deps.sh m32      the same, plus the 32-bit compiler (g++-multilib)
#   scripts/deps.sh fuzz     the same, plus clang and its libFuzzer/sanitizer runtimes
#   scripts/deps.sh windows  the same, plus the MinGW-w64 i686 cross compiler and Wine
#                            (32-bit, from the i386 architecture). When the package
#                            archive is at fault, it prints "SKIPPED: windows: <reason>"
#                            and exits 3.
set -euo pipefail

packages=(g++ make cmake pkg-config libgtest-dev googletest libbenchmark-dev nlohmann-json3-dev)
case "${1:-}" in
    m32) packages+=(g++-multilib) ;;
    fuzz) packages+=(clang) ;;
esac

installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

install_missing() {
    local missing=() package
    for package in "$@"; do
        installed "$package" || missing+=("$package")
    done
    [[ ${#missing[@]} -eq 0 ]] && return 0

    echo "Installing missing packages: ${missing[*]}"
    local sudo=()
    if [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || { echo "need root or sudo to install ${missing[*]}" >&2; exit 1; }
        sudo=(sudo)
    fi
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

install_missing "${packages[@]}"

# libFuzzer comes with clang's runtime package, named after clang's major
# version (libclang-rt-<major>-dev); older releases ship it inside
# libclang-common-<major>-dev, which clang already depends on.
if [[ "${1:-}" == fuzz ]]; then
    major="$(clang -dumpversion | cut -d. -f1)"
    if apt-cache show "libclang-rt-$major-dev" >/dev/null 2>&1; then
        install_missing "libclang-rt-$major-dev"
    fi
fi

# The Windows build's tools. Wine's 32-bit half comes from the i386
# architecture, which is added when missing. A failure to install that is the
# archive's fault (an index or package that cannot be fetched or does not
# match, a mirror in the middle of a sync) is told apart from others, so that
# CI can go on without the Windows build.
if [[ "${1:-}" == windows ]]; then
    windows=(g++-mingw-w64-i686-posix wine wine32:i386)
    missing=()
    for package in "${windows[@]}"; do
        installed "$package" || missing+=("$package")
    done
    [[ ${#missing[@]} -eq 0 ]] && exit 0

    sudo=()
    [[ $(id -u) -ne 0 ]] && sudo=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    log="$(mktemp)"
    trap 'rm -f "$log"' EXIT
    archive_fault='Failed to fetch|Hash Sum mismatch|unexpected size|Mirror sync in progress|'
    archive_fault+='Unable to locate package|has no installation candidate|Unable to fetch|'
    archive_fault+='Temporary failure resolving|Could not resolve|Could not connect|404 +Not Found'
    skip_if_archive() {
        if grep -Eq "$archive_fault" "$log"; then
            echo "SKIPPED: windows: the package archive failed: $(grep -Em1 "$archive_fault" "$log")"
            exit 3
        fi
        cat "$log" >&2
        exit 1
    }
    echo "Installing missing packages: ${missing[*]}"
    if ! dpkg --print-foreign-architectures | grep -qx i386; then
        "${sudo[@]}" dpkg --add-architecture i386
    fi
    # A failed index of one architecture or suite need not stop the install:
    # the install below says whether what it needs could be had.
    "${sudo[@]}" apt-get update -qq || true
    if ! "${sudo[@]}" apt-get install -y -qq --no-install-recommends -t bookworm \
            "${missing[@]}" >"$log" 2>&1; then
        skip_if_archive
    fi
fi
