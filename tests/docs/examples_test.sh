#!/usr/bin/env bash
# examples_test.sh PAGE PROGRAM_DIR: runs the commands with which the page on the examples begins, one
# after the other as it says, until rows are there.
page=$1 program_dir=$2
. "$(dirname "$0")/page.sh"

mapfile -t commands < <(blocks run sh)
((${#commands[@]} == 3)) || fail "the page has ${#commands[@]} commands, not 3"
export PATH=$program_dir:$PATH
# The server there takes the port that clients look for: one that was free until now.
start_server zordchd
end TERM "$server"
cd "$program_dir" # where hostmon is

# What each of them says when the next one may start.
said=(' ready on ' ' is on line' '^[0-9].*Z ')
for number in 0 1 2; do
  ${commands[number]%%#*} >"$work/$number" 2>&1 &
  running+=($!)
  wait_for "${said[number]}" "$work/$number"
done
for process in "${running[2]}" "${running[1]}" "${running[0]}"; do
  end TERM "$process" || [[ $? == 143 ]] || fail "one of them ended with $?"
done
