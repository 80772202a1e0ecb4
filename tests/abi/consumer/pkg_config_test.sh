#!/usr/bin/env bash
# pkg_config_test.sh LIBRARY_FOLDER VERSION COMPILER...: builds and runs the consumer against an
# installed library that only pkg-config knows of.
set -euo pipefail
library_folder=$1 version=$2
shift 2
export PKG_CONFIG_PATH=$library_folder/pkgconfig
source=$(dirname "$0")/consumer.c
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
  echo "failed: $*" >&2
  exit 1
}

found=$(pkg-config --modversion zord410)
[[ $found == "$version" ]] || fail "pkg-config says version $found, not $version"

# How strict a user's compiler is, is the user's choice.
[[ -d $library_folder/cmake/zord410 ]] || fail "no CMake package"
! grep -r -- ' -W' "$library_folder"/{cmake,pkgconfig} || fail "warning flags for users"

read -ra flags < <(pkg-config --cflags --libs zord410)
"$@" "$source" -o "$scratch/consumer" "${flags[@]}"
LD_LIBRARY_PATH=$library_folder "$scratch/consumer"
