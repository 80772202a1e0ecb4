# Sourced by scripts/packages: folders with a Debian of their own, which know nothing of this machine.

# Where this machine gets its packages from, they get theirs.
apt_sources() {
  local file
  for file in /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list; do
    [[ ! -s $file ]] || {
      echo "$file"
      return
    }
  done
  echo "${0##*/}: apt has no sources in /etc/apt/sources.list or sources.list.d/debian.sources" >&2
  return 1
}

# make_root FOLDER OPTION...: with apt and what the options of mmdebstrap ask for.
make_root() {
  local sources
  sources=$(apt_sources)
  mmdebstrap --quiet --variant=apt --skip=cleanup/apt "${@:2}" bookworm "$1" "$sources"
}

# in_root FOLDER OPTION... COMMAND...: with no network but loopback, unless --network is the first
# option; others are systemd-nspawn's.
in_root() {
  local folder=$1 network=(--private-network)
  shift
  if [[ $1 == --network ]]; then
    network=()
    shift
  fi
  systemd-nspawn --quiet --register=no --keep-unit --console=pipe "${network[@]}" \
    --directory="$folder" "$@" </dev/null
}

booted_process=

# boot_root FOLDER LOG: starts its systemd, with no network but loopback.
boot_root() {
  systemd-nspawn --quiet --register=no --keep-unit --console=pipe --private-network --boot \
    --directory="$1" </dev/null >"$2" 2>&1 &
  booted_process=$!
  local state='' tries
  for ((tries = 0; tries < 600; ++tries)); do
    state=$(in_booted systemctl is-system-running 2>&1) || true
    case "$state" in
    running) return ;;
    degraded)
      in_booted systemctl --failed >&2
      return 1
      ;;
    esac
    kill -0 "$booted_process" 2>/dev/null || break
    sleep 0.1
  done
  echo "${0##*/}: systemd does not start in $1: $state; $(tail -n 5 "$2")" >&2
  return 1
}

# in_booted COMMAND...: as its root.
in_booted() {
  local leader
  leader=$(<"/proc/$booted_process/task/$booted_process/children")
  leader=${leader%% *}
  [[ $leader ]] || return 1
  nsenter --target "$leader" --mount --uts --ipc --net --pid --root --wd \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}

# shut_down: the one that was started.
shut_down() {
  [[ $booted_process ]] || return 0
  kill "$booted_process" 2>/dev/null || true
  local tries
  for ((tries = 0; tries < 200; ++tries)); do
    kill -0 "$booted_process" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "$booted_process" 2>/dev/null || true
  wait "$booted_process" 2>/dev/null || true
  booted_process=
}
