# Sourced by the scripts that build: the Debian packages they need, and how to get them.

# The presets build with ninja; `cmake -S . -B B` alone takes make.
build_packages=(
  cmake g++ libboost1.81-dev libcli11-dev libcsv-dev libcurl4-openssl-dev libgmock-dev libgtest-dev libjs-dygraphs
  libnats-dev libpq-dev libsqlite3-dev libsystemd-dev libtomlplusplus-dev make ninja-build nlohmann-json3-dev pkgconf
  python3 scdoc)
test_packages=(
  bash-completion chromium chromium-driver clang-format curl fish fonts-dejavu-core man-db mypy nats-server openssl
  postgresql prometheus python3-pexpect python3-pyte python3-pytest python3-selenium sqlite3 strace systemd tshark zsh)
fuzz_packages=(clang libclang-rt-14-dev)
analysis_packages=(clang-tidy cppcheck)
coverage_packages=(gcovr)
# The 32-bit build compiles GoogleTest itself, so that no second architecture has to be set up.
packages_32bit=(g++-multilib googletest)

# install_packages NAME...: installs those of the packages that are missing; asks nothing and touches
# nothing when none is.
install_packages() {
  if ! command -v dpkg-query >/dev/null; then
    echo "${0##*/}: no dpkg-query: this is not Debian; install by hand what corresponds to: $*" >&2
    return 1
  fi

  local missing=() name
  for name in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$name" 2>/dev/null | grep -qx installed || missing+=("$name")
  done
  ((${#missing[@]})) || return 0

  local as_root=()
  if ((EUID != 0)); then
    if ! command -v sudo >/dev/null; then
      echo "${0##*/}: packages are missing, and there is neither root nor sudo to install them:" \
        "${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi

  echo "installing ${missing[*]}"
  local apt_get=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300)
  # An index that could not be brought up to date may still do: the installation decides.
  "${apt_get[@]}" update || true
  if ! "${apt_get[@]}" install -y --no-install-recommends "${missing[@]}"; then
    echo "${0##*/}: apt-get could not install: ${missing[*]}" >&2
    return 1
  fi
}
