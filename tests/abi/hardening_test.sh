#!/usr/bin/env bash
# hardening_test.sh LIBRARY PROGRAM...: what is installed is hardened as cmake/Hardening.cmake asks.
set -euo pipefail
export LC_ALL=C
library=$1

problems=0
complain() {
  echo "failed: $file: $*" >&2
  problems=1
}

# expect WHAT TEXT REGEX, expect_no WHAT TEXT REGEX: whether a line of the text matches.
expect() { grep -qE -- "$3" <<<"$2" || complain "no $1"; }
expect_no() { ! grep -qE -- "$3" <<<"$2" || complain "$1: $(grep -E -- "$3" <<<"$2" | head -n 1)"; }

check_layout() {
  local segments dynamic
  segments=$(readelf --program-headers --wide "$file")
  dynamic=$(readelf --dynamic "$file")
  expect 'addresses that are read-only after start-up (RELRO)' "$segments" '^ *GNU_RELRO '
  expect 'binding of all symbols at start-up' "$dynamic" 'FLAGS_1\).*\bNOW\b'
  expect 'stack that is not executable' "$segments" '^ *GNU_STACK .* RW +0x'
  expect_no 'a segment to write and execute' "$segments" '\bRWE\b'
  expect_no 'code that the loader writes to' "$dynamic" 'TEXTREL'
  [[ $file == "$library" ]] ||
    expect 'position-independent program' "$dynamic" 'FLAGS_1\).*\bPIE\b'
}

check_code() {
  local imports code
  imports=$(readelf --dyn-syms --wide "$file" | awk '$7 == "UND" {sub(/@.*/, "", $8); print $8}')
  expect 'guard of the stack' "$imports" '^__stack_chk_fail$'
  expect 'checked function (_FORTIFY_SOURCE)' "$imports" '^__(v?snprintf|memcpy|memset|read|recv.*)_chk$'
  code=$(objdump --disassemble --no-show-raw-insn "$file")
  case $(readelf --file-header "$file") in
  *X86-64* | *80386*)
    expect 'probe of a large stack frame' "$code" '\bor[lq]? +\$0x0,(0x[0-9a-f]+)?\(%[er]sp'
    check_branch_targets "$code"
    ;;
  esac
}

# Whoever calls an exported function finds a branch target there.
check_branch_targets() {
  [[ $file == "$library" ]] || return 0
  local bare
  bare=$(awk '
    NR == FNR { exported[$1]; next }
    /^[0-9a-f]+ <.*>:$/ { name = $2; gsub(/[<>:]|@@.*/, "", name); next }
    name in exported { if ($2 !~ /^endbr(32|64)$/) print name; else found++; delete exported[name] }
    END { if (found == 0) print "all" }
  ' <(nm -D --defined-only "$file" | awk '$2 == "T" {sub(/@.*/, "", $3); print $3}') - <<<"$1")
  [[ -z $bare ]] || complain "not a branch target: $(paste -sd ' ' <<<"$bare")"
}

for file in "$@"; do
  check_layout
  check_code
done
exit "$problems"
