#!/usr/bin/env bash
# Puts a load on pms-sandbox over loopback: 20,000 guest requests (half reads, a quarter charges, a
# quarter payments) over 32 keep-alive connections, against a state file, and prints errors, latencies
# and the kernel's listen-queue overflows during the run.
#   scripts/sandbox-load.sh [BUILD_DIR] [-- extra arguments for the load program]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-build}"
[ $# -gt 0 ] && shift
[ "${1:-}" = "--" ] && shift
cd "$root"
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target pms-sandbox vlmsdk-bench-sandbox-load >/dev/null

work="$(mktemp -d)"
sandbox_pid=""
cleanup() {
  if [ -n "$sandbox_pid" ]; then kill "$sandbox_pid" 2>/dev/null || true; wait "$sandbox_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

overflows() { awk '/^TcpExt:/ { if (!n) { split($0, names); n = 1 } else { for (i = 2; i <= NF; i++) if (names[i] == "ListenOverflows") print $i } }' /proc/net/netstat; }

"$build/tools/pms-sandbox/pms-sandbox" --state "$work/sandbox.db" --port 0 --quiet >"$work/out" 2>&1 &
sandbox_pid=$!
url=""
for _ in $(seq 1 100); do
  url="$(sed -n 's/.*listening on \(http[^[:space:]]*\).*/\1/p' "$work/out")"
  [ -n "$url" ] && break
  kill -0 "$sandbox_pid" 2>/dev/null || { cat "$work/out" >&2; exit 1; }
  sleep 0.1
done
[ -n "$url" ] || { echo "sandbox-load: pms-sandbox never said where it listens" >&2; exit 1; }

before="$(overflows)"
status=0
timeout 300 "$build/bench/vlmsdk-bench-sandbox-load" --url "$url" --requests 20000 --connections 32 "$@" || status=$?
echo "listen-queue overflows during the run: $(( $(overflows) - before ))"
exit "$status"
