# Run by scripts/packages as root of a new Debian with systemd and without a network, with the packages
# in /trial/packages and those of a later version in /trial/next: what a user would do with them.
set -euo pipefail
cd /trial
. tests/eventually.sh

fail() {
  echo "$*" >&2
  exit 1
}

step() {
  echo "-- $*"
}

# apt COMMAND...: what it says is shown only when it fails.
apt() {
  apt-get -qq --yes --no-install-recommends -o DPkg::Use-Pty=0 "$@" >/tmp/apt.log 2>&1 || {
    cat /tmp/apt.log >&2
    fail "apt-get $*"
  }
}

# All that packages and services can leave behind. What belongs to dpkg, apt and the log is no concern
# of a package.
list_files() {
  find / -xdev '(' -path /proc -o -path /sys -o -path /run -o -path /dev -o -path /tmp -o -path /trial \
    -o -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/cache -o -path /var/log -o -path /var/backups ')' \
    -prune -o -print | LC_ALL=C sort
}

list_users() {
  { getent passwd; getent group; } | sort
}

server_process() {
  systemctl show --property=MainPID --value zordchd
}

is_served() {
  systemctl is-active --quiet zordchd.service && systemctl is-active --quiet zordchd.socket
}

# provide SOURCE: sends the numbers from 1 on until the file `sending` is gone.
provide() {
  echo 'appl:TRIAL,TRL; group:count; attr:number,N,8;' >/tmp/trial.reg
  {
    echo number
    for ((number = 1; ; ++number)); do
      echo "$number"
      [[ -e /tmp/sending ]] || break
      sleep 0.005
    done
    echo "$number" >"/tmp/sent.$1"
  } | zordp send --registration /tmp/trial.reg --group count --source "$1" --keep 2>"/tmp/said.$1"
}

kept() {
  sqlite3 -readonly /var/lib/zord410/zordchd.db "$@"
}

# rows_come: of each source that provides, from now on.
rows_come() {
  local source
  for source in "${sources[@]}"; do
    local count before
    count="select count(*) from \"TRIAL.count\" where source = '$source'"
    before=$(kept "$count" 2>/dev/null) || before=0
    more_rows() { (($(kept "$count") >= before + 50)); }
    eventually more_rows
  done
}

# not_ours: of the names that come in, those that none of the packages here has.
not_ours() {
  while read -r name; do compgen -G "packages/${name}_*.deb" >/dev/null || echo "$name"; done
}

step 'what the packages and their tests need'
mapfile -t needed < <({
  sed -n 's/^Depends: //p' tests/control | tr ',' '\n' | tr -d ' '
  apt-get --quiet --simulate --no-install-recommends install ./packages/*.deb | sed -n 's/^Inst \([^ ]*\).*/\1/p'
} | sort -u | not_ours)
apt install "${needed[@]}"
list_files >/tmp/files.before
list_users >/tmp/users.before

step 'installing all packages'
apt install ./packages/*.deb
is_served || fail 'the service does not run'
zordchd --version

mapfile -t tests < <(sed -n 's/^Tests: //p' tests/control | tr ',' '\n' | tr -d ' ')
for test in "${tests[@]}"; do
  step "test of the packages: $test"
  AUTOPKGTEST_TMP=$(mktemp -d)
  export AUTOPKGTEST_TMP
  "tests/$test" || fail "the test $test failed"
  rm -rf "$AUTOPKGTEST_TMP"
done

step 'an upgrade while rows come in'
echo '# This machine has its own remarks.' >>/etc/zord410/zordchd.toml
former=$(server_process)
sources=(one two three four)
providers=()
touch /tmp/sending
for source in "${sources[@]}"; do
  provide "$source" &
  providers+=($!)
done
rows_come
apt install ./next/*.deb
[[ $(server_process) != "$former" ]] || fail 'the upgrade has not restarted the server'
rows_come
rm /tmp/sending
for provider in "${providers[@]}"; do
  wait "$provider" || fail "a provider ended: $(cat /tmp/said.*)"
done
[[ ! -s /tmp/said.one && ! -s /tmp/said.two && ! -s /tmp/said.three && ! -s /tmp/said.four ]] ||
  fail "providers were told: $(cat /tmp/said.*)"
for source in "${sources[@]}"; do
  sent=$(cat "/tmp/sent.$source")
  [[ $(kept "select count(*), count(distinct number), max(number) from \"TRIAL.count\" where source = '$source'") \
    == "$sent|$sent|$sent" ]] || fail "of the $sent rows of $source not each is kept once"
done
echo "kept once each: $(kept 'select count(*) from "TRIAL.count"') rows of ${#sources[@]} sources"
grep -q 'its own remarks' /etc/zord410/zordchd.toml || fail 'the configuration was replaced'
(($(systemctl show --property=NRestarts --value zordchd) == 0)) || fail 'the server was restarted by systemd'

step 'an upgrade with a configuration that is wrong'
former=$(server_process)
echo 'wrong = ' >>/etc/zord410/zordchd.toml
apt install --allow-downgrades ./packages/*.deb
grep -q 'zordchd.toml:[0-9]*: ' /tmp/apt.log && grep -q 'NOT restarted' /tmp/apt.log || fail "it said: $(cat /tmp/apt.log)"
[[ $(server_process) == "$former" ]] || fail 'the server was restarted with it'
sed -i '/^wrong/d' /etc/zord410/zordchd.toml
systemctl restart zordchd
is_served || fail 'the service does not run after the configuration was mended'

step 'an upgrade whose server does not start at once'
python3 -m http.server --bind 127.0.0.1 1981 >/dev/null 2>&1 &
other=$!
eventually curl --silent --output /dev/null http://127.0.0.1:1981/
sed -i 's/127.0.0.1:1980/127.0.0.1:1981/' /etc/zord410/zordchd.toml
apt install ./next/*.deb
grep -q 'does not start' /tmp/apt.log || fail "it said: $(cat /tmp/apt.log)"
kill "$other"
eventually is_served
sed -i 's/127.0.0.1:1981/127.0.0.1:1980/' /etc/zord410/zordchd.toml
systemctl restart zordchd

step 'removing while rows come in, and installing again'
sources=(five)
touch /tmp/sending
provide five &
provider=$!
rows_come
apt remove zordchd
for unit in zordchd.service zordchd.socket; do
  ! systemctl is-active --quiet "$unit" || fail "$unit is still there"
done
before=$(kept 'select count(*) from "TRIAL.count"')
apt install ./next/zordchd_*.deb
is_served || fail 'the service does not run'
(($(kept 'select count(*) from "TRIAL.count"') >= before)) || fail 'rows are missing'
rows_come
rm /tmp/sending
wait "$provider" || fail "the provider ended: $(cat /tmp/said.five)"

step 'purging everything'
mapfile -t ours < <(for package in packages/*.deb; do dpkg-deb --field "$package" Package; done)
apt purge "${ours[@]}"
list_files >/tmp/files.after
list_users >/tmp/users.after
diff /tmp/files.before /tmp/files.after || fail 'purging leaves files, see above'
diff /tmp/users.before /tmp/users.after || fail 'purging leaves a user or a group, see above'
[[ $(systemctl is-system-running) == running ]] || fail "$(systemctl --failed)"
