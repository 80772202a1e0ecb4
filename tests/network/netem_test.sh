#!/usr/bin/env bash
# netem_test.sh ZORDCHD ZORDP ZORDC: a server and its clients in two network namespaces, with a link
# between them that delays, reorders, repeats and loses packets. Ends with 77, not run, where there are
# no rights or no netem for that.
set -euo pipefail
zordchd=$1 zordp=$2 zordc=$3
server_side=zord-server-$$ client_side=zord-client-$$
work=$(mktemp -d)
server= watcher=

clean_up() {
  for process in $server $watcher; do kill "$process" 2>/dev/null && wait "$process" || true; done
  for side in "$server_side" "$client_side"; do ip netns del "$side" 2>/dev/null || true; done
  rm -rf "$work"
}
trap clean_up EXIT

not_run() {
  echo "NOT RUN: $*"
  exit 77
}
fail() {
  echo "FAILED: $*"
  tail -n 20 "$work"/*
  exit 1
}
wait_for() { # TEXT FILE
  for _ in {1..400}; do
    if grep -qs "$1" "$2"; then return; fi
    sleep 0.05
  done
  fail "no '$1' in $2"
}

# Sets what the link does in both directions, in the words of tc-netem(8).
weather() {
  local side
  for side in "$server_side" "$client_side"; do
    tc -n "$side" qdisc replace dev wire root netem "$@" || return
  done
}

((EUID == 0)) || not_run "network namespaces need root"
command -v ip tc >"$work/programs" || not_run "no ip or tc here: install iproute2"
for side in "$server_side" "$client_side"; do
  ip netns add "$side" || not_run "no network namespaces here"
done
ip -n "$server_side" link add wire type veth peer name wire netns "$client_side" ||
  not_run "no virtual links here"
ip -n "$server_side" address add 192.0.2.1/24 dev wire
ip -n "$client_side" address add 192.0.2.2/24 dev wire
for side in "$server_side" "$client_side"; do
  ip -n "$side" link set lo up
  ip -n "$side" link set wire up
done
weather delay 1ms || not_run "this kernel has no netem (CONFIG_NET_SCH_NETEM)"

ip netns exec "$server_side" "$zordchd" --port 1919 --bind 192.0.2.1 --verbose \
  >"$work/ready" 2>"$work/events" &
server=$!
wait_for 'ready on' "$work/ready"

export ZORA_DCH_ADDR=192.0.2.1 ZORA_DCH_PORT=1919 ZORA_DCH_TIMEOUT=2
printf 'appl:NET,NET; group:rows; attr:number,G,4;' >"$work/net.reg"
{ echo number && seq 40; } >"$work/rows.csv"

# Sends the rows, and tells in `sent` how zordp ended.
send_rows() {
  sent=0
  ip netns exec "$client_side" "$zordp" send --registration "$work/net.reg" --group rows --source web1 \
    --input "$work/rows.csv" >"$work/zordp" 2>&1 || sent=$?
}
start_watching() {
  local before
  before=$(grep -c 'subscribed' "$work/events" || true)
  ip netns exec "$client_side" "$zordc" watch NET rows --format csv --timeout 5 >"$work/rows" 2>"$work/zordc" &
  watcher=$!
  for _ in {1..400}; do
    if (($(grep -c 'subscribed' "$work/events" || true) > before)); then return; fi
    sleep 0.05
  done
  fail "the subscription did not come"
}
# Ends the watching, when no row comes any more, and puts the numbers that it saw into `seen`.
finish_watching() {
  wait "$watcher" || true
  watcher=
  grep -o '[0-9]*$' "$work/rows" >"$work/seen" || true
}

echo "== delay and reordering: every row arrives, whatever the order"
start_watching
weather delay 30ms 20ms reorder 25% 50%
send_rows
((sent == 0)) || fail "zordp ended with $sent"
finish_watching
diff <(seq 40) <(sort -n "$work/seen") || fail "rows are missing"

echo "== loss: zordp says so, or every row arrived at the DCH"
weather delay 1ms
start_watching
weather loss 20%
send_rows
if ((sent != 0)); then
  ((sent == 69)) || fail "zordp ended with $sent"
  grep -q 'status 5 (no answer from the DCH)' "$work/zordp" || fail "zordp did not say why"
fi
finish_watching
if grep -vxf <(seq 40) "$work/seen"; then fail "a row that was not sent"; fi

echo "== repetition: a row may come twice, but none comes that was not sent"
weather delay 1ms
start_watching
weather duplicate 20%
send_rows
((sent == 0)) || fail "zordp ended with $sent"
finish_watching
[[ -s $work/seen ]] || fail "no row at all"
if grep -vxf <(seq 40) "$work/seen"; then fail "a row that was not sent"; fi

kill "$server"
wait "$server" || fail "zordchd ended with $?"
server=
echo "passed"
