#!/bin/bash
# dependencies_test.sh SOURCES: the library's folders include each other as CONTRIBUTING.md says.
set -euo pipefail

cd "$1"
declare -A below=(
  [suite]=''
  [zora]='suite'
  [zordipc]='zora|suite'
  [zordlpc]='zordipc|zora|suite'
  [zordsock]='zordipc|zora|suite'
  [zordchcl]='zordsock|zordlpc|zordipc|zora|suite')

failed=0
for folder in "${!below[@]}"; do
  mapfile -t sources < <(find "$folder" -name '*.cpp' -o -name '*.h' | grep -v '_test\.\|/test_')
  test "${#sources[@]}" -gt 0
  if grep -H '^ *# *include "' "${sources[@]}" |
      grep -Ev "include \"($folder|${below[$folder]:-$folder})/" >&2; then
    echo "$folder/ is not above these" >&2
    failed=1
  fi
done
exit $failed
