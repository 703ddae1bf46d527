#!/usr/bin/env bash
# Builds the command-line tool and walks one guest's stay against the local reservation service.
# Extra arguments go to the tool (e.g. --json, or --base-url URL --token T for another service). The build's
# progress goes to standard error, so that standard output holds only what the tool prints.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
say() { echo "demo.sh: $*" >&2; }

if [ ! -f build/CMakeCache.txt ]; then
  # Only what the demo needs: a machine set up for the demo alone has no test or benchmark libraries.
  say "configuring build/ for the tool and the local service"
  log="$(mktemp)"
  if ! cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DVLMSDK_BUILD_TESTS=OFF \
    -DVLMSDK_BUILD_BENCH=OFF >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    say "configuring failed; scripts/setup.sh installs what the build needs"
    exit 1
  fi
  rm -f "$log"
fi
say "building vlmsdk-pms with $jobs jobs (the first build takes a few minutes)"
cmake --build build -j"$jobs" --target vlmsdk-pms >&2
say "running: vlmsdk-pms demo $*"
exec ./build/tools/vlmsdk-pms/vlmsdk-pms demo "$@"
