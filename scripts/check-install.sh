#!/usr/bin/env bash
# Installs the kit into a temporary prefix, builds examples/ against the installed package (CMake
# package and pkg-config file), and runs the example against a pms-sandbox started on an ephemeral port.
#   scripts/check-install.sh [BUILD_DIR]     default: build (configured as scripts/test.sh does if new)
# JOBS sets the build parallelism (default: all cores). The build must not be a sanitizer build.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "$root" && mkdir -p "${1:-build}" && cd "${1:-build}" && pwd)"
jobs="${JOBS:-$(nproc 2>/dev/null || echo 2)}"

work="$(mktemp -d)"
sandbox_pid=""
cleanup() {
  if [ -n "$sandbox_pid" ]; then kill "$sandbox_pid" 2>/dev/null || true; wait "$sandbox_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
say() { echo "check-install: $*"; }
fail() { echo "check-install: FAILED: $*" >&2; exit 1; }

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j"$jobs" --target VLMErrors VLMMeta VLMSDKCoreKit VLMSDKPaymentKit VLMSDKPMSKit pms-sandbox >/dev/null

prefix="$work/prefix"
say "installing into $prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

say "building examples/ with find_package(VLMSDKPMSKit)"
cmake -S "$root/examples" -B "$work/example" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/example" >/dev/null
cmake_example="$work/example/host_example"

say "building examples/host_example.cpp with pkg-config vlmsdk-pmskit"
pc_flags="$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig:$prefix/share/pkgconfig" pkg-config --cflags --libs vlmsdk-pmskit)" ||
  fail "pkg-config does not know vlmsdk-pmskit"
# shellcheck disable=SC2086 # the flags are meant to split
"${CXX:-c++}" "$root/examples/host_example.cpp" -o "$work/host_example_pc" $pc_flags ||
  fail "host_example does not build with: $pc_flags"
pc_example="$work/host_example_pc"

"$build/tools/pms-sandbox/pms-sandbox" --port 0 --in-memory >"$work/sandbox.log" 2>&1 &
sandbox_pid=$!
url=""
for _ in $(seq 1 100); do
  url="$(sed -n 's/.*listening on \(http[^[:space:]]*\).*/\1/p' "$work/sandbox.log")"
  [ -n "$url" ] && break
  kill -0 "$sandbox_pid" 2>/dev/null || fail "pms-sandbox exited: $(cat "$work/sandbox.log")"
  sleep 0.1
done
[ -n "$url" ] || fail "pms-sandbox never said where it listens"
say "pms-sandbox listening on $url"

for example in "$cmake_example" "$pc_example"; do
  out="$("$example" "$url" sandbox-token rsv_0003)" || fail "$example exited $? against $url"
  while IFS= read -r line; do echo "  $line"; done <<<"$out"
  grep -q '^Reservation rsv_0003: status in_house' <<<"$out" || fail "$example did not print the reservation"
  grep -q '^Folio fol_0003: 4 posting(s)' <<<"$out" || fail "$example did not print the folio"
  if "$example" "$url" wrong-token rsv_0003 >/dev/null 2>&1; then
    fail "$example succeeded with a wrong token"
  fi
done
say "OK"
