#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/deps.sh          compiler, CMake, GoogleTest, Google Benchmark, pkg-config,
#                            nlohmann JSON (header-only, for the JSON converter module),
#                            CLI11 (header-only, the tavlo command's option parsing),
#                            zlib (the log readers' BLF containers), python3-can (an
#                            outside writer of ASC, BLF and TRC logs for their tests),
#                            ncurses (tavlo monitor's terminal view), tmux (the
#                            terminal its test drives) and pybind11, Python's headers,
#                            NumPy, pandas, Dask and pytest (the Python package and its
#                            tests), venv, pip, setuptools and wheel (pip install of the
#                            package, tested in a virtual environment)
#   scripts/deps.sh m32      the same, plus the 32-bit compiler (g++-multilib) and its zlib
#   scripts/deps.sh fuzz     the same, plus clang and its libFuzzer/sanitizer runtimes
#   scripts/deps.sh windows  the same, plus the MinGW-w64 i686 cross compiler, its zlib
#                            and Wine (32-bit, from the i386 architecture)
# The first two are needed by the core tests: any failure to install exits 1.
# fuzz and windows are optional groups: when the package archive keeps their
# packages from being installed, it prints "SKIPPED: <group>: <reason>" and
# exits 3, and the callers skip that step and succeed.
set -euo pipefail

group="${1:-}"
case "$group" in
    ""|m32|fuzz|windows) ;;
    *) echo "usage: scripts/deps.sh [m32|fuzz|windows]" >&2; exit 2 ;;
esac
core=(g++ make cmake pkg-config libgtest-dev googletest libbenchmark-dev nlohmann-json3-dev
      libcli11-dev zlib1g-dev python3-can libncurses-dev tmux
      pybind11-dev python3-dev python3-numpy python3-pandas python3-dask python3-distributed
      python3-pytest python3-venv python3-pip python3-setuptools python3-wheel)
# The 32-bit zlib of the multilib compiler (/usr/lib32): zlib1g-dev:i386 would
# do as well, but drags in the i386 C library headers, whose version must
# match the amd64 ones to the last security update. (No 32-bit ncurses: the
# 32-bit build makes tavlo without the monitor's view.)
[[ "$group" == m32 ]] && core+=(g++-multilib lib32z1-dev)

installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

sudo=()
export DEBIAN_FRONTEND=noninteractive
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
update_log="$work/update.log"
install_log="$work/install.log"
: >"$update_log"

# Runs a command with its output shown and kept in a file; its exit status.
logged() {
    local log="$1"
    shift
    "${sudo[@]}" "$@" 2>&1 | tee "$log"
    return "${PIPESTATUS[0]}"
}

# What an install says when the archive is at fault (a package that cannot be
# fetched or does not match, a mirror in the middle of a sync).
install_fault='Failed to fetch|Hash Sum mismatch|unexpected size|Mirror sync in progress|'
install_fault+='Unable to locate package|has no installation candidate|Unable to fetch|'
install_fault+='Temporary failure resolving|Could not resolve|Could not connect|404 +Not Found'
updated=no

# install_group GROUP [--apt-option] PACKAGE...: installs the packages that are
# missing (a package of another architecture, such as wine32:i386, adds that
# architecture first). For the group "core" any failure exits 1; for another
# group a failure that is the archive's fault skips it (exit 3).
install_group() {
    local name="$1" options=() missing=() package
    shift
    for package in "$@"; do
        if [[ "$package" == -* ]]; then
            options+=("$package")
        elif ! installed "$package"; then
            missing+=("$package")
        fi
    done
    [[ ${#missing[@]} -eq 0 ]] && return 0

    echo "Installing missing packages: ${missing[*]}"
    if [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || { echo "need root or sudo to install ${missing[*]}" >&2; exit 1; }
        sudo=(sudo)
    fi
    for package in "${missing[@]}"; do
        local arch="${package#*:}"
        if [[ "$package" == *:* && "$arch" != "$(dpkg --print-architecture)" ]] &&
                ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
            "${sudo[@]}" dpkg --add-architecture "$arch"
            updated=no
        fi
    done
    if [[ $updated == no ]]; then
        logged "$update_log" apt-get update -q || true
        updated=yes
    fi
    logged "$install_log" apt-get install -y -qq --no-install-recommends "${options[@]}" \
        "${missing[@]}" && return 0

    # A fetch failure apt-get update reported (it went on: a failed index of
    # one architecture or suite need not stop an install) makes a failed
    # install the archive's fault; the line that names the cause first.
    local failed fault
    failed="$(grep -m1 '^E:' "$install_log" || echo "apt-get install failed")"
    fault="$( { grep -E '^[WE]: (Failed to fetch|Some index files failed to download)' "$update_log"
                grep '^Err:' "$update_log"
                grep -E "$install_fault" "$install_log"; } | head -1 || true)"
    if [[ "$name" != core && -n "$fault" ]]; then
        echo "SKIPPED: $name: $failed; the package archive is at fault: $fault"
        exit 3
    fi
    echo "deps.sh: could not install ${missing[*]}: $failed${fault:+; $fault}" >&2
    exit 1
}

install_group core "${core[@]}"

# libFuzzer comes with clang's runtime package, named after clang's major
# version (libclang-rt-<major>-dev); older releases ship it inside
# libclang-common-<major>-dev, which clang already depends on. Whether it is
# there is told by linking a fuzzer, not by asking an index that may have
# failed.
if [[ "$group" == fuzz ]]; then
    install_group fuzz clang
    if ! echo 'int LLVMFuzzerTestOneInput(const char* d, unsigned long n) { return d && n; }' |
            clang -x c -fsanitize=fuzzer,address,undefined - -o "$work/fuzzer" 2>/dev/null; then
        install_group fuzz "libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
    fi
fi

# The Windows build's tools; Wine's 32-bit half comes from the i386 architecture.
if [[ "$group" == windows ]]; then
    install_group windows --target-release=bookworm g++-mingw-w64-i686-posix libz-mingw-w64-dev \
        wine wine32:i386
fi
