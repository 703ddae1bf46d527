#!/usr/bin/env bash
# Builds the benchmarks in Release (build-bench/), runs the three programs with settings that fit a 2-core
# machine (about 4 minutes), measures what a minimal host pays in size (scripts/host-size.sh: two builds of
# the kit, a few minutes more), prints their tables and writes every figure to build-bench/bench.json.
#   scripts/bench.sh [--quick]      --quick: one short run of each program, to check that they work (no sizes)
# Needs scripts/setup.sh --bench (cpprestsdk for client (p)). Traffic stays on 127.0.0.1.
set -euo pipefail
cd "$(dirname "$0")/.."

runs=5 duration=2 mapping_time=0.5 requests=10000
if [ "${1:-}" = "--quick" ]; then
  runs=1 duration=0.3 mapping_time=0.05 requests=2000
elif [ $# -gt 0 ]; then
  echo "usage: $0 [--quick]" >&2
  exit 2
fi

dir=build-bench
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DVLMSDK_BUILD_TESTS=OFF -DVLMSDK_BUILD_TOOLS=OFF \
  >/dev/null
cmake --build "$dir" -j"$(nproc 2>/dev/null || echo 2)" --target vlmsdk-bench

bin="$dir/bench"
echo "== vlmsdk-bench-fetch"
"$bin/vlmsdk-bench-fetch" --runs "$runs" --duration "$duration" --json "$dir/bench-fetch.json"
echo "== vlmsdk-bench-mapping"
"$bin/vlmsdk-bench-mapping" --runs "$runs" --min-time "$mapping_time" --json "$dir/bench-mapping.json"
for mode in pumped threaded; do
  echo "== vlmsdk-bench-memory ($mode)"
  "$bin/vlmsdk-bench-memory" --requests "$requests" --mode "$mode" --json "$dir/bench-memory-$mode.json"
done

host_size=null
if [ "$runs" != 1 ]; then
  echo "== scripts/host-size.sh"
  ./scripts/host-size.sh
  host_size="$(cat "$dir/host-size.json")"
fi

{
  printf '{"fetch": '; cat "$dir/bench-fetch.json"
  printf ', "mapping": '; cat "$dir/bench-mapping.json"
  printf ', "memory": {"pumped": '; cat "$dir/bench-memory-pumped.json"
  printf ', "threaded": '; cat "$dir/bench-memory-threaded.json"
  printf '}, "host_size": %s}\n' "$host_size"
} > "$dir/bench.json"
echo "bench.sh: figures written to $dir/bench.json"
