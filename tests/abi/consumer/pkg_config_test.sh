#!/usr/bin/env bash
# pkg_config_test.sh LIBRARY_FOLDER VERSION PROJECT COMPILER...: builds and runs the consumer against an
# installed library that only pkg-config knows of, and builds the examples and the README's programs.
set -euo pipefail
library_folder=$1 version=$2 project=$3
shift 3
export PKG_CONFIG_PATH=$library_folder/pkgconfig
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
cp "$(dirname "$0")/consumer.c" "$project"/examples/*.c "$scratch"
# Each block of C in a file of its own: readme1.c, readme2.c.
awk -v folder="$scratch" '/^```c$/ {file = folder "/readme" ++count ".c"; next}
  /^```$/ {file = ""} file {print > file}' "$project/README.md"
[[ -f $scratch/readme2.c ]] || fail "the README has lost its provider or its consumer"
for source in "$scratch"/*.c; do
  "$@" -Wall -Wextra -Werror "$source" -o "${source%.c}" "${flags[@]}" || fail "$source does not build"
done
LD_LIBRARY_PATH=$library_folder "$scratch/consumer"
