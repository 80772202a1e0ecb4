#!/usr/bin/env bash
# units_test.sh PREFIX: systemd finds nothing wrong with the units that are installed there, and little
# that somebody who has taken over the server could do.
set -euo pipefail
export LC_ALL=C
units=$1/lib/systemd/system
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "failed: $*" >&2
  exit 1
}

# Units of the machine may be complained of as well.
systemd-analyze verify --man=no "$units/zordchd.service" "$units/zordchd.socket" >"$work/verify" 2>&1 ||
  fail "verify: $(cat "$work/verify")"
! grep zord "$work/verify" || fail "verify finds fault"

# In tenths.
systemd-analyze security --offline=true --no-pager --threshold=19 "$units/zordchd.service" \
  >"$work/security" || fail "security: $(cat "$work/security")"
grep 'Overall exposure level' "$work/security" || fail "no exposure level"

# One port.
(($(sed -n 's/^Listen.*=//p' "$units/zordchd.socket" | sort -u | wc -l) == 1)) ||
  fail "the sockets have different addresses"

# The user of the service would be made.
systemd-sysusers --dry-run --root="$work" "$1/lib/sysusers.d/zord410.conf" >"$work/sysusers" 2>&1 ||
  fail "$(cat "$work/sysusers")"
grep "user '$(sed -n 's/^User=//p' "$units/zordchd.service")'" "$work/sysusers" ||
  fail "no user: $(cat "$work/sysusers")"
