#!/usr/bin/env bash
# guide_test.sh GUIDE SOURCE_DIR LIBRARY_DIR ZORDCHD: puts the guide's pieces of code together, compiles
# the two programs and runs them against a server: the consumer prints the provider's rows.
set -euo pipefail
guide=$1 source_dir=$2 library_dir=$3 zordchd=$4
work=$(mktemp -d)
server=
trap '[[ -z $server ]] || { kill "$server" && wait "$server"; } || true; rm -rf "$work"' EXIT

for program in provider consumer; do
  awk -v marker="<!-- code: $program.c -->" '
    $0 == marker { wanted = 1; next }
    wanted && $0 == "```c" { inside = 1; next }
    inside && $0 == "```" { inside = wanted = 0; next }
    inside' "$guide" >"$work/$program.c"
  ${CC:-cc} -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$source_dir" -I"$source_dir/zordchcl" \
    ${GUIDE_CFLAGS:-} -o "$work/$program" "$work/$program.c" -L"$library_dir" -lzord410
done
export LD_LIBRARY_PATH=$library_dir

"$zordchd" --port 0 --verbose >"$work/ready" 2>"$work/events" &
server=$!
wait_for() { # TEXT FILE
  for _ in {1..400}; do
    if grep -q "$1" "$2"; then return; fi
    sleep 0.05
  done
  echo "no '$1' came; the server said:" && cat "$work/ready" "$work/events" && exit 1
}
wait_for 'ready on' "$work/ready"
ZORA_DCH_PORT=$(sed 's/.* port //' "$work/ready")
export ZORA_DCH_PORT
"$work/consumer" >"$work/rows" &
consumer=$!
wait_for 'subscribed' "$work/events"
"$work/provider"
wait "$consumer"
diff - "$work/rows" <<'ROWS'
celsius=21 sky=blue 
celsius=19 sky=grey 
ROWS
