#!/usr/bin/env bash
# examples_test.sh SOURCE_DIR LIBRARY_DIR PROGRAM_DIR: the examples of the manual's pages do what they say.
source_dir=$1 library_dir=$2 program_dir=$3
. "$source_dir/tests/docs/page.sh"
cd "$work"
export PATH=$work/bin:$program_dir:$PATH LD_LIBRARY_PATH=$library_dir

# example PAGE MARK: the block behind this mark in the page's source, as it is shown.
example() {
  awk -v mark="; $2" '
    $0 == mark { wanted = 1; next }
    wanted && $0 == "```" { if (inside) exit; inside = 1; next }
    inside' "$source_dir/packaging/man/$1.scd" | sed 's/\\\\/\\/g' >block
  [[ -s block ]] || fail "no '$2' in $1"
  cat block
}

# The server serves, with a page and a file of its own, and for scripts on any port.
for name in serve page; do
  example zordchd.8 "example: $name" | sed 's/--port 1919/--port 0/; s/127.0.0.1:1980/127.0.0.1:0/' >server.sh
  grep -q -- '--port 0' server.sh || fail "the server of '$name' has a port of its own: $(<server.sh)"
  : >ready
  bash -c "exec $(<server.sh)" >ready 2>log &
  server=$!
  running+=("$server")
  wait_for ' state in ' ready
  [[ $name != page ]] || wait_for 'page on http' ready
  end TERM "$server"
done
[[ -s zordchd.db ]] || fail "the state is in no file of its own"
example zordchd.8 'example: script' >script.sh
# Ends the server with the script, whatever comes of it.
echo 'wait $!' >>script.sh
status=0
timeout -k 60 120 bash -e script.sh >said 2>&1 || status=$?
((status == 0)) || fail "the script of zordchd(8) ended with $status: $(<said)"

# Configuration: the example is in order.
example zordchd.toml.5 'example: file' >zordchd.toml
bash -e <(example zordchd.toml.5 'example: check') >said
grep -qx 'zordchd: zordchd.toml is in order' said || fail "the check says: $(<said)"

# A server for the tools, with the action that is asked for.
echo "restart $(type -P true)" >actions
start_server zordchd --actions actions --store kept.db --web 127.0.0.1:0
wait_for 'page on ' ready
page_address=$(sed -n 's/.* page on //p' ready)

example zordp.1 'file: demo.reg' >demo.reg
example zordp.1 'file: demo.csv' >demo.csv
bash -c "exec $(example zordc.1 'example: watch')" >watched &
watcher=$!
running+=("$watcher")
wait_for ' to DEMO load' log
bash -e <(example zordp.1 'example: csv')
wait_for 'all quiet' watched

example zordp.1 'file: demo.toml' >demo.toml
bash -c "exec $(example zordp.1 'example: run')" &
provider=$!
running+=("$provider")
wait_for '"load1"' watched 3
status=0
end TERM "$provider" || status=$?
((status == 143)) || fail "zordp run ended with $status"

# Its loop ends when sleep does not want any more, after two rows.
mkdir bin
printf '%s\n' '#!/bin/sh' 'echo >>slept' '[ $(wc -l <slept) -le 2 ]' >bin/sleep
chmod +x bin/sleep
bash -e <(example zordp.1 'example: pipe')
rm bin/sleep
wait_for '"load1"' watched 5
end TERM "$watcher" || [[ $? == 143 ]]

# The catalogue and so on of an application that stays and has a source on line.
mkfifo rows
zordp send -r demo.reg -g load -s web1 -i rows --keep &
provider=$!
running+=("$provider")
exec 9<>rows
printf 'load1\n17\n' >&9
wait_for ' on line: DEMO load web1' log 2
bash -e <(example zordc.1 'example: catalogue') >said
grep -qx 'load,load1,G,4,""' said || fail "the catalogue: $(<said)"
bash -e <(example zordc.1 'example: act') >said
grep -qx 'result 0' said || fail "the action: $(<said)"
bash -e <(example zordc.1 'example: defer') >said
wait_for 'deferred' log
grep -q '"source":"web1"' said || fail "the status: $(<said)"
bash -e <(example zordc.1 'example: history' | sed "s|load |load --web $page_address |")
grep -q 'all quiet' rows.csv || fail "the history: $(<rows.csv)"
exec 9>&-
end CONT "$provider" # ends by itself

# The programs of the overview: the consumer has the provider's row.
for program in provider consumer; do
  example zord410.3 "example: $program.c" >$program.c
  ${CC:-cc} -std=c99 -Wall -Werror -I"$source_dir" -I"$source_dir/zordchcl" ${EXAMPLE_CFLAGS:-} -o $program \
    $program.c -L"$library_dir" -lzord410
done
./consumer >consumed &
consumer=$!
running+=("$consumer")
wait_for ' to DEMO load' log 2
./provider
wait_for 'a row of 53 bytes' consumed
end TERM "$consumer" || [[ $? == 143 ]]
end TERM "$server"
