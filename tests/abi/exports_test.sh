#!/usr/bin/env bash
# exports_test.sh LIBRARY PROJECT COMPILER...: what the library exports under version_1.0 is 39
# functions and a table: what its map lists there, what the public headers declare and what
# c_program.c pins. The soname has no number.
set -euo pipefail
export LC_ALL=C
library=$1 project=$2
shift 2

fail() {
  echo "failed: $*" >&2
  exit 1
}

# Every name that programs can link to, as NAME@@VERSION; the versions themselves are absolute symbols.
dynamic_names=$(nm -D --defined-only --with-symbol-versions "$library" |
  awk '$2 != "A" {print $3}' | sort)
exported=$(sed -n 's/@@version_1\.0$//p' <<<"$dynamic_names")
mapped=$(sed -n '/^version_1\.0 {/,/^}/s/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' \
  "$project/zordchcl/zord410.map" | sort)

declarations=$(printf '#include <%s>\n' zora/zora.h zordchcl/zordchcl.h |
  "$@" -E -P -x c -I "$project" -)
declared=$(
  {
    grep -oE '\b(DCH|VX|ZORA|dc|dp)_[A-Za-z0-9_]+ *\(' <<<"$declarations"
    grep -E '^extern ' <<<"$declarations" | grep -oE '[A-Za-z0-9_]+ *\['
  } | tr -d ' ([' | sort
)

count=$(grep -c . <<<"$exported") || fail "nothing is exported under version_1.0"
[[ $count == 40 ]] || fail "$count names are exported under version_1.0"
tables=$(nm -D --defined-only --with-symbol-versions "$library" |
  awk '$2 ~ /[RDB]/ && $3 ~ /@@version_1\.0$/ {print $3}')
[[ $tables == ZORA_DPTypeNames@@version_1.0 ]] || fail "tables under version_1.0: $tables"
diff <(echo "$mapped") <(echo "$exported") || fail "exported (>) is not what the map lists (<)"
diff <(echo "$declared") <(echo "$exported") || fail "exported (>) is not what the headers declare (<)"
for name in $exported; do
  grep -qw "$name" "$project/tests/abi/c_program.c" || fail "c_program.c does not pin $name"
done

mangled=$(grep '^_Z' <<<"$exported") && fail "C++ names under version_1.0: $mangled"
stray=$(grep -vE '@@(version_1\.0|ZORD410_PRIVATE)$' <<<"$dynamic_names") && fail "stray names: $stray"

soname=$(readelf --dynamic "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[[ $soname == libzord410.so ]] || fail "the soname is '$soname'"
echo "$(wc -l <<<"$exported") names under version_1.0"
