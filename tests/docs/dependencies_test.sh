#!/bin/bash
# dependencies_test.sh SOURCES: the library's folders include each other as CONTRIBUTING.md says, and
# only the sources that carry messages read Boost's headers, and only the link knows NATS.
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

boost=$(grep -rlE '^ *# *include *[<"]boost/' --include='*.cpp' --include='*.h' \
  suite zora zordipc zordlpc zordsock zordchcl dch tools tests examples fuzz bench)
if grep -Ev '^dch/(net/.*\.cpp|web/.*)$' <<<"$boost" >&2; then
  echo "Boost's headers are for the sources of dch/net alone: what reads them builds slowly" >&2
  failed=1
fi

nats=$(grep -rlE '^ *# *include *([<"]nats/|"dch/link/(nats|nats_connecting|live_connection|server_connection|stream_settings)\.h")' \
  --include='*.cpp' --include='*.h' dch tools tests examples fuzz)
if grep -Ev '^dch/(link/.*|testkit/(.*\.cpp|nats_(messages|client)\.h))$' <<<"$nats" >&2; then
  echo "NATS is for the sources of dch/link alone" >&2
  failed=1
fi

postgres=$(grep -rlE '^ *# *include *([<"]libpq|"dch/postgres/)' \
  --include='*.cpp' --include='*.h' dch tools tests examples fuzz bench)
if grep -Ev '^dch/(postgres/.*|testkit/.*\.cpp)$' <<<"$postgres" >&2; then
  echo "PostgreSQL is for the sources of dch/postgres alone" >&2
  failed=1
fi
exit $failed
