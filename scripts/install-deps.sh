#!/usr/bin/env bash
# Installs the Debian packages that building, testing, fuzzing and
# benchmarking ZqSys need, and only those that are missing. Quiet when
# everything is present. Without root it lists what is missing and fails.
set -euo pipefail

packages=(
  cmake ninja-build pkg-config binutils
  g++ clang libclang-rt-14-dev clang-format clang-tidy python3
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libmsgpack-dev libmsgpack-cxx-dev libfmt-dev libspdlog-dev libsqlite3-dev
  libgmp-dev  # the reference of the decimal tests and benchmark
  # The SQL text tests run a throwaway server; about 13 s to install.
  postgresql
  # The router checks password hashes; its benchmark runs beside nats.
  libcrypt-dev nats-server libnats-dev
)

if ! command -v dpkg-query >/dev/null 2>&1; then
  echo "install-deps: dpkg-query not found; install by hand: ${packages[*]}" >&2
  exit 1
fi

missing=()
for package in "${packages[@]}"; do
  # A package removed but not purged is known to dpkg, so ask for its state.
  state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  if [[ "$state" != installed ]]; then
    missing+=("$package")
  fi
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

if [[ "$(id -u)" -ne 0 ]]; then
  echo "install-deps: missing Debian packages: ${missing[*]}" >&2
  echo "install-deps: run as root, or: sudo apt-get install ${missing[*]}" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq </dev/null
apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null >/dev/null
