#!/usr/bin/env bash
# operations_test.sh PAGE SOURCE_DIR ZORDCHD ZORDP ZORDC: does what the page on running the channel shows,
# and compares what comes out with the page. Times, ports and the version may differ.
page=$1 source_dir=$2 zordchd=$3 zordp=$4 zordc=$5
. "$(dirname "$0")/page.sh"
cd "$work"

without_what_differs() {
  sed -E 's/^[0-9T:.-]+Z /TIME /; s/127\.0\.0\.1:[0-9]+/CLIENT/; s/ port [0-9]+$/ port PORT/
    s/^(zordchd) [0-9.]+:/\1 VERSION:/; s/^(zordchd: state in ).*/\1STATE/'
}
expect_block() { # NAME FILE
  diff <(blocks "output: $1" '' | without_what_differs) <(without_what_differs <"$2") ||
    fail "the page shows another '$1'"
  echo "as on the page: $1"
}
send_demo() { # SOURCE [OPTION...]
  "$zordp" send --registration "$source_dir/examples/demo.reg" --group load --source "$1" \
    --input "$source_dir/examples/demo.csv" "${@:2}"
}

blocks 'file: actions.conf' '' >actions.conf
blocks 'file: zordchd.toml' toml >zordchd.toml
"$zordchd" --config zordchd.toml --check >check
expect_block check check
blocks 'file: wrong.toml' toml >wrong.toml
status=0
"$zordchd" --config wrong.toml --check 2>wrong || status=$?
((status == 78)) || fail "a wrong configuration ended with $status"
expect_block wrong wrong
"$zordchd" --config "$source_dir/packaging/zordchd.toml" --check

start_server "$zordchd" --actions actions.conf
expect_block ready ready

"$zordc" watch DEMO load >rows &
watcher=$!
running+=("$watcher")
wait_for 'subscribed' log
send_demo web1
wait_for 'unregistered' log
grep 'Z zordchd: ' log >events
expect_block events events

send_demo web1 --keep
"$zordc" defer --id 42 --key DMO --table LOAD --source web1 --time 1795267340
wait_for 'deferred' log
kill -USR1 "$server"
wait_for '^  action 42' log
grep -v '^20' log >state
expect_block state state

"$zordc" apps >apps
expect_block apps apps
"$zordc" act restart --node web1 --subnode web1:HMN00 --owner me --id 7 --wait >action
expect_block action action

end TERM "$watcher" || [[ $? == 143 ]]
end TERM "$server"

# Its file is read, copied and brought back, also when nothing was written into the file itself yet.
run_commands() { # NAME
  blocks "commands: $1" sh >"$1.sh"
  [[ -s $1.sh ]] || fail "no commands '$1' on the page"
  bash -e "$1.sh" || fail "what the page says on '$1' does not work"
}
start_server "$zordchd" --store zordchd.db --web 127.0.0.1:0
send_demo web1 --keep
run_commands reading >reading
expect_block reading reading
wait_for ' page on ' ready
blocks 'commands: history' sh |
  sed "s|http://127.0.0.1:1980/|$(sed -n 's/.* page on //p' ready)|" >history.sh
PATH=${zordc%/*}:$PATH bash -e history.sh >history
expect_block history history
run_commands copy >copied
[[ $(<copied) == ok ]] || fail "the copy: $(<copied)"
send_demo later --keep
end KILL "$server" || [[ $? == 137 ]]
run_commands restore
start_server "$zordchd" --store zordchd.db
[[ $(sqlite3 -readonly zordchd.db 'select group_concat(source) from sources') == web1 ]] ||
  fail "the copy did not come back"
"$zordc" apps # serves
end TERM "$server"

# Units with the changes that the page shows.
mkdir -p units/zordchd.s{ervice,ocket}.d
cp "$source_dir/packaging/systemd/zordchd.socket" units
sed "s|@bin_folder@|${zordchd%/*}|" "$source_dir/packaging/systemd/zordchd.service.in" >units/zordchd.service
for kind in socket service; do
  blocks "file: $kind.conf" ini >"units/zordchd.$kind.d/page.conf"
  [[ -s units/zordchd.$kind.d/page.conf ]] || fail "no change of the $kind unit on the page"
  systemd-analyze verify --man=no "$PWD/units/zordchd.$kind" >verified 2>&1 || fail "$(cat verified)"
  ! grep zord verified || fail "systemd finds fault with the change of the $kind unit"
done

# An instance leaves its port and its distance to those that have the same file.
unset ZORA_DCH_PORT
"$zordchd" --instance one >instance 2>&1 &
server=$!
running+=("$server")
wait_for ' ready on ' instance
port=$(sed -n 's/.* ready on .* port //p' instance)
((port % 1000 == 219 && port >= 49219 && port <= 58219)) || fail "the instance took port $port"
blocks 'output: settings' '' | sed "s/49219/$port/; s/23=1000/23=$((port - 48219))/" |
  diff - settings || fail "the page shows other settings"
"$zordc" apps # finds it
for options in '--instance two' ''; do
  status=0
  "$zordchd" $options >second 2>&1 || status=$?
  ((status == 1)) || fail "zordchd $options ended with $status"
  wait_for "DCH port $port" second
done
end TERM "$server"
