# Sourced by the tests of pages: what a page shows, a folder to try it in, and the processes of the trial.
# The script that sources it ends with what it started, and fails when a command fails.
set -euo pipefail

work=$(mktemp -d)
running=()
trap 'kill -- "${running[@]}" 2>/dev/null || true; rm -rf "$work"' EXIT

# What this machine is set to does not count, nor is it changed.
unset "${!ZORA_@}" "${!ZOR0_@}"
export ZOR0_PRODUCT_SPEC=$work/settings

fail() {
  echo "failed: $*"
  exit 1
}

# blocks MARKER LANGUAGE: the page's blocks behind this marker, one after the other. The page is $page.
blocks() {
  awk -v marker="<!-- $1 -->" -v fence="\`\`\`$2" '
    $0 == marker { wanted = 1; next }
    wanted && !inside && $0 == fence { inside = 1; next }
    inside && $0 == "```" { inside = wanted = 0; next }
    inside' "$page"
}

# wait_for TEXT FILE [TIMES]: until so many lines of the file hold the text.
wait_for() {
  local found
  for _ in {1..400}; do
    found=$(grep -cs -- "$1" "$2") || true
    if ((${found:-0} >= ${3-1})); then return; fi
    sleep 0.05
  done
  tail -n 100 $(grep -Il "" "$work"/*)
  fail "no '$1' in $2"
}

# end SIGNAL PROCESS: ends a process that was added to `running`, and returns its exit status.
end() {
  local process others=()
  kill -s "$1" "$2" 2>/dev/null || true
  for process in "${running[@]}"; do
    [[ $process == "$2" ]] || others+=("$process")
  done
  running=("${others[@]}")
  wait "$2"
}

# Servers that keep their state do so here.
export XDG_STATE_HOME=$work

# start_server ZORDCHD [OPTION...]: on a free port that clients then find, with its log in $work/log.
start_server() {
  # Emptied here: what an earlier server said must not be taken for this one's.
  : >"$work/log"
  : >"$work/ready"
  "$1" --port 0 --verbose "${@:2}" >"$work/ready" 2>>"$work/log" &
  server=$!
  running+=("$server")
  wait_for ' state in ' "$work/ready"
  ZORA_DCH_PORT=$(sed -n 's/.* ready on .* port //p' "$work/ready")
  export ZORA_DCH_PORT
}
