#!/usr/bin/env bash
# sandbox_test.sh PREFIX SOURCE_DIR: what the server that is installed there does, its unit lets it do:
# system calls, families of addresses, files that are written. It is not run by systemd here: its calls
# are compared with the unit.
prefix=$1 source_dir=$2
. "$(dirname "$0")/../docs/page.sh"
strace -D -f -qq -o "$work/probe" true || {
  echo "NOT RUN: strace cannot trace here"
  exit 77
}
export LC_ALL=C
unit=$prefix/lib/systemd/system/zordchd.service

setting() { sed -n "s/^$1=//p" "$unit"; }
calls_of() { # SET...: of those that systemd knows
  local name
  systemd-analyze syscall-filter "$@" | sed -n 's/^    \([^#]\)/\1/p' | while read -r name; do
    if [[ $name == @* ]]; then calls_of "$name"; else echo "$name"; fi
  done
}
expect_none() { # WHAT, LINES on standard input
  local found
  found=$(sort -u | paste -sd ' ')
  [[ -z $found ]] || fail "$1: $found"
}

# A run with a bit of everything.
cat >"$work/traced" <<END
exec strace -D -f -qq -o $work/trace $prefix/bin/zordchd "\$@"
END
chmod +x "$work/traced"
echo 'succeed /bin/true' >"$work/actions"
printf '[actions]\nfile = "%s"\n' "$work/actions" >"$work/zordchd.toml"
mkdir "$work/state"
export STATE_DIRECTORY=$work/state
start_server "$work/traced" --config "$work/zordchd.toml" --store "$work/state/zordchd.db"
"$prefix/bin/zordp" send --registration "$source_dir/examples/demo.reg" --group load --source web1 \
  --input "$source_dir/examples/demo.csv"
"$prefix/bin/zordc" act succeed --node web1 --subnode web1:HMN00 --owner me --id 7 --wait
kill -HUP "$server"
wait_for 'again' "$work/log"
kill -USR1 "$server"
wait_for 'log_lines_dropped' "$work/log"
end TERM "$server"
wait_for '^[0-9]*  *exit_group' "$work/trace"

# All of its threads, and the action.
sed 's/^[0-9]*  *//' "$work/trace" >"$work/own"

# SQLite gives its files to their owner where it is root, as in this test at most.
sed -nE 's/^(<\.\.\. )?([a-z][a-z_0-9]*).*/\2/p' "$work/own" | sort -u | grep -vx fchown >"$work/calls"
calls_of $(setting SystemCallFilter | grep -v '^~') | sort -u >"$work/allowed"
calls_of $(setting SystemCallFilter | sed -n 's/^~//p') | sort -u >"$work/denied"
(($(wc -l <"$work/allowed") > 200 && $(wc -l <"$work/denied") > 20)) || fail "no filter of calls"
comm -23 "$work/calls" "$work/allowed" | expect_none 'calls that the unit does not allow'
comm -12 "$work/calls" "$work/denied" | expect_none 'calls that the unit denies'

setting RestrictAddressFamilies | tr ' ' '\n' | sort >"$work/families"
sed -nE 's/^socket\((AF_[A-Z0-9]+).*/\1/p' "$work/own" | sort -u | comm -23 - "$work/families" |
  expect_none 'families of sockets that the unit does not allow'
sed -nE 's/^open(at)?\([^"]*"([^"]*)".*O_(WRONLY|RDWR|CREAT).*/\2/p' "$work/own" |
  sed "\\:^$work/state/:d; \\:^/dev/null\$:d" | expect_none 'files that are written'
sed -n '/^m\(map\|protect\).*PROT_WRITE|PROT_EXEC/p' "$work/own" | expect_none 'memory to write and execute'
