#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/deps.sh          compiler, CMake, GoogleTest, Google Benchmark, pkg-config,
#                            nlohmann JSON (header-only, for the JSON converter module)
#   scripts/deps.sh m32      the same, plus the 32-bit compiler (g++-multilib)
#   scripts/deps.sh fuzz     the same, plus clang and its libFuzzer/sanitizer runtimes
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
