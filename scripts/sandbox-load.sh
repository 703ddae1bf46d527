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
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >/dev/null
fi
cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target pms-sandbox vlmsdk-pms vlmsdk-bench-sandbox-load >/dev/null

# The service runs as `vlmsdk-pms sandbox start` runs it, with its state in a directory of its own.
export XDG_STATE_HOME="$(mktemp -d)"
tool="$build/tools/vlmsdk-pms/vlmsdk-pms"
cleanup() {
  "$tool" sandbox stop >/dev/null || true
  rm -rf "$XDG_STATE_HOME"
}
trap cleanup EXIT

overflows() { awk '/^TcpExt:/ { if (!n) { split($0, names); n = 1 } else { for (i = 2; i <= NF; i++) if (names[i] == "ListenOverflows") print $i } }' /proc/net/netstat; }

url="$("$tool" sandbox start --port 0 | sed -n 's/.*running at \(http[^[:space:]]*\).*/\1/p')"
[ -n "$url" ] || { echo "sandbox-load: pms-sandbox did not start" >&2; exit 1; }

before="$(overflows)"
status=0
timeout 300 "$build/bench/vlmsdk-bench-sandbox-load" --url "$url" --requests 20000 --connections 32 "$@" || status=$?
echo "listen-queue overflows during the run: $(( $(overflows) - before ))"
exit "$status"
