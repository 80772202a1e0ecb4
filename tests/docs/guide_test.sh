#!/usr/bin/env bash
# guide_test.sh GUIDE SOURCE_DIR LIBRARY_DIR ZORDCHD: puts the guide's pieces of code together, compiles
# the two programs and runs them as the guide says: the consumer prints the provider's rows. Then it shows
# that the consumer lives through a datagram that is no row.
page=$1 source_dir=$2 library_dir=$3 zordchd=$4
. "$(dirname "$0")/page.sh"
cd "$work"

for program in provider consumer; do
  blocks "code: $program.c" c >"$program.c"
  ${CC:-cc} -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$source_dir" -I"$source_dir/zordchcl" \
    ${GUIDE_CFLAGS:-} -o "$program" "$program.c" -L"$library_dir" -lzord410
done
blocks run sh >run
blocks 'output: rows' '' >rows
[[ -s run && -s rows ]] || fail "the guide has lost its commands or their output"
export LD_LIBRARY_PATH=$library_dir PATH=$(dirname "$zordchd"):$PATH

# The trailing blank behind each value is not worth a word on the page.
expect_rows() { # FILE
  sed 's/ *$//' "$1" | diff rows - || fail "the guide shows other rows"
}

# As printed. The server there takes the port that clients look for: one that was free until now.
start_server "$zordchd"
end TERM "$server"
timeout 50 bash run >shown & # leads a group of its own
running+=("-$!")
wait $! || fail "the guide's commands ended with $?"
running=()
expect_rows shown

# A datagram that is no row ends the subscription, and the consumer makes a new one.
start_server "$zordchd"
./consumer >shown &
consumer=$!
running+=("$consumer")
wait_for 'subscribed' log
port=$(sed -n 's/.* subscribed 127\.0\.0\.1:\([0-9]*\) .*/\1/p' log)
printf '\0\0\0\4x' >"/dev/udp/127.0.0.1/$port"
wait_for 'subscribed' log 2
./provider
wait "$consumer" || fail "the consumer ended with $?"
running=("$server")
expect_rows shown
end TERM "$server"
