#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian packages into this machine, builds the legacy caller
# against /usr as a user would (the example's two CMake lines, then
# pkg-config), runs it, checks that the manual pages resolve, and purges the
# packages again, checking that no file they installed is left. Needs root
# (or sudo) for dpkg; installing must not fail without systemd as PID 1.
#
#   install-and-build.sh PACKAGE_DIR
set -euo pipefail
package_dir=$(realpath "$1")
source_dir=$(realpath "$(dirname "$0")/../..")
# Dependants first, so that each removal leaves the others consistent.
packages=(tessivad tessiva libtessiva-dev libtessiva1)

sudo_cmd=()
[[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
fail() { echo "packages: $*" >&2; exit 1; }

# Whether dpkg holds anything of the package: installed, half-installed or
# its configuration files.
is_present() {
    dpkg-query -W -f='${db:Status-Abbrev}' "$1" 2>/dev/null | grep -q '^.[^n]'
}

# Purges whatever of ours is present, left by an earlier run that stopped
# midway as much as by this one.
purge() {
    local present=()
    for package in "${packages[@]}"; do
        if is_present "$package"; then present+=("$package"); fi
    done
    ((${#present[@]} == 0)) || "${sudo_cmd[@]}" dpkg --purge "${present[@]}" >/dev/null
}

work=$(mktemp -d)
trap 'purge; rm -rf "$work"' EXIT
purge

debs=()
for package in "${packages[@]}"; do
    deb=("$package_dir/${package}"_*.deb)
    [[ -f ${deb[0]} ]] || fail "no ${package}_*.deb in $package_dir"
    debs+=("${deb[0]}")
done

"${sudo_cmd[@]}" dpkg -i "${debs[@]}" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log" >&2; fail "dpkg -i failed"; }
echo "packages: installed ${packages[*]}"
# What the packages put on the machine, to look for after the purge.
dpkg-query -L "${packages[@]}" | sort -u >"$work/installed"

# Whole listings, not grep -q: an early exit would fail the pipe.
in_linker_cache() { ldconfig -p | grep "$1" >/dev/null; }
in_linker_cache 'libTessiva\.so\.1 ' || fail "libTessiva.so.1 is not in the linker cache"
version=$(/usr/bin/tessiva --version)
[[ $version == "tessiva $(dpkg-query -W -f='${Version}' tessiva | cut -d- -f1)"* ]] ||
    fail "tessiva --version does not match the package's version: $version"

# The example's output, up to its last line, with the service's default passcode.
expect_session() {
    local output
    output=$(env -u TESSIVA_PASSCODE -u TESSIVA_SERVICE "$1" 2>&1) || fail "$1 failed: $output"
    grep -q '^UsedPasscode: 1$' <<<"$output" || fail "$1 printed: $output"
}

# CMake: nothing but the example's own lines; /usr is searched by default.
if ! { cmake -S "$source_dir/examples/legacy_caller" -B "$work/cmake" -G Ninja &&
       cmake --build "$work/cmake"; } >"$work/cmake.log" 2>&1; then
    cat "$work/cmake.log" >&2
    fail "the CMake build failed"
fi
expect_session "$work/cmake/legacy_caller"
echo "packages: built and ran the legacy caller with find_package"

# pkg-config, with the machine's own search path.
read -r -a flags <<<"$(pkg-config --cflags --libs tessiva)"
g++ -std=c++20 "$source_dir/examples/legacy_caller/main.cpp" "${flags[@]}" -o "$work/pkg_config_caller"
expect_session "$work/pkg_config_caller"
echo "packages: built and ran the legacy caller with pkg-config"

for page in tessiva.1 tessivad.8; do
    man -w "${page%.*}" >/dev/null 2>&1 || fail "man -w ${page%.*} finds no page"
    [[ $(man -w "${page%.*}") == /usr/share/man/man${page##*.}/$page.gz ]] ||
        fail "man -w ${page%.*} finds $(man -w "${page%.*}")"
done
echo "packages: man tessiva and man tessivad resolve"

purge
for package in "${packages[@]}"; do
    if is_present "$package"; then fail "$package is still present after dpkg --purge"; fi
done
! in_linker_cache libTessiva || fail "the linker cache still holds libTessiva"
# Directories may be shared with other packages; files may not stay.
while read -r path; do
    [[ -d $path ]] || [[ ! -e $path && ! -L $path ]] || fail "$path is left after the purge"
done <"$work/installed"
echo "packages: purged, nothing left"
