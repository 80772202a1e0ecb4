#!/usr/bin/env bash
# operations_test.sh DOCUMENT SOURCE_DIR ZORDCHD ZORDP ZORDC: does what the page on running the channel
# shows, and compares what comes out with the page. Times, ports and the version may differ.
set -euo pipefail
document=$1 source_dir=$2 zordchd=$3 zordp=$4 zordc=$5
work=$(mktemp -d)
server= watcher=

clean_up() {
  for process in $watcher $server; do kill "$process" 2>/dev/null && wait "$process" || true; done
  rm -rf "$work"
}
trap clean_up EXIT

# The block that follows a marker.
block() { # MARKER
  awk -v marker="<!-- $1 -->" '
    $0 == marker { wanted = 1; next }
    wanted && $0 == "```" { if (inside++) exit; next }
    inside' "$document"
}
without_what_differs() {
  sed -E 's/^[0-9T:.-]+Z /TIME /; s/127\.0\.0\.1:[0-9]+/CLIENT/; s/ port [0-9]+$/ port PORT/
    s/^(zordchd) [0-9.]+:/\1 VERSION:/'
}
expect_block() { # NAME FILE
  diff <(block "output: $1" | without_what_differs) <(without_what_differs <"$2") ||
    { echo "the page shows another '$1'" && exit 1; }
  echo "as on the page: $1"
}
wait_for() { # TEXT FILE
  for _ in {1..400}; do
    if grep -qs "$1" "$2"; then return; fi
    sleep 0.05
  done
  echo "no '$1' came; the server said:" && cat "$work/ready" "$work/log" && exit 1
}
send_demo() {
  "$zordp" send --registration "$source_dir/examples/demo.reg" --group load --source web1 \
    --input "$source_dir/examples/demo.csv" "$@"
}

block 'file: actions.conf' >"$work/actions.conf"
"$zordchd" --port 0 --verbose --actions "$work/actions.conf" >"$work/ready" 2>"$work/log" &
server=$!
wait_for 'ready on' "$work/ready"
expect_block ready "$work/ready"
ZORA_DCH_PORT=$(sed 's/.* port //' "$work/ready")
export ZORA_DCH_PORT

"$zordc" watch DEMO load >"$work/rows" &
watcher=$!
wait_for 'subscribed' "$work/log"
send_demo
wait_for 'unregistered' "$work/log"
grep 'Z zordchd: ' "$work/log" >"$work/events"
expect_block events "$work/events"

send_demo --keep
"$zordc" defer --id 42 --key DMO --table LOAD --source web1 --time 1795267340
wait_for 'deferred' "$work/log"
kill -USR1 "$server"
wait_for '^  action 42' "$work/log"
grep -v '^20' "$work/log" >"$work/state"
expect_block state "$work/state"

"$zordc" apps >"$work/apps"
expect_block apps "$work/apps"
"$zordc" act restart --node web1 --subnode web1:HMN00 --owner me --id 7 --wait >"$work/action"
expect_block action "$work/action"
