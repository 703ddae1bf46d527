#!/usr/bin/env bash
# Installs every Debian 12 package the project needs. Idempotent and quiet when all is there.
set -euo pipefail

packages=(
  build-essential g++ clang-14 libclang-rt-14-dev cmake ninja-build pkg-config
  nlohmann-json3-dev libcurl4-openssl-dev libssl-dev
  libgtest-dev libgmock-dev libcpp-httplib-dev libcli11-dev libbenchmark-dev
  python3
)

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
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
