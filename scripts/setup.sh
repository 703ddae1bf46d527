#!/usr/bin/env bash
# Installs the Debian 12 packages the project needs. Idempotent and quiet when all is there.
#   scripts/setup.sh               what the command-line tool and the local service need (the demo)
#   scripts/setup.sh --tests       and what the test suite needs (sanitizer and fuzzing compilers, test
#                                  servers, the browser the dashboard test drives, the arm64 cross
#                                  toolchain, its :arm64 libraries and qemu-user), Doxygen for
#                                  scripts/docs.sh and abigail-tools for scripts/abi-check.sh
#   scripts/setup.sh --bench       and the peer client the benchmarks measure against
#   scripts/setup.sh --examples    and the host event loops the examples plug into
#   scripts/setup.sh --all         all of them (CI)
set -euo pipefail

base=(
  build-essential g++ cmake ninja-build pkg-config
  nlohmann-json3-dev libsimdjson-dev libcurl4-openssl-dev libssl-dev
  libcpp-httplib-dev libsqlite3-dev libcli11-dev
)
tests=(
  libgtest-dev libgmock-dev clang-14 libclang-rt-14-dev
  nghttp2-server openssl ca-certificates chromium python3 python3-h2 doxygen abigail-tools
  crossbuild-essential-arm64 qemu-user
  # scripts/test.sh --arch arm64: the libraries the core, the kit and their suites link, for arm64. simdjson's
  # development package is for one architecture at a time: the arm64 build takes its runtime library.
  libcurl4-openssl-dev:arm64 libssl-dev:arm64 libsqlite3-dev:arm64 libsimdjson14:arm64
  libgtest-dev:arm64 libgmock-dev:arm64 libcpp-httplib-dev:arm64
)
bench=(libbenchmark-dev libcpprest-dev nginx-light curl)
examples=(qt6-base-dev libasio-dev)

packages=("${base[@]}")
for set in "$@"; do
  case "$set" in
    --tests) packages+=("${tests[@]}") ;;
    --bench) packages+=("${bench[@]}") ;;
    --examples) packages+=("${examples[@]}") ;;
    --all) packages+=("${tests[@]}" "${bench[@]}" "${examples[@]}") ;;
    *) echo "usage: $0 [--tests] [--bench] [--examples] [--all]" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
if [[ " ${missing[*]}" == *":arm64"* ]] && ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $SUDO dpkg --add-architecture arm64
fi
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
