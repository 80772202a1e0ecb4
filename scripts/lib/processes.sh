# Sourced by the scripts that start programs: waits for them, and ends them in good order.

# end_process ID: asks it to end, and insists after two seconds.
end_process() {
  kill "$1" 2>/dev/null || return 0
  local tries
  for ((tries = 0; tries < 20; ++tries)); do
    kill -0 "$1" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

# end_all: ends what runs in the background, the newest first: a provider still takes itself off line at
# its server.
end_all() {
  local processes i
  mapfile -t processes < <(jobs -p)
  for ((i = ${#processes[@]} - 1; i >= 0; --i)); do
    end_process "${processes[i]}"
  done
}

# wait_for PROCESS FILE PATTERN: until a line of the file matches, a minute at most.
wait_for() {
  local tries
  for ((tries = 0; tries < 600; ++tries)); do
    grep -Eqs "$3" "$2" && return 0
    kill -0 "$1" 2>/dev/null || return 1
    sleep 0.1
  done
  return 1
}
