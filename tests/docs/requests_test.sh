#!/bin/bash
# requests_test.sh SOURCES: docs/protocol.md has every request.
set -euo pipefail

cd "$1"
requests=$(grep -Eoh '= 0x[0-9A-F]{4}[,;]' suite/zorp.h zordchcl/messages.h | grep -Eo '0x[0-9A-F]{4}')
[[ $(wc -w <<<"$requests") -ge 13 ]] || { echo "the headers were not read" >&2; exit 1; }
failed=0
for request in $requests; do
  grep -q "$request" docs/protocol.md && continue
  echo "docs/protocol.md says nothing of the request $request" >&2
  failed=1
done
exit $failed
