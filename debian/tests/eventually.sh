# Sourced by tests that have a function `fail`, which tells its arguments and ends them.

# eventually COMMAND...: until it succeeds, a minute at most.
eventually() {
  local tries
  for ((tries = 0; tries < 600; ++tries)); do
    ! "$@" >/dev/null 2>&1 || return 0
    sleep 0.1
  done
  fail "not in a minute: $*"
}
