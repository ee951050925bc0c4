#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the legacy caller with nothing but a compiler and pkg-config
# against an installed prefix, then runs it.
#
#   pkg-config-consumer.sh PKGCONFIG_DIR SOURCE WORK_DIR CXX [CXXFLAGS]
set -euo pipefail
pkgconfig_dir=$1
source=$2
work=$3
cxx=$4
read -r -a cxxflags <<<"${5:-}"

export PKG_CONFIG_PATH=$pkgconfig_dir
export PKG_CONFIG_LIBDIR=$pkgconfig_dir # nothing from the machine's own
read -r -a flags <<<"$(pkg-config --cflags --libs tessiva)"
libdir=$(pkg-config --variable=libdir tessiva)
echo "pkg-config: ${flags[*]}"

mkdir -p "$work"
"$cxx" -std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror \
    "${cxxflags[@]}" "$source" "${flags[@]}" -o "$work/legacy_caller"
LD_LIBRARY_PATH=$libdir "$work/legacy_caller"
