#!/usr/bin/env bash
# readme_test.sh README SOURCE_DIR LIBRARY_DIR PROGRAM_DIR: the rows that the README sends are those that it
# watches, and are on the page when they are sent; its two programs do what it says.
page=$1 source_dir=$2 library_dir=$3 program_dir=$4
. "$(dirname "$0")/page.sh"
cd "$work"
export PATH=$program_dir:$PATH LD_LIBRARY_PATH=$library_dir

start_server zordchd --web 127.0.0.1:0

$(grep -m1 '^    zordc watch' "$page") >rows 2>&1 &
watcher=$!
running+=("$watcher")
wait_for ' to DEMO load' log
(cd "$source_dir" && eval "$(sed -n '/^    zordp send/,/[^\\]$/p' "$page")")
wait_for 'all quiet' rows
wait_for ' page on ' ready
curl -sSf "$(sed -n 's/.* page on //p' ready)api/applications" >page
grep -q '"values":{"load1":25' page || fail "the page shows: $(<page)"
end TERM "$watcher" || [[ $? == 143 ]]

# The blocks of C, in their order.
awk '/^```c$/ {file = "program" ++count ".c"; next} /^```$/ {file = ""} file {print > file}' "$page"
for program in program1 program2; do
  ${CC:-cc} -std=c99 -I"$source_dir" -I"$source_dir/zordchcl" ${README_CFLAGS:-} -o $program $program.c \
    -L"$library_dir" -lzord410
done
./program2 >rows &
consumer=$!
running+=("$consumer")
wait_for ' to DEMO load' log 2
./program1 >said
diff said - <<<'result 0, status 0' || fail "the provider says something else"
# What is no message ends its wait, behind the row that it has by then.
port=$(sed -n 's/.* subscribed 127\.0\.0\.1:\([0-9]*\) .*/\1/p' log | tail -n 1)
printf '\0\0\0\4x' >"/dev/udp/127.0.0.1/$port"
status=0
wait "$consumer" || status=$?
running=("$server")
((status == 1)) || fail "the consumer ended with $status"
diff rows - <<<'a row of 53 bytes' || fail "the consumer says something else"
end TERM "$server"
