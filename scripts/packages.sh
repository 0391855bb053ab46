# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
# shellcheck shell=bash disable=SC2034

# The packages that the scripts install. The scripts source this file.

# Building and starting the program.
build_packages=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-translations-l10n libgl1-mesa-dev libsodium-dev libssl-dev
)

# Building the Debian package.
package_packages=(
    "${build_packages[@]}"
    dpkg-dev file
)

# Running every test.
test_packages=(
    "${package_packages[@]}"
    ccache clang-format clang-tidy
    python3 python3-nacl
    argon2 strace e2fsprogs util-linux mount procps libsm-dev
    xvfb xauth openbox x11-utils xdotool imagemagick locales
    dbus at-spi2-core gir1.2-atspi-2.0 python3-pyatspi
    xdg-utils libglib2.0-bin desktop-file-utils appstream shared-mime-info man-db
    lintian fakeroot
    git reuse codespell shellcheck
    fonts-dejavu-core
)

# Fuzzing, see tests/fuzz/run.
fuzz_packages=(
    "${build_packages[@]}"
    ccache clang libclang-rt-dev
)

# Measuring and comparing with other programs, see benchmarks/compare.
benchmark_packages=(
    "${build_packages[@]}"
    ccache libbenchmark-dev python3
    age gocryptfs fuse3 7zip gnupg openssl
)

missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' ||
            printf '%s\n' "$package"
    done
}

# install_packages PACKAGE... installs those that are missing; without apt it prints their names and
# fails. With TESSEL_SKIP_PACKAGES set it assumes that all are installed.
install_packages() {
    [ -n "${TESSEL_SKIP_PACKAGES:-}" ] && return 0
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        printf 'This system has no apt. Install what these Debian packages hold, then run again\n'
        printf 'with TESSEL_SKIP_PACKAGES=1:\n'
        printf '  %s\n' "$@"
        return 1
    fi
    local missing
    mapfile -t missing < <(missing_packages "$@")
    [ "${#missing[@]}" -eq 0 ] && return 0
    printf 'Installing: %s\n' "${missing[*]}"
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# configure PRESET [ARGUMENT...] configures build/PRESET.
configure() {
    local preset=$1
    shift
    local launcher=()
    if command -v ccache >/dev/null; then
        # ccache takes precompiled headers only when it may overlook their time stamps.
        local sloppy=CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        launcher=("-DCMAKE_CXX_COMPILER_LAUNCHER=env;CCACHE_DEPEND=1;$sloppy;ccache")
        # Clones of the same sources share the compiled objects.
        export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
    fi
    cmake --preset "$preset" "${launcher[@]}" "$@" >"build/configure-$preset.log" 2>&1 ||
        { cat "build/configure-$preset.log"; return 1; }
}
